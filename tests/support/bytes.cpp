#include "tests/support/bytes.h"

#include <cctype>
#include <cstring>
#include <stdexcept>
#include <sys/mman.h>

namespace support {

namespace {

constexpr std::size_t kPage = 4096;
constexpr char kDigits[] = "0123456789abcdef";

} // namespace

std::string pattern(std::size_t length) {
    std::string bytes(length, '\0');
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<char>(i % 251);
    return bytes;
}

std::string randomBytes(std::size_t length, std::mt19937_64& random) {
    std::string bytes(length, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random() >> 56);
    return bytes;
}

std::string toHex(const std::string& bytes) {
    return toHex(bytes.data(), bytes.size());
}

std::string toHex(const void* bytes, std::size_t length) {
    std::string digits;
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned byte = static_cast<const unsigned char*>(bytes)[i];
        digits += kDigits[byte / 16];
        digits += kDigits[byte % 16];
    }
    return digits;
}

std::string fromHex(const std::string& digits) {
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

std::string upperCase(std::string digits) {
    for (char& c : digits)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return digits;
}

WalledBytes::WalledBytes(std::size_t length)
    : size_(length), mapped_((length / kPage + 2) * kPage) {
    void* const memory =
        mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::runtime_error("mmap");
    base_ = static_cast<char*>(memory);
    char* const wall = base_ + mapped_ - kPage;
    mprotect(wall, kPage, PROT_NONE);
    data_ = wall - length;
}

WalledBytes::WalledBytes(const std::string& bytes) : WalledBytes(bytes.size()) {
    std::memcpy(data_, bytes.data(), bytes.size());
}

WalledBytes::~WalledBytes() {
    munmap(base_, mapped_);
}

} // namespace support
