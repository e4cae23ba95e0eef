#include "cli/digest_text.h"

#include "digest/hash.h"

#include <algorithm>
#include <memory>

namespace cli {

namespace {

bool isUpper(char c) {
    return c >= 'A' && c <= 'Z';
}

bool isLower(char c) {
    return c >= 'a' && c <= 'z';
}

char lowered(char c) {
    return isUpper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}

// Behind the prefix, or all of it.
std::string digitsOf(const std::string& text) {
    const bool hasPrefix = text.starts_with('#') || text.starts_with('$');
    return hasPrefix ? text.substr(text.find(':') + 1) : text;
}

} // namespace

std::string canonicalDigest(const std::string& text) {
    const std::unique_ptr<IHashFactory> factory(createHashFactory(text));
    std::string digits = digitsOf(text);
    if (!factory || (std::any_of(digits.begin(), digits.end(), isUpper) &&
                     std::any_of(digits.begin(), digits.end(), isLower)))
        return text;
    std::transform(digits.begin(), digits.end(), digits.begin(), lowered);
    const std::unique_ptr<IHash> any(factory->createHash(nullptr, 0));
    return algorithmOf(any->ToStr(false, true)) + digits;
}

std::string algorithmOf(const std::string& canonical) {
    return canonical.starts_with('#') ? canonical.substr(0, canonical.find(':') + 1) : "";
}

} // namespace cli
