#include "cli/json_text.h"

#include "cli/terminal.h"

#include <string_view>

namespace cli {

namespace {

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = utf8Length(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string base64(std::string_view bytes) {
    constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::string_view group = bytes.substr(i, 3);
        unsigned long bits = 0;
        for (std::size_t k = 0; k < 3; ++k)
            bits = bits << 8 | (k < group.size() ? static_cast<unsigned char>(group[k]) : 0U);
        for (std::size_t k = 0; k < 4; ++k)
            out += k <= group.size() ? kAlphabet[bits >> (18 - 6 * k) & 63] : '=';
    }
    return out;
}

} // namespace

void putName(JsonObject& object, const std::string& key, const std::string& name) {
    object[key] = name;
    if (!isUtf8(name))
        object[key + "_base64"] = base64(name);
}

std::string jsonLine(const JsonObject& object) {
    return object.dump(-1, ' ', false, JsonObject::error_handler_t::replace);
}

} // namespace cli
