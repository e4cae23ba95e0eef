// pelorik update: brings a hash list up to date with the files that it names.

#include "cli/args/options.h"
#include "cli/commands.h"
#include "cli/files/atomic_output.h"
#include "cli/files/directory_walk.h"
#include "cli/hashing/changes.h"
#include "cli/hashing/hash_list.h"
#include "cli/hashing/name_index.h"
#include "cli/hashing/parallel_hasher.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <optional>
#include <set>
#include <sys/stat.h>

namespace cli {

namespace {

struct UpdateOptions {
    const Algorithm* algorithm = nullptr;
    unsigned jobs = usableProcessors();
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
    line.number("-j,--jobs", "N", options.jobs,
                "hash N files at a time; by default as many as the process may use processors");
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
        "update [-a ALG] [-j N] [-r] [--exclude GLOB]... [--prune] [--dry-run] [--keep-going] "
        "[--quiet] "
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
    options.algorithm = &algorithmNamed(algorithm.value_or(kDefaultAlgorithm));
    if (operands.empty())
        throw UsageError("update which LIST?");
    options.list = operands.front();
    options.paths.assign(operands.begin() + 1, operands.end());
    if (options.list == "-")
        throw UsageError("standard input (-) cannot be updated");
    return options;
}

// Updates one list. The steps are taken in order; each throws `Error` when it ends the command.
//
// The files to be hashed are the lines of the list, and after them the new files.
class Update : private HashTask {
public:
    Update(const UpdateOptions& options, Console& console);

    void findNewFiles();
    void hash();
    void report();
    void write();
    void summarise() const;

    bool lacksFiles() const { return report_.of(Change::kMissing) > 0 || unreadable_ > 0; }

private:
    struct Outcome {
        Change change = Change::kUnchanged;
        Digest digest; // of a changed or new file
    };

    std::size_t count() const override { return list_.size() + newFiles_.size(); }
    bool isFile(std::size_t index) const override { return isNew(index) || list_.isRecord(index); }
    const char* path(std::size_t index) const override { return name(index).data(); }
    const Algorithm* algorithm(std::size_t index) const override;
    bool opensOnly() const override { return isInVain_; }
    bool finish(std::size_t index, HashedFile& file) override;
    void idle(std::uint64_t) override {}

    bool isNew(std::size_t index) const { return index >= list_.size(); }
    std::string_view name(std::size_t index) const {
        return isNew(index) ? newFiles_[index - list_.size()] : list_.name(index);
    }
    std::string_view digestBefore(std::size_t index) const {
        return isNew(index) ? std::string_view() : list_.digest(index);
    }
    bool isLeftOut(std::size_t index) const {
        return isNew(index) && outcomes_[index].change == Change::kUnreadable;
    }
    bool isToBeWritten() const;

    void requireListable() const;
    void requireEntries() const;
    Outcome outcomeOf(std::size_t index, const HashedFile& file);
    Outcome outcomeOfError(std::size_t index, const HashError& error);
    void addUnreadable(std::string_view name, const std::string& why);
    void report(std::size_t index, const Outcome& outcome);
    void addLines(const AtomicOutput::Add& add) const;
    void printJsonSummary() const;

    const UpdateOptions& options_;
    Console& console_;
    AtomicOutput output_;
    const HashList list_;
    TextArena newNames_;
    std::deque<std::string_view> newFiles_;
    std::deque<Outcome> outcomes_;     // of the list's lines and the new files
    std::vector<std::string> leftOut_; // paths that could not be added
    ChangeReport report_;
    std::size_t unreadable_ = 0;
    std::atomic<bool> isInVain_{false}; // nothing will be written
};

Update::Update(const UpdateOptions& options, Console& console)
    : options_(options), console_(console),
      output_(options.list, options.dryRun ? AtomicOutput::Use::kRead : AtomicOutput::Use::kEdit),
      list_(output_.content(), options.list, HashList::Lines::kAll),
      report_(console,
              {Change::kUnchanged, Change::kChanged, Change::kRemoved, Change::kMissing,
               Change::kUnreadable, Change::kAdded},
              options.json) {}

void Update::findNewFiles() {
    if (options_.paths.empty())
        return;
    const NameIndex<WalkOrder> listed(list_);
    std::set<std::string_view, WalkOrder> found;
    DirectoryWalk walk({
        .entries = DirectoryWalk::Entries::kFiles,
        .recursive = options_.recursive,
        .excludes = options_.excludes,
        .leftOut = {FileIdentity(options_.list)},
        .onEntry =
            [&](const std::string& name) {
                if (listed.contains(name) || found.contains(name))
                    return;
                newFiles_.emplace_back(newNames_.add(name), name.size());
                found.insert(newFiles_.back());
            },
        .onUnreadable =
            [this](const std::string& name, const std::string& why) {
                addUnreadable(name, why);
                leftOut_.push_back(name);
            },
        .note = [this](const std::string& line) { console_.error(line); },
    });
    for (const std::string& path : options_.paths)
        walk.visit(path);
    walk.noteUnfollowedLinks();
    if (walk.refusedDirectories() > 0)
        throw Error(options_.list + " is as it was: directories need -r");
    requireListable();
}

void Update::requireListable() const {
    bool isListable = true;
    for (const std::string_view name : newFiles_) {
        const std::string error = validationError(name, options_.algorithm->textLength());
        if (error.empty())
            continue;
        console_.error(std::string(name) + ": " + error + " cannot stand in a hash list");
        isListable = false;
    }
    if (!isListable)
        throw Error(options_.list + " is as it was (--exclude leaves names out)");
}

const Algorithm* Update::algorithm(std::size_t index) const {
    const Algorithm* const listed = algorithmOf(digestBefore(index));
    return listed != nullptr ? listed : options_.algorithm;
}

void Update::addUnreadable(std::string_view name, const std::string& why) {
    console_.error(std::string(name) + ": " + why);
    ++unreadable_;
    isInVain_ = !options_.keepGoing;
}

Update::Outcome Update::outcomeOfError(std::size_t index, const HashError& error) {
    if (error.isMissing() && !isNew(index))
        return {options_.prune ? Change::kRemoved : Change::kMissing, {}};
    // When nothing will be written any more, the other files are only opened; errors of reading
    // those that are read all the same do not count.
    if (isInVain_ && error.opened)
        return {};
    addUnreadable(name(index), error.reason);
    if (isNew(index))
        leftOut_.emplace_back(name(index));
    return {Change::kUnreadable, {}};
}

Update::Outcome Update::outcomeOf(std::size_t index, const HashedFile& file) {
    if (file.error)
        return outcomeOfError(index, *file.error);
    if (!file.digest || file.digest->matches(digestBefore(index)))
        return {};
    const std::string error = validationError(name(index), file.digest->algorithm().textLength());
    if (!error.empty())
        throw Error(std::string(name(index)) + ": " + error + " cannot stand in a hash list");
    return {isNew(index) ? Change::kAdded : Change::kChanged, *file.digest};
}

bool Update::finish(std::size_t index, HashedFile& file) {
    outcomes_.push_back(isFile(index) ? outcomeOf(index, file) : Outcome());
    return true;
}

void Update::hash() {
    ParallelHasher hasher(options_.jobs, console_.progress());
    if (hasher.run(*this) == ParallelHasher::End::kInterrupted)
        throw Interrupted();
}

void Update::report(std::size_t index, const Outcome& outcome) {
    DigestTexts before;
    DigestTexts after;
    if (!isNew(index))
        before.emplace_back(list_.digest(index));
    if (outcome.change == Change::kChanged || outcome.change == Change::kAdded)
        after.push_back(outcome.digest.text());
    report_.add(outcome.change, std::string(name(index)), before, after);
}

// A list without any entry would not be read again.
void Update::requireEntries() const {
    for (std::size_t i = 0; i < count(); ++i) {
        if (isFile(i) && !isLeftOut(i) && outcomes_[i].change != Change::kRemoved)
            return;
    }
    throw Error(options_.list + " is as it was: no entry would be left");
}

void Update::report() {
    console_.progress().erase();
    if (isInVain_)
        throw Error(options_.list + " is as it was, as " + std::to_string(unreadable_) +
                    " could not be read (--keep-going keeps their entries)");
    requireEntries();
    for (std::size_t i = 0; i < count(); ++i) {
        if (isFile(i) && !isLeftOut(i))
            report(i, outcomes_[i]);
    }
    for (const std::string& name : leftOut_)
        report_.add(Change::kUnreadable, name, {}, {});
    console_.flush(); // what cannot be shown is not done
}

bool Update::isToBeWritten() const {
    const auto changes =
        report_.of(Change::kChanged) + report_.of(Change::kRemoved) + report_.of(Change::kAdded);
    return changes > 0 && !options_.dryRun;
}

// After the list was replaced, so that its member "written" is true.
void Update::printJsonSummary() const {
    JsonObject summary = report_.jsonSummary();
    summary["written"] = isToBeWritten();
    JsonObject object;
    object["summary"] = summary;
    console_.print(jsonLine(object));
}

void Update::addLines(const AtomicOutput::Add& add) const {
    for (std::size_t i = 0; i < count(); ++i) {
        const Outcome& outcome = outcomes_[i];
        if (outcome.change == Change::kRemoved || isLeftOut(i))
            continue;
        add(name(i));
        if (isFile(i))
            add("=");
        if (outcome.change == Change::kChanged || outcome.change == Change::kAdded)
            add(outcome.digest.text());
        else if (isFile(i))
            add(list_.digest(i));
        add("\n");
    }
}

void Update::write() {
    if (isToBeWritten())
        output_.commit([this](const AtomicOutput::Add& add) { addLines(add); });
}

void Update::summarise() const {
    if (options_.json)
        printJsonSummary();
    else if (!options_.quiet)
        console_.summarise((options_.dryRun ? "dry run: " : "") + report_.summary());
}

} // namespace

int runUpdate(const Args& args, Console& console) {
    const UpdateOptions options = parseUpdate(args);
    Update update(options, console);
    try {
        update.findNewFiles();
        update.hash();
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
