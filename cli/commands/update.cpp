// pelorik update: brings a hash list up to date with the files that it names.

#include "cli/args/options.h"
#include "cli/commands.h"
#include "cli/files/atomic_output.h"
#include "cli/files/directory_walk.h"
#include "cli/hashing/algorithm.h"
#include "cli/hashing/changes.h"
#include "cli/hashing/file_hasher.h"
#include "cli/hashing/hash_list.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

namespace cli {

namespace {

struct UpdateOptions {
    HashFileChecker::Alg algorithm = HashFileChecker::GOST_3411_2012;
    bool recursive = false;
    std::vector<std::string> excludes;
    bool prune = false;
    bool dryRun = false;
    bool keepGoing = false;
    bool quiet = false;
    bool json = false;
    std::string list;
    std::vector<std::string> paths;
};

void describe(OptionParser& line) {
    line.status(kDone, "LIST agrees with the files now");
    line.status(kFailed, "it does but for entries whose files are missing or, with --keep-going, "
                         "could not be read");
    line.status(kTrouble, "LIST is as it was: wrong usage; LIST is missing, empty, malformed or "
                          "cannot be written; a file could not be read; a name that a list cannot "
                          "hold; no entry would be left; or standard output could not be written");
    line.status(kInterrupted, "interrupted; LIST is as it was");
    line.examples("  pelorik update /root/client.list\n"
                  "  pelorik update --prune -r /root/client.list /opt/PELORIKclient\n"
                  "  pelorik update --dry-run srv.list\n");
}

void declare(OptionParser& line, UpdateOptions& options, std::optional<std::string>& algorithm) {
    line.value("-a,--algorithm", "ALG", algorithm,
               std::string(kAlgorithmNames) + " (the default) for entries that are added, or whose "
                                              "digest names no known algorithm; the others keep "
                                              "theirs");
    line.flag("-r,--recursive", options.recursive, "add the files under directories, too");
    line.values("--exclude", "GLOB", options.excludes,
                "do not add names that match the whole of GLOB; entries of LIST stay");
    line.flag("--prune", options.prune, "drop the entries of missing files");
    line.flag("--dry-run", options.dryRun, "show what would change, and leave LIST as it is");
    line.flag("--keep-going", options.keepGoing,
              "keep the entries of files that cannot be read as they are, and do not add such "
              "files");
    line.flag("--quiet", options.quiet, "no summary on standard error");
    line.flag("--json", options.json,
              "one object for each name that is not unchanged: name, status (changed, removed, "
              "missing, unreadable, added), and the digest texts before and after as the lists old "
              "and new; then an object with the summary");
}

UpdateOptions parseUpdate(const Args& args) {
    OptionParser line(
        "update [-a ALG] [-r] [--exclude GLOB]... [--prune] [--dry-run] [--keep-going] [--quiet] "
        "[--json] LIST [PATH]...",
        "Computes the digests of all files in the hash list LIST anew, adds the files PATH that it "
        "does not name yet at its end, and prints what has changed. The entries keep their order "
        "and, where their files are unchanged, their form. LIST is replaced as a whole, and only "
        "when something has changed. A summary goes to standard error.");
    UpdateOptions options;
    std::optional<std::string> algorithm;
    declare(line, options, algorithm);
    describe(line);
    std::vector<std::string> operands = line.parse(args);
    options.algorithm = algorithmNamed(algorithm.value_or(kDefaultAlgorithm));
    if (operands.empty())
        throw UsageError("update which LIST?");
    options.list = operands.front();
    options.paths.assign(operands.begin() + 1, operands.end());
    if (options.list == "-")
        throw UsageError("standard input (-) cannot be updated");
    return options;
}

// Updates one list. The steps are taken in order; each throws `Error` when it ends the command.
class Update {
public:
    Update(const UpdateOptions& options, Console& console);

    void findNewFiles();
    void recompute();
    void report();
    void write();
    void summarise() const;

    bool lacksFiles() const { return report_.of(Change::kMissing) > 0 || unreadable_ > 0; }

private:
    struct Outcome {
        Change change;
        std::string name;
        DigestTexts before;
        DigestTexts after;
    };

    // When nothing will be written any more, files are only asked whether they could be read.
    bool isInVain() const { return unreadable_ > 0 && !options_.keepGoing; }
    bool isToBeWritten() const;

    std::string digestOf(const std::string& name, HashFileChecker::Alg algorithm);
    void expectAll();
    void recompute(const ListLine& line);
    void keepWithoutFile(const ListLine& line, const NotHashable& refused);
    void addFile(const std::string& name);
    void append(const std::string& line) { text_ += line + "\n"; }
    void leaveOut(const std::string& name, const std::string& why);
    void printJsonSummary() const;

    const UpdateOptions& options_;
    Console& console_;
    AtomicOutput output_;
    const std::vector<ListLine> lines_;
    std::vector<FoundFile> newFiles_;
    std::map<HashFileChecker::Alg, Digester> digesters_;
    std::vector<Outcome> outcomes_;
    std::vector<std::string> leftOut_; // new files that could not be read
    std::string text_;                 // of the new list
    ChangeReport report_;
    std::size_t unreadable_ = 0;
};

Update::Update(const UpdateOptions& options, Console& console)
    : options_(options), console_(console), output_(options.list, !options.dryRun),
      lines_(readListLines(options.list)),
      report_(console,
              {Change::kUnchanged, Change::kChanged, Change::kRemoved, Change::kMissing,
               Change::kUnreadable, Change::kAdded},
              options.json) {}

std::string Update::digestOf(const std::string& name, HashFileChecker::Alg algorithm) {
    ListedFile file(name);
    if (isInVain())
        return "";
    Digester& digester = digesters_.try_emplace(algorithm, std::vector{algorithm}).first->second;
    return file.digest(digester, console_.progress());
}

void Update::findNewFiles() {
    std::set<std::string> known;
    for (const ListLine& line : lines_) {
        if (line.isRecord())
            known.insert(line.name());
    }
    const auto isKnown = [&](const std::string& name, const struct stat& status) {
        return output_.replaces(name, status) || !known.insert(name).second;
    };
    const auto note = [this](const std::string& line) { console_.error(line); };
    const auto onUnreadable = [this](const std::string& name, const std::string& why) {
        leaveOut(name, why);
    };
    Walk walk({options_.recursive, options_.excludes, isKnown, note, onUnreadable});
    for (const std::string& path : options_.paths)
        walk.add(path);
    newFiles_ = walk.files();
    walk.noteUnfollowedLinks();
    if (walk.refusedDirectories() > 0)
        throw Error(options_.list + " is as it was: directories need -r");
    if (reportUnlistable(newFiles_, options_.algorithm, console_))
        throw Error(options_.list + " is as it was (--exclude leaves names out)");
}

void Update::expectAll() {
    if (!console_.progress().shown())
        return;
    Amount total{newFiles_.size(), 0};
    for (const FoundFile& file : newFiles_)
        total.bytes += file.size;
    for (const ListLine& line : lines_) {
        struct stat status {};
        if (!line.isRecord() || ::stat(line.name().c_str(), &status) != 0)
            continue;
        ++total.files;
        total.bytes += static_cast<std::uint64_t>(status.st_size);
    }
    console_.progress().expect(total);
}

void Update::keepWithoutFile(const ListLine& line, const NotHashable& refused) {
    const std::string name = line.name();
    if (refused.isMissing && options_.prune) {
        outcomes_.push_back({Change::kRemoved, name, {line.digest()}, {}});
        return;
    }
    append(line.text);
    const Change change = refused.isMissing ? Change::kMissing : Change::kUnreadable;
    outcomes_.push_back({change, name, {line.digest()}, {}});
    if (refused.isMissing)
        return;
    console_.error(name + ": " + refused.why);
    ++unreadable_;
}

void Update::recompute(const ListLine& line) {
    const std::string before = line.digest();
    const auto algorithm = algorithmNamedBy(before).value_or(options_.algorithm);
    try {
        const std::string now = digestOf(line.name(), algorithm);
        const bool same = canonicalDigest(before) == now;
        const std::string reason = same ? "" : validationError(line.name(), now.size());
        if (!reason.empty())
            throw Error(line.name() + ": " + reason + " cannot stand in a hash list");
        append(same ? line.text : line.name() + "=" + now);
        outcomes_.push_back(
            {same ? Change::kUnchanged : Change::kChanged, line.name(), {before}, {now}});
    } catch (const NotHashable& refused) {
        keepWithoutFile(line, refused);
    }
}

void Update::addFile(const std::string& name) {
    try {
        const std::string digest = digestOf(name, options_.algorithm);
        append(name + "=" + digest);
        outcomes_.push_back({Change::kAdded, name, {}, {digest}});
    } catch (const NotHashable& refused) {
        leaveOut(name, refused.why);
    }
}

void Update::leaveOut(const std::string& name, const std::string& why) {
    console_.error(name + ": " + why);
    leftOut_.push_back(name);
    ++unreadable_;
}

void Update::recompute() {
    expectAll();
    for (const ListLine& line : lines_) {
        stopIfInterrupted();
        if (!line.isRecord()) {
            append(line.text);
            continue;
        }
        recompute(line);
        console_.progress().addFile();
    }
    for (const FoundFile& file : newFiles_) {
        stopIfInterrupted();
        addFile(file.name);
        console_.progress().addFile();
    }
}

void Update::report() {
    console_.progress().erase();
    if (isInVain())
        throw Error(options_.list + " is as it was, as " + std::to_string(unreadable_) +
                    " could not be read (--keep-going keeps their entries)");
    if (std::all_of(outcomes_.begin(), outcomes_.end(),
                    [](const Outcome& outcome) { return outcome.change == Change::kRemoved; }))
        throw Error(options_.list + " is as it was: no entry would be left");
    for (const Outcome& outcome : outcomes_)
        report_.add(outcome.change, outcome.name, outcome.before, outcome.after);
    for (const std::string& name : leftOut_)
        report_.add(Change::kUnreadable, name, {}, {});
    if (options_.json)
        printJsonSummary();
    console_.flush();
}

bool Update::isToBeWritten() const {
    const auto changes =
        report_.of(Change::kChanged) + report_.of(Change::kRemoved) + report_.of(Change::kAdded);
    return changes > 0 && !options_.dryRun;
}

// Before the list is replaced, so that it stays where this cannot be printed.
void Update::printJsonSummary() const {
    JsonObject summary = report_.jsonSummary();
    summary["written"] = isToBeWritten();
    JsonObject object;
    object["summary"] = summary;
    console_.print(jsonLine(object));
}

void Update::write() {
    if (isToBeWritten())
        output_.commit(text_);
}

void Update::summarise() const {
    if (!options_.json && !options_.quiet)
        console_.summarise((options_.dryRun ? "dry run: " : "") + report_.summary());
}

} // namespace

int runUpdate(const Args& args, Console& console) {
    const UpdateOptions options = parseUpdate(args);
    requireRegular(options.list);
    Update update(options, console);
    try {
        update.findNewFiles();
        update.recompute();
    } catch (const Interrupted&) {
        console.error("interrupted: " + options.list + " is as it was");
        return kInterrupted;
    }
    update.report();
    update.write();
    update.summarise();
    return update.lacksFiles() ? kFailed : kDone;
}

} // namespace cli
