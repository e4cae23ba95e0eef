#include "cli/hashing/algorithm.h"

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

// Of no bytes.
std::string anyText(const IHashFactory& factory) {
    const std::unique_ptr<IHash> digest(factory.createHash(nullptr, 0));
    return digest->ToStr(false, true);
}

} // namespace

std::string sampleDigest(HashFileChecker::Alg algorithm) {
    const std::unique_ptr<IHashFactory> factory(createHashFactory(algorithm));
    return anyText(*factory);
}

std::string canonicalDigest(const std::string& text) {
    const std::unique_ptr<IHashFactory> factory(createHashFactory(text));
    std::string digits = digitsOf(text);
    if (!factory || (std::any_of(digits.begin(), digits.end(), isUpper) &&
                     std::any_of(digits.begin(), digits.end(), isLower)))
        return text;
    std::transform(digits.begin(), digits.end(), digits.begin(), lowered);
    return algorithmOf(anyText(*factory)) + digits;
}

std::string algorithmOf(const std::string& canonical) {
    return canonical.starts_with('#') ? canonical.substr(0, canonical.find(':') + 1) : "";
}

std::optional<HashFileChecker::Alg> algorithmNamedBy(const std::string& text) {
    const std::unique_ptr<IHashFactory> factory(createHashFactory(text));
    if (!factory)
        return std::nullopt;
    const std::string prefix = algorithmOf(anyText(*factory));
    for (const auto algorithm : {HashFileChecker::MD5, HashFileChecker::GOST_RFC4357}) {
        if (algorithmOf(sampleDigest(algorithm)) == prefix)
            return algorithm;
    }
    return HashFileChecker::GOST_3411_2012;
}

} // namespace cli
