// pelorik compare: how two hash lists differ.

#include "cli/command_line.h"
#include "cli/commands.h"
#include "cli/counts.h"
#include "cli/digest_text.h"
#include "cli/exit_status.h"
#include "cli/failure.h"
#include "cli/hash_list.h"
#include "cli/interrupt.h"
#include "cli/json_text.h"
#include "cli/verb.h"

#include <algorithm>
#include <array>
#include <set>
#include <unordered_map>

namespace cli {

namespace {

struct CompareOptions {
    bool quiet = false;
    bool json = false;
    std::string before;
    std::string after;
};

CompareOptions parseCompare(const Words& words) {
    CommandLine line("compare [--quiet] [--json] OLD|- NEW|-",
                     "Compares two hash lists by the names in them, without reading any file that "
                     "they name. Prints a line for each name that was removed, changed or "
                     "rehashed, in the order of OLD, and then for each that was added, in the "
                     "order of NEW. Rehashed is a name whose digests are of other algorithms now, "
                     "so that nobody can tell whether its file is the same. The form of a digest's "
                     "text, such as the case of its digits, makes no difference. A summary goes to "
                     "standard error.");
    CompareOptions options;
    line.flag("--quiet", options.quiet, "no summary");
    line.flag("--json", options.json,
              "one object a difference: name, status (removed, changed, rehashed, added), and the "
              "digest texts in OLD and in NEW as the lists old and new; then an object with the "
              "summary");
    line.status(kDone, "both lists say the same of the same names");
    line.status(kFailed, "they differ");
    line.status(kTrouble, "wrong usage; OLD or NEW is missing, empty, malformed or could not be "
                          "read to its end; or standard output could not be written");
    line.status(kInterrupted, "interrupted");
    line.examples("  pelorik compare client.list.old client.list\n"
                  "  ssh gateway cat client.list | pelorik compare client.list -\n"
                  "  pelorik compare --json a.list b.list | jq -r .name\n");
    const Words lists = line.parse(words);
    requireOperands(lists, {"OLD", "NEW"});
    options.before = lists[0];
    options.after = lists[1];
    if (options.before == "-" && options.after == "-")
        throw UsageError("standard input (-) can be read only once");
    return options;
}

enum class Change { kUnchanged, kChanged, kRemoved, kRehashed, kAdded };
constexpr std::size_t kChanges = 5;

struct ChangeWords {
    const char* name;
    Colour colour;
};

constexpr std::array<ChangeWords, kChanges> kChangeWords = {{
    {"unchanged", Colour::kNone},
    {"changed", Colour::kRed},
    {"removed", Colour::kYellow},
    {"rehashed", Colour::kYellow},
    {"added", Colour::kGreen},
}};

constexpr std::size_t kNameColumn = 10; // where the names stand behind these words

const ChangeWords& wordsOf(Change change) {
    return kChangeWords[static_cast<std::size_t>(change)];
}

using Texts = std::vector<std::string>;

struct Entry {
    std::string name;
    Texts digests; // as listed: usually one
};

// The names of a list, each once, in the order in which they come first.
class Names {
public:
    explicit Names(const std::string& list) {
        for (HashFileChecker::FileHashPair& record : readHashList(list)) {
            const auto [place, isNew] = places_.try_emplace(record.name, entries_.size());
            if (isNew)
                entries_.push_back({std::move(record.name), {}});
            entries_[place->second].digests.push_back(std::move(record.hash));
        }
    }

    const std::vector<Entry>& entries() const { return entries_; }

    // The digests of `name`; none when it is not listed.
    const Texts& digestsOf(const std::string& name) const {
        static const Texts none;
        const auto place = places_.find(name);
        return place == places_.end() ? none : entries_[place->second].digests;
    }

private:
    std::vector<Entry> entries_;
    std::unordered_map<std::string, std::size_t> places_;
};

using Digests = std::set<std::string>; // canonical

Digests canonical(const Texts& texts) {
    Digests digests;
    for (const std::string& text : texts)
        digests.insert(canonicalDigest(text));
    return digests;
}

// True when `others` tell something else by an algorithm of `digests`.
bool contradict(const Digests& digests, const Digests& others) {
    return std::any_of(digests.begin(), digests.end(), [&](const std::string& digest) {
        return others.count(digest) == 0 &&
               std::any_of(others.begin(), others.end(), [&](const std::string& other) {
                   return algorithmOf(other) == algorithmOf(digest);
               });
    });
}

Change changeOf(const Texts& before, const Texts& after) {
    if (before.empty())
        return Change::kAdded;
    if (after.empty())
        return Change::kRemoved;
    if (before == after)
        return Change::kUnchanged;
    const Digests old = canonical(before);
    const Digests now = canonical(after);
    if (old == now)
        return Change::kUnchanged;
    return contradict(old, now) || contradict(now, old) ? Change::kChanged : Change::kRehashed;
}

class Comparison {
public:
    Comparison(const CompareOptions& options, Console& console)
        : options_(options), console_(console), before_(options.before), after_(options.after) {}

    // Returns the exit status.
    int run();

private:
    void compare(const std::string& name, const Texts& before, const Texts& after);
    void summarise();

    const CompareOptions& options_;
    Console& console_;
    const Names before_;
    const Names after_;
    std::array<std::size_t, kChanges> counts_{};
};

void Comparison::compare(const std::string& name, const Texts& before, const Texts& after) {
    const Change change = changeOf(before, after);
    ++counts_[static_cast<std::size_t>(change)];
    if (change == Change::kUnchanged)
        return;
    const ChangeWords& words = wordsOf(change);
    if (options_.json) {
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

void Comparison::summarise() {
    std::vector<Count> counts;
    JsonObject inJson;
    for (std::size_t i = 0; i < kChanges; ++i) {
        counts.push_back({counts_[i], kChangeWords[i].name});
        inJson[kChangeWords[i].name] = counts_[i];
    }
    if (options_.json) {
        JsonObject object;
        object["summary"] = inJson;
        console_.print(jsonLine(object));
    } else if (!options_.quiet) {
        console_.note(countsText(counts));
    }
}

int Comparison::run() {
    for (const Entry& entry : before_.entries()) {
        stopIfInterrupted();
        compare(entry.name, entry.digests, after_.digestsOf(entry.name));
    }
    bool differ = counts_[0] != before_.entries().size();
    for (const Entry& entry : after_.entries()) {
        stopIfInterrupted();
        if (!before_.digestsOf(entry.name).empty())
            continue;
        compare(entry.name, {}, entry.digests);
        differ = true;
    }
    summarise();
    return differ ? kFailed : kDone;
}

} // namespace

int runCompare(const Words& words, Console& console) {
    return Comparison(parseCompare(words), console).run();
}

} // namespace cli
