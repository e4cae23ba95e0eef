// Base64: a text that is decoded is what the decoded bytes encode to, white space left out; bytes
// that are encoded are decoded again; and destinations take exactly what they are said to need.

#include "fuzz/target.h"
#include "text/base64.h"

#include <algorithm>
#include <memory>
#include <nettle/base64.h>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

unsigned sizeOf(std::size_t size) {
    return static_cast<unsigned>(size);
}

std::string encoded(const std::uint8_t* data, std::size_t size) {
    const std::size_t room = (size + 2) / 3 * 4 + 1;
    const std::unique_ptr<char[]> text(new char[room]);
    fuzz::require(base64_encode(data, sizeOf(size), text.get(), sizeOf(room - 1)) == -1,
                  "encoding needs room for the NUL");
    const int length = base64_encode(data, sizeOf(size), text.get(), sizeOf(room));
    fuzz::require(length == static_cast<int>(room) - 1, "encoding fills its room");
    return text.get();
}

std::string withoutBlanks(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (std::string(" \t\n\v\f\r").find(c) == std::string::npos)
            result.push_back(c);
    }
    return result;
}

// Decodes into exactly `size` bytes.
int decode(const std::string& text, std::size_t size, Bytes& bytes) {
    const std::unique_ptr<unsigned char[]> room(new unsigned char[size]);
    const int length = base64_decode(text.c_str(), room.get(), sizeOf(size));
    bytes.assign(room.get(), room.get() + (length < 0 ? 0 : length));
    return length;
}

// What nettle makes of the text; -1 for nothing. Three paddings behind a single character, which
// nettle takes when the character's bits are zero, belong to no group.
int decodeWithNettle(const std::string& text, Bytes& bytes) {
    base64_decode_ctx context;
    base64_decode_init(&context);
    bytes.resize(BASE64_DECODE_LENGTH(text.size()));
    std::size_t length = 0;
    const bool decoded =
        base64_decode_update(&context, &length, bytes.data(), text.size(), text.data()) == 1 &&
        base64_decode_final(&context) == 1 && std::count(text.begin(), text.end(), '=') <= 2;
    bytes.resize(decoded ? length : 0);
    return decoded ? static_cast<int>(length) : -1;
}

void decodeAsNettleDoes(const std::string& text) {
    Bytes ours;
    Bytes nettles;
    const int length = decode(text, text.size() + 1, ours);
    fuzz::require(length == decodeWithNettle(text, nettles) && ours == nettles,
                  "decoding gives what nettle gives");
}

void decodeAndEncode(const std::string& text) {
    const int measured = base64_decode(text.c_str(), nullptr, 0);
    Bytes bytes;
    const int length = decode(text, text.size() + 1, bytes);
    fuzz::require(length == measured || length == -1, "decoding gives the measured length");
    if (length < 0)
        return;
    const std::string plain = withoutBlanks(text);
    fuzz::require(encoded(bytes.data(), bytes.size()) == plain, "decoding undoes encoding");
    const std::size_t needed = bytes.size() + (plain.ends_with('=') ? 1 : 0);
    fuzz::require(decode(text, needed, bytes) == length, "decoding fits its room");
    fuzz::require(needed == 0 || decode(text, needed - 1, bytes) == -1, "decoding needs its room");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = std::string(data, data + size).c_str();
    decodeAndEncode(text);
    decodeAsNettleDoes(text);
    Bytes bytes;
    fuzz::require(decode(encoded(data, size), size + 1, bytes) == static_cast<int>(size) &&
                      bytes == Bytes(data, data + size),
                  "what was encoded can be decoded");
    return 0;
}
