// The counts that a summary consists of.

#ifndef PELORIK_CLI_OUTPUT_COUNTS_H
#define PELORIK_CLI_OUTPUT_COUNTS_H

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

struct Count {
    std::size_t number;
    const char* label; // "unchanged"
};

// "3 unchanged, 1 changed": all but those that are 0; "none" when all are.
std::string countsText(const std::vector<Count>& counts);

} // namespace cli

#endif
