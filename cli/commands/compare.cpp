// pelorik compare: how two hash lists differ.

#include "cli/args/options.h"
#include "cli/args/subcommands.h"
#include "cli/commands.h"
#include "cli/hashing/algorithm.h"
#include "cli/hashing/changes.h"
#include "cli/hashing/hash_list.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/signals.h"

#include <algorithm>
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

struct Entry {
    std::string name;
    DigestTexts digests; // as listed: usually one
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
    const DigestTexts& digestsOf(const std::string& name) const {
        static const DigestTexts none;
        const auto place = places_.find(name);
        return place == places_.end() ? none : entries_[place->second].digests;
    }

private:
    std::vector<Entry> entries_;
    std::unordered_map<std::string, std::size_t> places_;
};

using Digests = std::set<std::string>; // canonical

Digests canonical(const DigestTexts& texts) {
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

Change changeOf(const DigestTexts& before, const DigestTexts& after) {
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

// Returns whether there is a difference.
bool reportDifferences(const Names& before, const Names& after, ChangeReport& report) {
    for (const Entry& entry : before.entries()) {
        stopIfInterrupted();
        const DigestTexts& now = after.digestsOf(entry.name);
        report.add(changeOf(entry.digests, now), entry.name, entry.digests, now);
    }
    for (const Entry& entry : after.entries()) {
        stopIfInterrupted();
        if (before.digestsOf(entry.name).empty())
            report.add(Change::kAdded, entry.name, {}, entry.digests);
    }
    return report.of(Change::kUnchanged) != before.entries().size() ||
           report.of(Change::kAdded) > 0;
}

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
    const Names before(options.before);
    const Names after(options.after);
    ChangeReport report(
        console,
        {Change::kUnchanged, Change::kChanged, Change::kRemoved, Change::kRehashed, Change::kAdded},
        options.json);
    const bool differ = reportDifferences(before, after, report);
    summarise(report, options, console);
    return differ ? kFailed : kDone;
}

} // namespace cli
