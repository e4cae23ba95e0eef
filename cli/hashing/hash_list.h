// A hash list read as strictly as a tool has to that reports what it verified: everything that the
// library would pass over in silence is an error here.

#ifndef PELORIK_CLI_HASHING_HASH_LIST_H
#define PELORIK_CLI_HASHING_HASH_LIST_H

#include "checker/hashfile_checker.h"

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

// The longest line that the library reads, its line feed not counted.
inline constexpr std::size_t kLongestListLine = 4128;

// One line of a hash list: a record, or else a section header or nothing.
struct ListLine {
    std::string text;
    std::size_t divider; // where a record's `=` stands, std::string::npos in other lines

    bool isRecord() const { return divider != std::string::npos; }
    std::string name() const { return text.substr(0, divider); }
    std::string digest() const { return text.substr(divider + 1); }
};

// Reads the whole list at `name` ("-" is standard input). Throws `Error`, with the number of the
// line where there is one, for a list that cannot be opened or read to its end, that holds no
// record, or that has a line with a zero byte, too many characters, no `=` or CRLF at its end.
std::vector<ListLine> readListLines(const std::string& name);

// The records among them.
std::vector<HashFileChecker::FileHashPair> readHashList(const std::string& name);

// Why a list cannot hold a file's name with a digest's text of that length; empty when it can.
std::string validationError(const std::string& name, std::size_t digestLength);

} // namespace cli

#endif
