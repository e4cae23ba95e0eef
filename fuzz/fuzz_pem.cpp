// Certificates: any text of any length can be judged and decoded, with a destination and without;
// and bytes come back from between any header and footer.

#include "fuzz/target.h"
#include "text/base64.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

std::unique_ptr<char[]> copyWithoutNul(const std::uint8_t* data, std::size_t size) {
    std::unique_ptr<char[]> copy(new char[size]);
    std::copy(data, data + size, copy.get());
    return copy;
}

void judgeAndDecode(const std::uint8_t* data, std::size_t size) {
    const auto text = copyWithoutNul(data, size);
    const int length = static_cast<int>(size);
    const bool looksLikeOne = is_base64_encoded_cert(text.get(), length);
    fuzz::require(!looksLikeOne || size >= 20, "a certificate has twenty characters at least");
    const int measured = base64_decode_cert(text.get(), length, nullptr, 0);
    const std::unique_ptr<unsigned char[]> bytes(new unsigned char[size + 1]);
    const int decoded = base64_decode_cert(text.get(), length, bytes.get(), length + 1);
    fuzz::require(decoded == measured || decoded == -1, "decoding gives the measured length");
}

// The text of a certificate, in exactly the room that it needs.
std::string wrapped(const std::uint8_t* data, std::size_t size) {
    const int length = static_cast<int>(size);
    const std::size_t lineCount = (size + 47) / 48;
    const std::size_t needed = 29 + (size + 2) / 3 * 4 + 2 * lineCount + 27 + 1;
    fuzz::require(base64_encode_cert_len(length) >= static_cast<int>(needed),
                  "the length that callers are told is enough");
    const std::unique_ptr<char[]> text(new char[needed]);
    fuzz::require(base64_encode_cert(data, length, text.get()) == static_cast<int>(needed),
                  "the length is told with the NUL");
    return text.get();
}

void wrapAndUnwrap(const std::uint8_t* data, std::size_t size) {
    const std::string text = wrapped(data, size);
    const int length = static_cast<int>(text.size());
    fuzz::require(is_base64_encoded_cert(text.c_str(), length), "what was wrapped looks wrapped");
    std::vector<unsigned char> bytes(size + 1);
    const int decoded =
        base64_decode_cert(text.c_str(), length, bytes.data(), static_cast<int>(bytes.size()));
    fuzz::require(decoded == static_cast<int>(size) && std::equal(data, data + size, bytes.begin()),
                  "what was wrapped can be unwrapped");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    judgeAndDecode(data, size);
    wrapAndUnwrap(data, size);
    return 0;
}
