#include "cli/output/json.h"

#include "cli/output/terminal.h"
#include "text/base64.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>
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

constexpr char kReplacement[] = "\xef\xbf\xbd"; // U+FFFD

// How many bytes at the beginning of `text`, which is not UTF-8 there, one replacement character
// stands for: as many as could begin a character.
std::size_t brokenLength(std::string_view text) {
    for (std::size_t length = 3; length > 1; --length) {
        const std::string begin(text.substr(0, length));
        const bool couldBegin =
            utf8Length(begin + "\x80\x80") > length || utf8Length(begin + "\xbf\xbf") > length;
        if (begin.size() == length && couldBegin)
            return length;
    }
    return 1;
}

void appendEscaped(std::string& out, char byte) {
    constexpr std::string_view kShort = "\"\\\b\f\n\r\t";
    constexpr std::string_view kLetters = "\"\\bfnrt";
    if (const std::size_t found = kShort.find(byte); found != std::string_view::npos) {
        out += {'\\', kLetters[found]};
        return;
    }
    char text[8];
    std::snprintf(text, sizeof text, "\\u%04x", static_cast<unsigned>(byte));
    out += text;
}

bool needsEscape(char byte) {
    return byte == '"' || byte == '\\' || static_cast<unsigned char>(byte) < 0x20;
}

std::string quoted(std::string_view text) {
    std::string out = "\"";
    while (!text.empty()) {
        const std::size_t length = utf8Length(text);
        if (length == 0)
            out += kReplacement;
        else if (needsEscape(text.front()))
            appendEscaped(out, text.front());
        else
            out += text.substr(0, length);
        text.remove_prefix(length == 0 ? brokenLength(text) : length);
    }
    return out + "\"";
}

} // namespace

JsonValue& JsonValue::operator=(std::nullptr_t) {
    text_ = "null";
    return *this;
}

JsonValue& JsonValue::operator=(double value) {
    char text[32];
    text_.assign(text, std::to_chars(text, std::end(text), value).ptr);
    return *this;
}

JsonValue& JsonValue::operator=(const char* value) {
    text_ = quoted(value);
    return *this;
}

JsonValue& JsonValue::operator=(const std::string& value) {
    text_ = quoted(value);
    return *this;
}

JsonValue& JsonValue::operator=(const std::vector<std::string>& values) {
    std::string text = "[";
    for (const std::string& value : values)
        text += (text.size() == 1 ? "" : ",") + quoted(value);
    text_ = text + "]";
    return *this;
}

JsonValue& JsonValue::operator=(const JsonObject& value) {
    text_ = value.text();
    return *this;
}

JsonValue& JsonObject::operator[](const std::string& key) {
    const auto found = std::find_if(values_.begin(), values_.end(),
                                    [&](const auto& value) { return value.first == key; });
    return found != values_.end() ? found->second : values_.emplace_back(key, JsonValue()).second;
}

std::string JsonObject::text() const {
    std::string text = "{";
    for (const auto& [key, value] : values_)
        text += (text.size() == 1 ? "" : ",") + quoted(key) + ":" + value.text();
    return text + "}";
}

void putName(JsonObject& object, const std::string& key, const std::string& name) {
    object[key] = name;
    if (!isUtf8(name))
        object[key + "_base64"] = base64(name);
}

std::string jsonLine(const JsonObject& object) {
    return printableJson(object.text());
}

} // namespace cli
