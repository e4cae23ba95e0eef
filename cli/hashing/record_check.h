// What becomes of one record of a hash list when its file is checked.

#ifndef PELORIK_CLI_HASHING_RECORD_CHECK_H
#define PELORIK_CLI_HASHING_RECORD_CHECK_H

#include "checker/hashfile_checker.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace cli {

enum class Status { kOk, kChanged, kMissing, kDenied, kError, kUnknown };
inline constexpr std::size_t kStatuses = 6;

struct CheckResult {
    Status status = Status::kOk;
    std::string report;     // the line for it, without its line feed; empty for a file that matches
    std::string error;      // why there is no digest
    std::uint64_t size = 0; // of the file
};

// Checks one record through the library. What the library has no words for, and what it would hang
// on or pass without having verified it, is reported in words of the tool's own. With `stop` the
// library is told that the first problem will be the last.
CheckResult verify(const HashFileChecker::FileHashPair& record, bool stop);

// For a file that cannot be read, and the reason.
CheckResult unreadable(const std::string& name, const std::string& why);

// The digest that a file was found to have: as listed when it matches, else the computed one; empty
// when there is none.
std::string digestFound(const HashFileChecker::FileHashPair& record, const CheckResult& result);

} // namespace cli

#endif
