#include "cli/hashing/algorithm.h"

#include "cli/process/error.h"

#include <algorithm>

namespace cli {

namespace {

constexpr char kLowerDigits[] = "0123456789abcdef";
constexpr char kUpperDigits[] = "0123456789ABCDEF";

static_assert(kAlgorithms[HashFileChecker::GOST_RFC4357].id == HashFileChecker::GOST_RFC4357);
static_assert(kAlgorithms[HashFileChecker::MD5].id == HashFileChecker::MD5);
static_assert(kAlgorithms[HashFileChecker::GOST_3411_2012].id == HashFileChecker::GOST_3411_2012);

bool isUpper(char c) {
    return c >= 'A' && c <= 'Z';
}

bool isLower(char c) {
    return c >= 'a' && c <= 'z';
}

char lowered(char c) {
    return isUpper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}

// `#` and `$` begin a prefix.
bool isPrefixed(std::string_view text) {
    return text.starts_with('#') || text.starts_with('$');
}

bool hasPrefix(std::string_view text, std::string_view prefix) {
    return isPrefixed(text) && text.substr(1).starts_with(prefix.substr(1));
}

// Returns the text after the prefix of `algorithm`, if it has that.
std::string_view digitsOf(std::string_view text, const Algorithm& algorithm) {
    return hasPrefix(text, algorithm.prefix) ? text.substr(algorithm.prefix.size()) : text;
}

} // namespace

const Algorithm& algorithmNamed(std::string_view name) {
    for (const Algorithm& algorithm : kAlgorithms) {
        if (algorithm.name == name)
            return algorithm;
    }
    throw UsageError("unknown algorithm '" + std::string(name) + "': it is one of " +
                     kAlgorithmNames);
}

const Algorithm* algorithmOf(std::string_view text) {
    for (const Algorithm& algorithm : kAlgorithms) {
        if (hasPrefix(text, algorithm.prefix))
            return &algorithm;
    }
    if (isPrefixed(text))
        return nullptr;
    // 64 bare digits are never GOST R 34.11-94.
    for (const Algorithm* const algorithm :
         {&kAlgorithms[HashFileChecker::MD5], &kAlgorithms[HashFileChecker::GOST_3411_2012]}) {
        if (text.size() == 2 * algorithm->size)
            return algorithm;
    }
    return nullptr;
}

Digest::Digest(const Algorithm& algorithm, const unsigned char* bytes)
    : algorithm_(static_cast<unsigned char>(algorithm.id)) {
    std::copy_n(bytes, algorithm.size, bytes_.begin());
}

std::optional<Digest> Digest::parse(const Algorithm& algorithm, std::string_view text) {
    if (text.size() != algorithm.textLength() || !text.starts_with(algorithm.prefix))
        return std::nullopt;
    constexpr std::string_view kDigits = kLowerDigits;
    unsigned char bytes[kLargestDigest];
    for (std::size_t i = 0; i < algorithm.size; ++i) {
        const std::size_t at = algorithm.prefix.size() + 2 * i;
        const std::size_t high = kDigits.find(text[at]);
        const std::size_t low = kDigits.find(text[at + 1]);
        if (high == kDigits.npos || low == kDigits.npos)
            return std::nullopt;
        bytes[i] = static_cast<unsigned char>(high << 4 | low);
    }
    return Digest(algorithm, bytes);
}

std::string Digest::text(bool upperCase, bool withPrefix) const {
    const char* const digits = upperCase ? kUpperDigits : kLowerDigits;
    std::string text;
    text.reserve(algorithm().textLength());
    if (withPrefix)
        text = algorithm().prefix;
    for (std::size_t i = 0; i < algorithm().size; ++i) {
        text += digits[bytes_[i] >> 4];
        text += digits[bytes_[i] & 15];
    }
    return text;
}

bool Digest::isWritten(std::string_view digits, const char* digitsOfCase) const {
    for (std::size_t i = 0; i < algorithm().size; ++i) {
        if (digits[2 * i] != digitsOfCase[bytes_[i] >> 4] ||
            digits[2 * i + 1] != digitsOfCase[bytes_[i] & 15])
            return false;
    }
    return true;
}

bool Digest::matches(std::string_view text) const {
    const std::string_view digits = digitsOf(text, algorithm());
    return digits.size() == 2 * algorithm().size &&
           (isWritten(digits, kLowerDigits) || isWritten(digits, kUpperDigits));
}

std::string canonicalDigest(std::string_view text) {
    const Algorithm* const algorithm = algorithmOf(text);
    if (algorithm == nullptr)
        return std::string(text);
    std::string digits(digitsOf(text, *algorithm));
    if (std::any_of(digits.begin(), digits.end(), isUpper) &&
        std::any_of(digits.begin(), digits.end(), isLower))
        return std::string(text);
    std::transform(digits.begin(), digits.end(), digits.begin(), lowered);
    return std::string(algorithm->prefix) + digits;
}

} // namespace cli
