// Digest texts as hash lists hold them, of which several may mean the same.

#ifndef PELORIK_CLI_HASHING_ALGORITHM_H
#define PELORIK_CLI_HASHING_ALGORITHM_H

#include "digest/hash.h"

#include <optional>
#include <string>

namespace cli {

// The text of a digest by `algorithm` as lists hold it: all others have its prefix and length.
std::string sampleDigest(HashFileChecker::Alg algorithm);

// The one text that all texts of a digest come to: its algorithm's prefix in the `#` form and
// lower-case digits. A text that can match no file, as it names no known algorithm or mixes the
// cases, is its own.
std::string canonicalDigest(const std::string& text);

// The prefix of a canonical text, which tells its algorithm; empty when it has none.
std::string algorithmOf(const std::string& canonical);

// The algorithm that a digest's text names; none when it is unknown.
std::optional<HashFileChecker::Alg> algorithmNamedBy(const std::string& text);

} // namespace cli

#endif
