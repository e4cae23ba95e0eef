// The digest algorithms, and digests in the form in which hash lists hold them.

#ifndef PELORIK_CLI_HASHING_ALGORITHM_H
#define PELORIK_CLI_HASHING_ALGORITHM_H

#include "digest/hash.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace cli {

struct Algorithm {
    HashFileChecker::Alg id;
    const char* name;        // on the command line
    std::string_view prefix; // of its digests' texts
    std::size_t size;        // of a digest, in bytes

    std::size_t textLength() const { return prefix.size() + 2 * size; }

    // Returns its place in `kAlgorithms`.
    std::size_t index() const { return static_cast<std::size_t>(id); }
};

// In the order of `Algorithm::id`.
inline constexpr std::array<Algorithm, 3> kAlgorithms = {{
    {HashFileChecker::GOST_RFC4357, "gost94", "#GOST3411_RFC4357:", 32},
    {HashFileChecker::MD5, "md5", "#MD5:", 16},
    {HashFileChecker::GOST_3411_2012, "gost2012", "#GOST3411_256_2012:", 32},
}};
inline constexpr std::size_t kLargestDigest = 32;

inline constexpr char kDefaultAlgorithm[] = "gost2012";
inline constexpr char kAlgorithmNames[] = "md5, gost94 or gost2012";

// Throws `UsageError` for an unknown name.
const Algorithm& algorithmNamed(std::string_view name);

// Returns the algorithm that the library picks for a digest's text; null when there is none.
const Algorithm* algorithmOf(std::string_view text);

// A digest's bytes.
class Digest {
public:
    Digest() = default;
    Digest(const Algorithm& algorithm, const unsigned char* bytes);

    // Returns the digest that `text` is in the form of `text()`, by that algorithm; nothing for any
    // other text.
    static std::optional<Digest> parse(const Algorithm& algorithm, std::string_view text);

    const Algorithm& algorithm() const { return kAlgorithms[algorithm_]; }

    // Returns the digits, after the prefix when `withPrefix` is set.
    std::string text(bool upperCase = false, bool withPrefix = true) const;

    // Returns whether `text` denotes this digest: with this algorithm's prefix or none, and digits
    // of one case. `IHash::Check` answers the same.
    bool matches(std::string_view text) const;

private:
    bool isWritten(std::string_view digits, const char* digitsOfCase) const;

    unsigned char algorithm_ = 0;
    std::array<unsigned char, kLargestDigest> bytes_{};
};

// Returns the one text that all texts of a digest have in common: its algorithm's prefix and
// lower-case digits. A text that matches no file is returned unchanged: its algorithm is unknown,
// or its digits are of mixed case.
std::string canonicalDigest(std::string_view text);

} // namespace cli

#endif
