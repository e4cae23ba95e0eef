// pelorik check: checks files against a hash list.

#include "checker/hashfile_checker.h"
#include "cli/args/options.h"
#include "cli/commands.h"
#include "cli/files/file_identity.h"
#include "cli/hashing/hash_list.h"
#include "cli/hashing/record_check.h"
#include "cli/hashing/unlisted.h"
#include "cli/output/counts.h"
#include "cli/output/json.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/pool.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <optional>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli {

namespace {

using HashFileChecker::FileHashPair;

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

unsigned usableProcessors() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) != 0)
        return 1;
    return static_cast<unsigned>(std::max(1, CPU_COUNT(&set)));
}

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
                "then report the files under DIR that LIST does not name, of those that pelorik "
                "list -r DIR would list; LIST itself is not one");
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

std::string jsonOf(const std::string& name, const char* status, const std::string& digest,
                   const std::string& error) {
    JsonObject object;
    putName(object, "name", name);
    object["status"] = status;
    putText(object, "digest", digest);
    putText(object, "error", error);
    return jsonLine(object);
}

// Bytes that this process has read so far; 0 when the system does not tell.
std::uint64_t bytesRead() {
    std::ifstream counters("/proc/self/io");
    std::string name;
    std::uint64_t count = 0;
    counters >> name >> count;
    return name == "rchar:" && counters ? count : 0;
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

enum class End { kComplete, kStopped, kInterrupted };

// Checks the records of one list and reports on them.
class Check {
public:
    Check(const CheckOptions& options, const FileIdentity& list, std::vector<FileHashPair> records,
          Console& console);

    // Returns the exit status; does not return when threads are still at work that is of no use.
    int run();

private:
    using Pool = OrderedPool<CheckResult>;

    void expectAll();
    End goThrough(Pool& pool);
    End goThroughOrLeave(Pool& pool);
    End lookForUnlisted();
    End lookForUnlistedUntilInterrupted();
    Unlisted findUnlisted();
    bool reportBeside(const std::string& line, const std::string& json, Colour colour);
    void idle();
    void report(const FileHashPair& record, const CheckResult& result);
    bool counts(Status status) const;
    void summarise(End end);
    std::string summary(End end) const;
    std::string jsonSummary(End end) const;
    int exitStatus(End end) const;
    Colour summaryColour(End end) const;

    const CheckOptions& options_;
    const FileIdentity& list_;
    const std::vector<FileHashPair> records_;
    Console& console_;
    Tally tally_;
    std::size_t unlisted_ = 0;
    std::size_t unsearched_ = 0;
    Amount total_; // known only when the progress is shown
    Amount done_;
    std::uint64_t readBefore_ = 0;
};

Check::Check(const CheckOptions& options, const FileIdentity& list,
             std::vector<FileHashPair> records, Console& console)
    : options_(options), list_(list), records_(std::move(records)), console_(console) {
    if (options.statusOnly)
        console.progress().hide();
}

void Check::expectAll() {
    if (!console_.progress().shown())
        return;
    total_.files = records_.size();
    for (const FileHashPair& record : records_) {
        stopIfInterrupted();
        struct stat status {};
        if (::stat(record.name.c_str(), &status) == 0 && S_ISREG(status.st_mode))
            total_.bytes += static_cast<std::uint64_t>(status.st_size);
    }
    console_.progress().expect(total_);
    readBefore_ = bytesRead();
}

// True when a file of this status makes the check fail.
bool Check::counts(Status status) const {
    return status != Status::kOk && !(status == Status::kMissing && options_.ignoreMissing);
}

void Check::report(const FileHashPair& record, const CheckResult& result) {
    if (options_.json)
        console_.print(jsonOf(record.name, namesOf(result.status).inJson,
                              digestFound(record, result), result.error));
    else if (counts(result.status) && !options_.statusOnly)
        console_.print(result.report, namesOf(result.status).colour);
}

// Shows what has been reported so far, and in the progress line also what the threads have read of
// the files that they are at.
void Check::idle() {
    console_.flush();
    if (!console_.progress().shown())
        return;
    const std::uint64_t read = std::min(bytesRead() - readBefore_, total_.bytes);
    console_.progress().reached({done_.files, std::max(done_.bytes, read)});
}

End Check::goThrough(Pool& pool) {
    constexpr std::chrono::milliseconds kTimeout(100);
    while (done_.files < records_.size()) {
        const bool interrupted = interruptRequested();
        if (interrupted)
            pool.cancel(); // what is done already is still reported
        const std::optional<CheckResult> result =
            pool.next(interrupted ? std::chrono::milliseconds(0) : kTimeout);
        if (!result && interrupted)
            return End::kInterrupted;
        if (!result) {
            idle();
            continue;
        }
        tally_.add(result->status);
        report(records_[done_.files], *result);
        ++done_.files;
        done_.bytes += result->size;
        console_.progress().reached(done_);
        if (options_.stop && counts(result->status))
            return End::kStopped;
    }
    return End::kComplete;
}

// When nothing can be written any more, what the threads are at is of no use.
End Check::goThroughOrLeave(Pool& pool) {
    try {
        return goThrough(pool);
    } catch (const Error& failure) {
        console_.error(failure.what());
        console_.exitNow(kTrouble);
    }
}

// Prints what is found beside the records' own files; returns whether to go on.
bool Check::reportBeside(const std::string& line, const std::string& json, Colour colour) {
    if (options_.json)
        console_.print(json);
    else if (!options_.statusOnly)
        console_.print(line, colour);
    return !options_.stop;
}

Unlisted Check::findUnlisted() {
    const bool silent = options_.quiet || options_.statusOnly;
    return cli::findUnlisted(records_, list_,
                             {options_.unlisted, options_.excludes, [&](const std::string& line) {
                                  if (!silent)
                                      console_.error(line);
                              }});
}

End Check::lookForUnlisted() {
    const Unlisted found = findUnlisted();
    for (const auto& [name, why] : found.unsearched) {
        ++unsearched_;
        if (!reportBeside(unreadable(name, why).report, jsonOf(name, "error", "", why),
                          namesOf(Status::kError).colour))
            return End::kStopped;
    }
    for (const std::string& name : found.names) {
        ++unlisted_;
        if (!reportBeside("Warning: File not listed: " + name + ".",
                          jsonOf(name, "unlisted", "", ""), Colour::kYellow))
            return End::kStopped;
    }
    return End::kComplete;
}

End Check::lookForUnlistedUntilInterrupted() {
    try {
        return lookForUnlisted();
    } catch (const Interrupted&) {
        return End::kInterrupted;
    }
}

std::string Check::summary(End end) const {
    const std::string all = std::to_string(records_.size());
    std::string text = end == End::kInterrupted ? "interrupted: " : "";
    if (end == End::kComplete)
        text += all + " checked: ";
    else
        text += std::to_string(tally_.all()) + " of " + all + " checked: ";
    std::vector<Count> counts;
    for (std::size_t i = 0; i < kStatuses; ++i)
        counts.push_back({tally_.of(static_cast<Status>(i)), kStatusNames[i].inSummary});
    counts.push_back({unsearched_, "not searched"});
    counts.push_back({unlisted_, "not listed"});
    return text + countsText(counts);
}

std::string Check::jsonSummary(End end) const {
    JsonObject counts;
    counts["records"] = records_.size();
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
    expectAll();
    const std::size_t threads = std::min<std::size_t>(options_.threads, records_.size());
    Pool pool(records_.size(), threads,
              [this](std::size_t index) { return verify(records_[index], options_.stop); });
    End end = goThroughOrLeave(pool);
    if (end == End::kComplete && !options_.unlisted.empty())
        end = lookForUnlistedUntilInterrupted();
    console_.progress().erase();
    summarise(end);
    const int status = exitStatus(end);
    if (status == kTrouble && !options_.statusOnly)
        console_.error("none of the files in " + options_.list + " was verified");
    if (end != End::kComplete)
        console_.exitNow(status);
    return status;
}

void enter(const std::string& directory) {
    if (::chdir(directory.c_str()) != 0)
        throw Error(directory, errno);
}

int check(const CheckOptions& options, Console& console) {
    std::vector<FileHashPair> records = readHashList(options.list);
    const FileIdentity list(options.list == "-" ? "/dev/stdin" : options.list);
    if (options.directory)
        enter(*options.directory);
    requireDirectories(options.unlisted);
    return Check(options, list, std::move(records), console).run();
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
