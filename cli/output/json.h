// JSON for programs: one object a line.
//
// A small writer of its own, because a value of nlohmann::json that could not be made for want of
// memory ends the process when it is destroyed.

#ifndef PELORIK_CLI_OUTPUT_JSON_H
#define PELORIK_CLI_OUTPUT_JSON_H

#include <concepts>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace cli {

class JsonObject;

// What is assigned to it. Strings that are not UTF-8 get replacement characters.
class JsonValue {
public:
    JsonValue& operator=(std::nullptr_t);
    JsonValue& operator=(double value); // in as few digits as tell it from its neighbours
    JsonValue& operator=(const char* value);
    JsonValue& operator=(const std::string& value);
    JsonValue& operator=(const std::vector<std::string>& values);
    JsonValue& operator=(const JsonObject& value);

    // A template, so that no number becomes one by itself.
    template<std::same_as<bool> Bool>
    JsonValue& operator=(Bool value) {
        text_ = value ? "true" : "false";
        return *this;
    }

    template<std::unsigned_integral Number>
    requires(!std::same_as<Number, bool>) JsonValue& operator=(Number value) {
        text_ = std::to_string(value);
        return *this;
    }

    const std::string& text() const { return text_; }

private:
    std::string text_ = "null";
};

// Keeps its keys in the order in which they were put in.
class JsonObject {
public:
    // The value under `key`, which is put in when it is not there.
    JsonValue& operator[](const std::string& key);

    std::string text() const;

private:
    std::vector<std::pair<std::string, JsonValue>> values_;
};

// Puts a file's name under `key`. A name that is not UTF-8 gets replacement characters there, and
// its bytes in base64 under `key` with "_base64" behind it.
void putName(JsonObject& object, const std::string& key, const std::string& name);

// `object` on one line, without a line feed.
std::string jsonLine(const JsonObject& object);

} // namespace cli

#endif
