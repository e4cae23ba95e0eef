#include "cli/hashing/changes.h"

#include "cli/output/counts.h"

#include <utility>

namespace cli {

namespace {

struct ChangeNames {
    const char* name;
    Colour colour;
};

constexpr std::array<ChangeNames, kChanges> kWords = {{
    {"unchanged", Colour::kNone},
    {"changed", Colour::kRed},
    {"removed", Colour::kYellow},
    {"missing", Colour::kYellow},
    {"unreadable", Colour::kRed},
    {"rehashed", Colour::kYellow},
    {"added", Colour::kGreen},
}};

constexpr std::size_t kNameColumn = 12; // column of the file names

const ChangeNames& namesOf(Change change) {
    return kWords[static_cast<std::size_t>(change)];
}

} // namespace

ChangeReport::ChangeReport(Console& console, std::vector<Change> kinds, bool json)
    : console_(console), kinds_(std::move(kinds)), json_(json) {}

void ChangeReport::add(Change change, const std::string& name, const DigestTexts& before,
                       const DigestTexts& after) {
    ++counts_[static_cast<std::size_t>(change)];
    if (change == Change::kUnchanged)
        return;
    const ChangeNames& names = namesOf(change);
    if (json_) {
        JsonObject object;
        putName(object, "name", name);
        object["status"] = names.name;
        object["old"] = before;
        object["new"] = after;
        console_.print(jsonLine(object));
        return;
    }
    std::string line = names.name;
    line.resize(kNameColumn, ' ');
    console_.report(line + name, names.colour);
}

std::string ChangeReport::summary() const {
    std::vector<Count> counts;
    for (const Change kind : kinds_)
        counts.push_back({of(kind), namesOf(kind).name});
    return countsText(counts);
}

JsonObject ChangeReport::jsonSummary() const {
    JsonObject object;
    for (const Change kind : kinds_)
        object[namesOf(kind).name] = of(kind);
    return object;
}

} // namespace cli
