// A hash list read as strictly as a tool has to that reports what it verified: everything that the
// library would pass over in silence is an error here.

#ifndef PELORIK_CLI_HASH_LIST_H
#define PELORIK_CLI_HASH_LIST_H

#include "checker/hashfile_checker.h"

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

// The longest line that the library reads, its line feed not counted.
inline constexpr std::size_t kLongestListLine = 4128;

// Reads the whole list at `name` ("-" is standard input). Throws `Failure`, with the number of the
// line where there is one, for a list that cannot be opened or read to its end, that holds no
// record, or that has a line with a zero byte, too many characters, no `=` or CRLF at its end.
std::vector<HashFileChecker::FileHashPair> readHashList(const std::string& name);

} // namespace cli

#endif
