// JSON for programs: one object a line.

#ifndef PELORIK_CLI_JSON_TEXT_H
#define PELORIK_CLI_JSON_TEXT_H

#include <nlohmann/json.hpp>
#include <string>

namespace cli {

// Keeps its keys in the order in which they were put in.
using JsonObject = nlohmann::ordered_json;

// Puts a file's name under `key`. A name that is not UTF-8 gets replacement characters there, and
// its bytes in base64 under `key` with "_base64" behind it.
void putName(JsonObject& object, const std::string& key, const std::string& name);

// `object` on one line, without a line feed.
std::string jsonLine(const JsonObject& object);

} // namespace cli

#endif
