// Digest texts as hash lists hold them, of which several may mean the same.

#ifndef PELORIK_CLI_DIGEST_TEXT_H
#define PELORIK_CLI_DIGEST_TEXT_H

#include <string>

namespace cli {

// The one text that all texts of a digest come to: its algorithm's prefix in the `#` form and
// lower-case digits. A text that can match no file, as it names no known algorithm or mixes the
// cases, is its own.
std::string canonicalDigest(const std::string& text);

// The prefix of a canonical text, which tells its algorithm; empty when it has none.
std::string algorithmOf(const std::string& canonical);

} // namespace cli

#endif
