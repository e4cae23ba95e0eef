#include "cli/json_text.h"

#include "cli/terminal.h"
#include "text/base64.h"

#include <string_view>
#include <vector>

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
    const std::vector<unsigned char> source(bytes.begin(), bytes.end());
    std::string out((source.size() + 2) / 3 * 4 + 1, '\0'); // the terminator included
    base64_encode(source.data(), static_cast<unsigned>(source.size()), out.data(),
                  static_cast<unsigned>(out.size()));
    out.pop_back();
    return out;
}

} // namespace

void putName(JsonObject& object, const std::string& key, const std::string& name) {
    object[key] = name;
    if (!isUtf8(name))
        object[key + "_base64"] = base64(name);
}

std::string jsonLine(const JsonObject& object) {
    return printableJson(object.dump(-1, ' ', false, JsonObject::error_handler_t::replace));
}

} // namespace cli
