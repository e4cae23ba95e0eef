// What becomes of a record of a hash list when its file is checked.

#ifndef PELORIK_CLI_HASHING_RECORD_CHECK_H
#define PELORIK_CLI_HASHING_RECORD_CHECK_H

#include "cli/hashing/parallel_hasher.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace cli {

enum class Status { kOk, kChanged, kMissing, kDenied, kError, kUnknown };
inline constexpr std::size_t kStatuses = 6;

struct CheckResult {
    Status status = Status::kOk;
    std::string report; // its line without the line feed; empty for a file that matches
    std::string digest; // the file's own; as listed when it matches; empty when there is none
    std::string error;  // why there is no digest
};

// Compares the record of `name`, with the digest text `listed`, with its file. The reports are the
// library's where it has words for them.
CheckResult checkRecord(std::string_view name, std::string_view listed, const HashedFile& file);

// Returns the report on something that cannot be read.
std::string unreadableReport(std::string_view name, const std::string& why);

} // namespace cli

#endif
