// The hexadecimal text of a digest: two digits a byte, high nibble first. Not installed.

#ifndef PELORIK_DIGEST_HEX_TEXT_H
#define PELORIK_DIGEST_HEX_TEXT_H

#include <cstddef>

namespace pelorikutil::hex_text {

inline const char* digits(bool upperCase) {
    return upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
}

// Writes 2 * count digits and a NUL to `out` and returns it.
inline char* write(const unsigned char* bytes, std::size_t count, char* out, bool upperCase) {
    const char* const digit = digits(upperCase);
    char* next = out;
    for (std::size_t i = 0; i < count; ++i) {
        *next++ = digit[bytes[i] >> 4];
        *next++ = digit[bytes[i] & 15];
    }
    *next = '\0';
    return out;
}

// True when `text` is exactly what `write` gives. A NUL equals no digit, so nothing behind the
// text's own end is read.
inline bool matches(const unsigned char* bytes, std::size_t count, const char* text,
                    bool upperCase) {
    if (text == nullptr)
        return false;
    const char* const digit = digits(upperCase);
    for (std::size_t i = 0; i < count; ++i) {
        if (*text++ != digit[bytes[i] >> 4] || *text++ != digit[bytes[i] & 15])
            return false;
    }
    return *text == '\0';
}

} // namespace pelorikutil::hex_text

#endif
