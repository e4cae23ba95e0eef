#include "cli/change.h"

#include "cli/counts.h"

#include <utility>

namespace cli {

namespace {

struct ChangeWords {
    const char* name;
    Colour colour;
};

constexpr std::array<ChangeWords, kChanges> kWords = {{
    {"unchanged", Colour::kNone},
    {"changed", Colour::kRed},
    {"removed", Colour::kYellow},
    {"missing", Colour::kYellow},
    {"unreadable", Colour::kRed},
    {"rehashed", Colour::kYellow},
    {"added", Colour::kGreen},
}};

constexpr std::size_t kNameColumn = 12; // where the names stand behind these words

const ChangeWords& wordsOf(Change change) {
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
    const ChangeWords& words = wordsOf(change);
    if (json_) {
        JsonObject object;
        putName(object, "name", name);
        object["status"] = words.name;
        object["old"] = before;
        object["new"] = after;
        console_.print(jsonLine(object));
        return;
    }
    std::string line = words.name;
    line.resize(kNameColumn, ' ');
    console_.print(line + name, words.colour);
}

std::string ChangeReport::summary() const {
    std::vector<Count> counts;
    for (const Change kind : kinds_)
        counts.push_back({of(kind), wordsOf(kind).name});
    return countsText(counts);
}

JsonObject ChangeReport::jsonSummary() const {
    JsonObject object;
    for (const Change kind : kinds_)
        object[wordsOf(kind).name] = of(kind);
    return object;
}

} // namespace cli
