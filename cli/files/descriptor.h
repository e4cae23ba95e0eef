// File descriptors that close themselves, and whole reads and writes on them.

#ifndef PELORIK_CLI_FILES_DESCRIPTOR_H
#define PELORIK_CLI_FILES_DESCRIPTOR_H

#include <cstddef>
#include <string_view>
#include <utility>

namespace cli {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor();

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }

    // Closes now. Returns 0 or the error number: some file systems tell of a failed write only
    // here.
    int close();

private:
    int number_ = -1;
};

// Reads until `size` bytes came or the data ends, and returns how many came. Throws
// std::system_error, and `Interrupted` when SIGINT has come.
std::size_t readFull(int descriptor, unsigned char* data, std::size_t size);

// Writes all of `data`. Returns 0 or the error number. Once a signal has set the interrupt flag it
// does not wait for a reader any more: EINTR.
int writeAll(int descriptor, std::string_view data);

} // namespace cli

#endif
