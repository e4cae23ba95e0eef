// pelorik compare: how two hash lists differ.

#include "cli/args/options.h"
#include "cli/args/subcommands.h"
#include "cli/commands.h"
#include "cli/hashing/algorithm.h"
#include "cli/hashing/changes.h"
#include "cli/hashing/hash_list.h"
#include "cli/hashing/name_index.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

namespace cli {

namespace {

struct CompareOptions {
    bool quiet = false;
    bool json = false;
    std::string before;
    std::string after;
};

CompareOptions parseCompare(const Args& args) {
    OptionParser line(
        "compare [--quiet] [--json] OLD|- NEW|-",
        "Compares two hash lists by the names in them, without reading any file that "
        "they name. Prints a line for each name that was removed, changed or "
        "rehashed, in the order of OLD, and then for each that was added, in the "
        "order of NEW. Rehashed is a name whose digests are of other algorithms now, "
        "so that nobody can tell whether its file is the same. The form of a digest's "
        "text, such as the case of its digits, makes no difference. A summary goes to "
        "standard error.");
    CompareOptions options;
    line.flag("--quiet", options.quiet, "no summary on standard error");
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
    const Args lists = line.parse(args);
    requireOperands(lists, {"OLD", "NEW"});
    options.before = lists[0];
    options.after = lists[1];
    if (options.before == "-" && options.after == "-")
        throw UsageError("standard input (-) can be read only once");
    return options;
}

using Views = std::vector<std::string_view>;

// A list with its records in the order of their names.
class NamedRecords {
public:
    explicit NamedRecords(const std::string& list) : list_(list), index_(list_) {}

    const HashList& list() const { return list_; }
    std::size_t size() const { return index_.size(); }
    std::size_t line(std::size_t place) const { return index_.line(place); }
    std::string_view name(std::size_t place) const { return list_.name(line(place)); }

    // Returns the first place after those of the same name.
    std::size_t endOf(std::size_t place) const {
        std::size_t end = place + 1;
        while (end < size() && name(end) == name(place))
            ++end;
        return end;
    }

    // Returns the digests of a name in the list's order, as listed: usually one.
    Views digests(std::size_t place, std::size_t end) const {
        Views digests;
        for (; place < end; ++place)
            digests.push_back(list_.digest(line(place)));
        return digests;
    }

    // The same, none when the name is not listed.
    Views digestsOf(std::string_view name) const {
        const std::size_t place = index_.lowerBound(name);
        return place < size() && this->name(place) == name ? digests(place, endOf(place)) : Views();
    }

private:
    const HashList list_;
    const NameIndex<WalkOrder> index_;
};

using Digests = std::set<std::string>; // canonical

Digests canonical(const Views& texts) {
    Digests digests;
    for (const std::string_view text : texts)
        digests.insert(canonicalDigest(text));
    return digests;
}

// Returns the prefix of a canonical text, which names its algorithm; empty when it has none.
std::string_view prefixOf(std::string_view canonical) {
    return canonical.starts_with('#') ? canonical.substr(0, canonical.find(':') + 1)
                                      : std::string_view();
}

// Returns whether `others` differ from a digest of `digests` by the same algorithm.
bool contradict(const Digests& digests, const Digests& others) {
    std::set<std::string_view> algorithms;
    for (const std::string& other : others)
        algorithms.insert(prefixOf(other));
    return std::any_of(digests.begin(), digests.end(), [&](const std::string& digest) {
        return !others.contains(digest) && algorithms.contains(prefixOf(digest));
    });
}

Change changeOf(const Views& before, const Views& after) {
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

// The differences of two lists: of each name, at the line where it comes first.
class Comparison {
public:
    Comparison(const NamedRecords& before, const NamedRecords& after)
        : before_(before), after_(after), changes_(before.list().size()),
          isAdded_(after.list().size()) {
        std::size_t place = 0;
        for (std::size_t old = 0; old < before.size(); old = before.endOf(old)) {
            stopIfInterrupted();
            place = addUpTo(before.name(old), place);
            place = compare(old, place);
        }
        while (place < after.size())
            place = add(place);
    }

    // Returns whether there is a difference.
    bool report(ChangeReport& report) const {
        for (std::size_t line = 0; line < changes_.size(); ++line) {
            stopIfInterrupted();
            if (changes_[line])
                this->report(report, *changes_[line], before_.list().name(line));
        }
        for (std::size_t line = 0; line < isAdded_.size(); ++line) {
            stopIfInterrupted();
            if (isAdded_[line])
                this->report(report, Change::kAdded, after_.list().name(line));
        }
        return report.of(Change::kRemoved) + report.of(Change::kChanged) +
                   report.of(Change::kRehashed) + report.of(Change::kAdded) >
               0;
    }

private:
    std::size_t add(std::size_t place) {
        isAdded_[after_.line(place)] = true;
        return after_.endOf(place);
    }

    // Returns the first place whose name is not before `name`.
    std::size_t addUpTo(std::string_view name, std::size_t place) {
        const WalkOrder isBefore;
        while (place < after_.size() && isBefore(after_.name(place), name))
            place = add(place);
        return place;
    }

    std::size_t compare(std::size_t old, std::size_t place) {
        const bool isInBoth = place < after_.size() && after_.name(place) == before_.name(old);
        const std::size_t end = isInBoth ? after_.endOf(place) : place;
        changes_[before_.line(old)] =
            changeOf(before_.digests(old, before_.endOf(old)), after_.digests(place, end));
        return end;
    }

    void report(ChangeReport& report, Change change, std::string_view name) const {
        if (change == Change::kUnchanged)
            report.add(change, "", {}, {});
        else
            report.add(change, std::string(name), texts(before_.digestsOf(name)),
                       texts(after_.digestsOf(name)));
    }

    static DigestTexts texts(const Views& views) { return {views.begin(), views.end()}; }

    const NamedRecords& before_;
    const NamedRecords& after_;
    std::vector<std::optional<Change>> changes_; // of OLD's lines
    std::vector<bool> isAdded_;                  // of NEW's lines
};

void summarise(const ChangeReport& report, const CompareOptions& options, Console& console) {
    if (options.json) {
        JsonObject object;
        object["summary"] = report.jsonSummary();
        console.print(jsonLine(object));
    } else if (!options.quiet) {
        console.summarise(report.summary());
    }
}

} // namespace

int runCompare(const Args& args, Console& console) {
    const CompareOptions options = parseCompare(args);
    const NamedRecords before(options.before);
    const NamedRecords after(options.after);
    ChangeReport report(
        console,
        {Change::kUnchanged, Change::kChanged, Change::kRemoved, Change::kRehashed, Change::kAdded},
        options.json);
    const bool differ = Comparison(before, after).report(report);
    summarise(report, options, console);
    return differ ? kFailed : kDone;
}

} // namespace cli
