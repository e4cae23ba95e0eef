// File descriptors that close themselves, and whole reads and writes on them.

#ifndef PELORIK_CLI_FILES_DESCRIPTOR_H
#define PELORIK_CLI_FILES_DESCRIPTOR_H

#include <cstddef>
#include <functional>
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
    int release() { return std::exchange(number_, -1); } // leaves it open
    explicit operator bool() const { return number_ >= 0; }

    // Closes now. Returns 0 or the error number: some file systems tell of a failed write only
    // here.
    int close();

private:
    int number_ = -1;
};

// Opens a regular file for reading. Never waits for a FIFO that took its place. Retries, with
// pauses and a call of `poll`, while the file's lease keeps other processes from opening it: a
// signal that another thread handles would not end a blocking open. Without a descriptor, errno
// tells why.
Descriptor openWithoutBlocking(const char* path, const std::function<void(std::size_t)>& poll);

// Reads until `size` bytes came or the data ends, and returns how many came. Throws
// std::system_error, and `Interrupted` when SIGINT has come.
std::size_t readFull(int descriptor, unsigned char* data, std::size_t size);

// Writes all of `data`. Returns 0 or the error number. Once a signal has set the interrupt flag it
// does not wait for a reader any more: EINTR.
int writeAll(int descriptor, std::string_view data);

} // namespace cli

#endif
