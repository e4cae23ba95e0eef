// Base64 of 48 KiB, and back from one line and from lines of 64 characters with CRLF.

#include "bench/race.h"
#include "text/base64.h"

#include <glib.h>
#include <nettle/base64.h>
#include <openssl/evp.h>
#include <string>

namespace {

constexpr std::size_t kBytes = 49152;

std::string makeData() {
    std::string data(kBytes, '\0');
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>(i * 7919 >> 3);
    return data;
}

const std::string data = makeData();
const auto* const bytes = reinterpret_cast<const unsigned char*>(data.data());

std::string encoded() {
    std::string text(kBytes / 3 * 4 + 1, '\0');
    base64_encode(bytes, kBytes, text.data(), static_cast<unsigned>(text.size()));
    text.pop_back();
    return text;
}

std::string inLines(const std::string& text) {
    std::string lines;
    for (std::size_t i = 0; i < text.size(); i += 64)
        lines += text.substr(i, 64) + "\r\n";
    return lines;
}

char textOut[70000];
unsigned char bytesOut[70000];

void glibsEncode() {
    gint state = 0;
    gint save = 0;
    const std::size_t length = g_base64_encode_step(bytes, kBytes, FALSE, textOut, &state, &save);
    g_base64_encode_close(FALSE, textOut + length, &state, &save);
}

void glibsDecode(const std::string& text) {
    gint state = 0;
    guint save = 0;
    g_base64_decode_step(text.data(), text.size(), bytesOut, &state, &save);
}

void nettlesDecode(const std::string& text) {
    base64_decode_ctx context;
    nettle_base64_decode_init(&context);
    std::size_t length = sizeof bytesOut;
    nettle_base64_decode_update(&context, &length, bytesOut, text.size(), text.data());
    nettle_base64_decode_final(&context);
}

void opensslsDecode(const std::string& text) {
    EVP_ENCODE_CTX* const context = EVP_ENCODE_CTX_new();
    EVP_DecodeInit(context);
    int length = 0;
    EVP_DecodeUpdate(context, bytesOut, &length,
                     reinterpret_cast<const unsigned char*>(text.data()),
                     static_cast<int>(text.size()));
    EVP_DecodeFinal(context, bytesOut, &length);
    EVP_ENCODE_CTX_free(context);
}

void oursDecode(const std::string& text) {
    base64_decode(text.c_str(), bytesOut, sizeof bytesOut);
}

void enterDecode(const char* what, const std::string& text) {
    bench::enter(what, 65536, "pelorik", [text] { oursDecode(text); });
    bench::enter(what, 65536, "glib", [text] { glibsDecode(text); });
    bench::enter(what, 65536, "nettle", [text] { nettlesDecode(text); });
    bench::enter(what, 65536, "openssl", [text] { opensslsDecode(text); });
}

const bool registered = [] {
    bench::enter("base64-encode", kBytes, "pelorik",
                 [] { base64_encode(bytes, kBytes, textOut, sizeof textOut); });
    bench::enter("base64-encode", kBytes, "glib", glibsEncode);
    bench::enter("base64-encode", kBytes, "nettle",
                 [] { nettle_base64_encode_raw(textOut, kBytes, bytes); });
    bench::enter("base64-encode", kBytes, "openssl",
                 [] { EVP_EncodeBlock(reinterpret_cast<unsigned char*>(textOut), bytes, kBytes); });
    enterDecode("base64-decode", encoded());
    enterDecode("base64-decode-crlf", inLines(encoded()));
    return true;
}();

} // namespace
