// pelorik check: checks files against a hash list.

#include "cli/args/options.h"
#include "cli/commands.h"
#include "cli/files/directory_walk.h"
#include "cli/files/file_identity.h"
#include "cli/hashing/hash_list.h"
#include "cli/hashing/name_index.h"
#include "cli/hashing/parallel_hasher.h"
#include "cli/hashing/record_check.h"
#include "cli/output/counts.h"
#include "cli/output/json.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/signals.h"

#include <array>
#include <cerrno>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace cli {

namespace {

struct StatusNames {
    const char* inJson;
    const char* inSummary;
    Colour colour;
};

constexpr std::array<StatusNames, kStatuses> kStatusNames = {{
    {"ok", "unchanged", Colour::kNone},
    {"changed", "changed", Colour::kRed},
    {"missing", "missing", Colour::kYellow},
    {"denied", "denied", Colour::kMagenta},
    {"error", "unreadable", Colour::kRed},
    {"unknown", "of no known algorithm", Colour::kRed},
}};

const StatusNames& namesOf(Status status) {
    return kStatusNames[static_cast<std::size_t>(status)];
}

struct CheckOptions {
    std::optional<std::string> directory;
    unsigned threads = 0;
    bool stop = false;
    bool ignoreMissing = false;
    bool quiet = false;
    bool statusOnly = false;
    bool json = false;
    std::vector<std::string> unlisted; // directories
    std::vector<std::string> excludes;
    std::string list;
};

void describe(OptionParser& line) {
    line.status(kDone, "every file of LIST was verified");
    line.status(kFailed, "a file is not as listed, is missing, could not be read or, with "
                         "--unlisted, is not listed");
    line.status(kTrouble, "wrong usage; LIST is missing, empty, malformed or could not be read to "
                          "its end; DIR is missing or no directory; with --ignore-missing nothing "
                          "was verified at all; or standard "
                          "output could not be written");
    line.status(kInterrupted, "interrupted; the summary tells how far it came");
    line.examples("  pelorik check /root/client.list\n"
                  "  pelorik check -C /mnt/backup --ignore-missing --quiet srv.list\n"
                  "  pelorik check --unlisted /srv --exclude '*.log' srv.list\n"
                  "  pelorik check --json srv.list | jq -r 'select(.status==\"changed\").name'\n");
}

void refuseNonsense(const CheckOptions& options, std::size_t lists) {
    if (lists != 1)
        throw UsageError(lists == 0 ? "check against which LIST?" : "only one LIST can be checked");
    if (options.statusOnly && (options.quiet || options.json))
        throw UsageError("--status writes nothing: --quiet and --json make no sense beside it");
    if (!options.excludes.empty() && options.unlisted.empty())
        throw UsageError("--exclude says where --unlisted does not look, which is not used");
}

CheckOptions parseCheck(const Args& args) {
    OptionParser line("check [-C DIR] [-j N] [--stop] [--ignore-missing] [--unlisted DIR]... "
                      "[--exclude GLOB]... [--quiet|--status] [--json] LIST|-",
                      "Checks files against the hash list LIST and reports those that are not as "
                      "listed, in the list's order. A summary goes to standard error.");
    CheckOptions options;
    options.threads = usableProcessors();
    line.value("-C,--directory", "DIR", options.directory,
               "look for the files from DIR on; LIST itself is opened before");
    line.number("-j,--jobs", "N", options.threads,
                "check N files at a time; by default as many as the process may use processors");
    line.flag("--stop", options.stop, "stop at the first file that is not as listed");
    line.flag("--ignore-missing", options.ignoreMissing,
              "files that do not exist do not count; but one at least must be verified");
    line.values("--unlisted", "DIR", options.unlisted,
                "then report every entry under DIR that LIST does not name, except directories, "
                "which are searched, and LIST itself");
    line.values("--exclude", "GLOB", options.excludes,
                "do not look for unlisted files at names that match the whole of GLOB, where * "
                "matches slashes, too; directories that match are not entered");
    line.flag("--quiet", options.quiet, "no summary on standard error");
    line.flag("--status", options.statusOnly, "write nothing but errors of usage");
    line.flag(
        "--json", options.json,
        "one object a record, in the list's order, unchanged files too: name, status (ok, "
        "changed, missing, denied, error, unknown, unlisted), digest, error; then an object with "
        "the summary");
    describe(line);
    const std::vector<std::string> lists = line.parse(args);
    refuseNonsense(options, lists.size());
    options.list = lists.front();
    return options;
}

// An empty text is null.
void putText(JsonObject& object, const char* key, const std::string& text) {
    if (text.empty())
        object[key] = nullptr;
    else
        object[key] = text;
}

std::string jsonOf(std::string_view name, const char* status, const std::string& digest,
                   const std::string& error) {
    JsonObject object;
    putName(object, "name", std::string(name));
    object["status"] = status;
    putText(object, "digest", digest);
    putText(object, "error", error);
    return jsonLine(object);
}

class Tally {
public:
    void add(Status status) { ++counts_[static_cast<std::size_t>(status)]; }
    std::size_t of(Status status) const { return counts_[static_cast<std::size_t>(status)]; }
    std::size_t all() const;

    // Files whose digest was computed and compared.
    std::size_t verified() const { return of(Status::kOk) + of(Status::kChanged); }

private:
    std::array<std::size_t, kStatuses> counts_{};
};

std::size_t Tally::all() const {
    std::size_t sum = 0;
    for (const std::size_t count : counts_)
        sum += count;
    return sum;
}

using End = ParallelHasher::End;

void requireDirectories(const std::vector<std::string>& directories) {
    for (const std::string& directory : directories) {
        struct stat status {};
        if (::stat(directory.c_str(), &status) != 0)
            throw Error(directory, errno);
        if (!S_ISDIR(status.st_mode))
            throw Error(directory, ENOTDIR);
    }
}

// Checks the records of one list and reports on them.
class Check : private HashTask {
public:
    Check(const CheckOptions& options, const FileIdentity& identity, const HashList& list,
          Console& console);

    // Returns the exit status.
    int run();

private:
    std::size_t count() const override { return list_.size(); }
    const char* path(std::size_t index) const override { return list_.name(index).data(); }
    const Algorithm* algorithm(std::size_t index) const override {
        return algorithmOf(list_.digest(index));
    }
    bool finish(std::size_t index, HashedFile& file) override;
    void idle(std::uint64_t) override { console_.flush(); }

    End findUnlisted();
    bool reportBeside(const std::string& line, const std::string& json, Colour colour);
    bool reportUnlisted(const std::string& name);
    bool reportUnsearched(const std::string& name, const std::string& why);
    void report(std::string_view name, const CheckResult& result);
    bool counts(Status status) const;
    void summarise(End end);
    std::string summary(End end) const;
    std::string jsonSummary(End end) const;
    int exitStatus(End end) const;
    Colour summaryColour(End end) const;

    const CheckOptions& options_;
    const FileIdentity& identity_; // of the list
    const HashList& list_;
    Console& console_;
    Tally tally_;
    std::size_t unlisted_ = 0;
    std::size_t unsearched_ = 0;
};

Check::Check(const CheckOptions& options, const FileIdentity& identity, const HashList& list,
             Console& console)
    : options_(options), identity_(identity), list_(list), console_(console) {
    if (options.statusOnly)
        console.progress().hide();
}

// True when a file of this status makes the check fail.
bool Check::counts(Status status) const {
    return status != Status::kOk && !(status == Status::kMissing && options_.ignoreMissing);
}

void Check::report(std::string_view name, const CheckResult& result) {
    const StatusNames& names = namesOf(result.status);
    if (options_.json)
        console_.print(jsonOf(name, names.inJson, result.digest, result.error));
    else if (counts(result.status) && !options_.statusOnly)
        console_.report(result.report, names.colour);
}

bool Check::finish(std::size_t index, HashedFile& file) {
    const CheckResult result = checkRecord(list_.name(index), list_.digest(index), file);
    tally_.add(result.status);
    report(list_.name(index), result);
    return !(options_.stop && counts(result.status));
}

// Prints what is found beside the records' own files; returns whether to go on.
bool Check::reportBeside(const std::string& line, const std::string& json, Colour colour) {
    if (options_.json)
        console_.print(json);
    else if (!options_.statusOnly)
        console_.report(line, colour);
    return !options_.stop;
}

bool Check::reportUnlisted(const std::string& name) {
    ++unlisted_;
    return reportBeside("Warning: File not listed: " + name + ".", jsonOf(name, "unlisted", "", ""),
                        Colour::kYellow);
}

bool Check::reportUnsearched(const std::string& name, const std::string& why) {
    ++unsearched_;
    return reportBeside(unreadableReport(name, why), jsonOf(name, "error", "", why),
                        namesOf(Status::kError).colour);
}

// Thrown out of a walk at the first entry that is reported.
struct Stopped {};

End Check::findUnlisted() {
    const PathOrder order(resolved("."));
    const NameIndex<PathOrder> listed(list_, order);
    std::set<std::string, PathOrder> found(order); // directories may overlap
    const auto isNew = [&](const std::string& name) {
        return !listed.contains(name) && found.insert(name).second;
    };
    const auto require = [](bool goOn) {
        if (!goOn)
            throw Stopped();
    };
    DirectoryWalk walk({
        .entries = DirectoryWalk::Entries::kAll,
        .recursive = true,
        .excludes = options_.excludes,
        .leftOut = {identity_},
        .onEntry = [&](const std::string& name) { require(!isNew(name) || reportUnlisted(name)); },
        .onUnreadable =
            [&](const std::string& name, const std::string& why) {
                require(!isNew(name) || reportUnsearched(name, why));
            },
        .note = nullptr,
    });
    try {
        for (const std::string& directory : options_.unlisted)
            walk.visit(directory);
    } catch (const Stopped&) {
        return End::kStopped;
    } catch (const Interrupted&) {
        return End::kInterrupted;
    }
    return End::kComplete;
}

std::string Check::summary(End end) const {
    const std::string all = std::to_string(list_.size());
    std::string text = end == End::kInterrupted ? "interrupted: " : "";
    if (end == End::kComplete)
        text += all + " checked: ";
    else
        text += std::to_string(tally_.all()) + " of " + all + " checked: ";
    std::vector<Count> counts;
    counts.reserve(kStatuses + 2);
    for (std::size_t i = 0; i < kStatuses; ++i)
        counts.push_back({tally_.of(static_cast<Status>(i)), kStatusNames[i].inSummary});
    counts.push_back({unsearched_, "not searched"});
    counts.push_back({unlisted_, "not listed"});
    return text + countsText(counts);
}

std::string Check::jsonSummary(End end) const {
    JsonObject counts;
    counts["records"] = list_.size();
    counts["checked"] = tally_.all();
    for (std::size_t i = 0; i < kStatuses; ++i)
        counts[kStatusNames[i].inJson] = tally_.of(static_cast<Status>(i));
    if (!options_.unlisted.empty()) {
        counts["unsearched"] = unsearched_;
        counts["unlisted"] = unlisted_;
    }
    counts["complete"] = end == End::kComplete;
    JsonObject object;
    object["summary"] = counts;
    return jsonLine(object);
}

// Green only when everything was looked at and is as listed.
Colour Check::summaryColour(End end) const {
    const int status = exitStatus(end);
    if (status != kDone && status != kInterrupted)
        return Colour::kRed;
    const bool all = status == kDone && tally_.of(Status::kMissing) == 0;
    return all ? Colour::kGreen : Colour::kYellow;
}

void Check::summarise(End end) {
    if (options_.json)
        console_.print(jsonSummary(end));
    else if (!options_.quiet && !options_.statusOnly)
        console_.summarise(summary(end), summaryColour(end));
}

int Check::exitStatus(End end) const {
    if (end == End::kInterrupted)
        return kInterrupted;
    if (options_.ignoreMissing && tally_.verified() == 0)
        return kTrouble;
    for (std::size_t i = 0; i < kStatuses; ++i) {
        if (counts(static_cast<Status>(i)) && tally_.of(static_cast<Status>(i)) > 0)
            return kFailed;
    }
    return unlisted_ + unsearched_ > 0 ? kFailed : kDone;
}

int Check::run() {
    ParallelHasher hasher(options_.threads, console_.progress());
    End end = hasher.run(*this);
    if (end == End::kComplete && !options_.unlisted.empty())
        end = findUnlisted();
    console_.progress().erase();
    summarise(end);
    const int status = exitStatus(end);
    if (status == kTrouble && !options_.statusOnly)
        console_.error("none of the files in " + options_.list + " was verified");
    return status;
}

void enter(const std::string& directory) {
    if (::chdir(directory.c_str()) != 0)
        throw Error(directory, errno);
}

int check(const CheckOptions& options, Console& console) {
    const HashList list(options.list);
    const FileIdentity identity(options.list == "-" ? "/dev/stdin" : options.list);
    if (options.directory)
        enter(*options.directory);
    requireDirectories(options.unlisted);
    return Check(options, identity, list, console).run();
}

} // namespace

int runCheck(const Args& args, Console& console) {
    const CheckOptions options = parseCheck(args);
    try {
        return check(options, console);
    } catch (const Error&) {
        if (!options.statusOnly)
            throw;
        return kTrouble;
    } catch (const Interrupted&) {
        if (!options.statusOnly)
            throw;
        return kInterrupted;
    }
}

} // namespace cli
