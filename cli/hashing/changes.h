// Reports of what is different in a hash list: a line for each name, and a summary.

#ifndef PELORIK_CLI_HASHING_CHANGES_H
#define PELORIK_CLI_HASHING_CHANGES_H

#include "cli/output/console.h"
#include "cli/output/json.h"

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace cli {

enum class Change : unsigned char {
    kUnchanged,
    kChanged,
    kRemoved,
    kMissing,
    kUnreadable,
    kRehashed,
    kAdded
};
inline constexpr std::size_t kChanges = 7;

using DigestTexts = std::vector<std::string>;

class ChangeReport {
public:
    // Reports on `kinds` in that order. In JSON there is one object a name.
    ChangeReport(Console& console, std::vector<Change> kinds, bool json);

    // Counts `name`, and prints it unless it is unchanged.
    void add(Change change, const std::string& name, const DigestTexts& before,
             const DigestTexts& after);

    std::size_t of(Change change) const { return counts_[static_cast<std::size_t>(change)]; }

    // "48 unchanged, 2 changed"
    std::string summary() const;

    // The same as an object; further members may be added.
    JsonObject jsonSummary() const;

private:
    Console& console_;
    std::vector<Change> kinds_;
    bool json_;
    std::array<std::size_t, kChanges> counts_{};
};

} // namespace cli

#endif
