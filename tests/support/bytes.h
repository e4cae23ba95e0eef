// Bytes for tests to feed: patterns, hexadecimal text, and memory that ends at a wall.

#ifndef PELORIK_TESTS_SUPPORT_BYTES_H
#define PELORIK_TESTS_SUPPORT_BYTES_H

#include <cstddef>
#include <random>
#include <string>

namespace support {

// Byte i is i modulo 251, so that exchanged blocks show.
std::string pattern(std::size_t length);

std::string randomBytes(std::size_t length, std::mt19937_64& random);

// Two lower-case digits a byte.
std::string toHex(const std::string& bytes);
std::string toHex(const void* bytes, std::size_t length);
std::string fromHex(const std::string& digits);
std::string upperCase(std::string digits);

// Memory right behind which reading or writing ends the process.
class WalledBytes {
public:
    explicit WalledBytes(std::size_t length);
    explicit WalledBytes(const std::string& bytes);
    ~WalledBytes();
    WalledBytes(const WalledBytes&) = delete;
    WalledBytes& operator=(const WalledBytes&) = delete;

    char* data() const { return data_; }
    std::size_t size() const { return size_; }

private:
    std::size_t size_;
    std::size_t mapped_;
    char* base_;
    char* data_;
};

} // namespace support

#endif
