// pelorik list: makes a hash list of files and directories.

#include "cli/args/options.h"
#include "cli/commands.h"
#include "cli/files/atomic_output.h"
#include "cli/files/directory_walk.h"
#include "cli/files/line_reader.h"
#include "cli/hashing/checkpoint.h"
#include "cli/hashing/hash_list.h"
#include "cli/hashing/name_index.h"
#include "cli/hashing/parallel_hasher.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <numeric>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace cli {

namespace {

constexpr std::size_t kLongestPath = 4096; // more than the system opens

struct ListOptions {
    const Algorithm* algorithm = nullptr;
    unsigned jobs = usableProcessors();
    bool recursive = false;
    std::vector<std::string> excludes;
    std::optional<std::string> filesFrom;
    bool zeroSeparated = false;
    bool keepGoing = false;
    std::optional<std::string> out; // never "-"
    bool resume = false;
    std::vector<std::string> paths;
};

void describe(OptionParser& line) {
    line.status(kDone, "the list is complete");
    line.status(kFailed, "with --keep-going: the list lacks files that could not be read");
    line.status(kTrouble, "nothing was written: wrong usage, a file that could not be read, a name "
                          "that a list cannot hold, nothing to list; or writing failed");
    line.status(kInterrupted,
                "interrupted by SIGINT; nothing was written but, with -o, OUT.partial. "
                "The same goes for other signals, which end the command themselves then");
    line.examples("  pelorik list -r -o /root/client.list /opt/PELORIKclient\n"
                  "  pelorik list -r --exclude '*.log' --exclude '*/cache' /srv > srv.list\n"
                  "  pelorik list -r --resume -o disk.list /srv\n"
                  "  find . -type f -print0 | pelorik list --files-from - -0\n");
}

void declare(OptionParser& line, ListOptions& options, std::optional<std::string>& algorithm) {
    line.value("-a,--algorithm", "ALG", algorithm, std::string(kAlgorithmNames) + " (the default)");
    line.flag(
        "-r,--recursive", options.recursive,
        "list the files under directories, too; symbolic links in them to files are followed, "
        "to directories not; special files are skipped");
    line.values("--exclude", "GLOB", options.excludes,
                "leave out names that match the whole of GLOB, where * matches slashes, too; "
                "directories that match are not entered");
    line.value("--files-from", "LIST", options.filesFrom,
               "list the paths in the file LIST, too, one a line; - is standard input");
    line.flag("-0,--null", options.zeroSeparated, "the paths in LIST end with zero bytes");
    line.number("-j,--jobs", "N", options.jobs,
                "hash N files at a time; by default as many as the process may use processors");
    line.flag("--keep-going", options.keepGoing, "leave out files that cannot be read");
    line.value(
        "-o,--output", "OUT", options.out,
        "write to OUT, which is replaced as a whole; it is never listed itself, nor is a file "
        "that standard output goes to without this option");
    line.flag("--resume", options.resume,
              "go on from OUT.partial, which an interrupted run leaves: of the files in it only "
              "those are hashed again that have changed since. Without this option it is begun "
              "anew; once OUT is written it is removed");
}

ListOptions parseList(const Args& args) {
    OptionParser line("list [-a ALG] [-r] [--exclude GLOB]... [--files-from LIST|-] [-0] "
                      "[-j N] [--keep-going] [--resume] [-o OUT] PATH...",
                      "Writes a hash list of the files PATH, under the names as they are given.");
    ListOptions options;
    std::optional<std::string> algorithm;
    declare(line, options, algorithm);
    describe(line);
    options.paths = line.parse(args);
    options.algorithm = &algorithmNamed(algorithm.value_or(kDefaultAlgorithm));
    if (options.out == "-")
        options.out.reset();
    if (options.resume && !options.out)
        throw UsageError("--resume goes on with the list of -o OUT, which is not used");
    if (options.paths.empty() && !options.filesFrom)
        throw UsageError("nothing to list: name a PATH, or use --files-from");
    if (options.zeroSeparated && !options.filesFrom)
        throw UsageError("-0 says how --files-from is read, which is not used");
    return options;
}

// Calls `visit` with each path in the file for --files-from.
template<class Visit>
void visitPathsFrom(const ListOptions& options, Visit visit) {
    LineReader lines(openText(*options.filesFrom), *options.filesFrom,
                     options.zeroSeparated ? '\0' : '\n', kLongestPath);
    while (lines.next()) {
        if (lines.line().size() > kLongestPath)
            lines.refuse("longer than a path can be");
        if (lines.line().find('\0') != std::string::npos)
            lines.refuse("holds a zero byte (-0 reads names that end with one)");
        if (!lines.line().empty())
            visit(lines.line());
    }
}

// Makes one list. The steps are taken in order; each throws `Error` when it ends the command.
class Listing : private HashTask {
public:
    Listing(const ListOptions& options, Console& console);

    void find();
    void requireListable() const;
    void resume();
    void hash();
    void write();

    bool lacksFiles() const { return unreadable_ > 0; }

    // Keeps the checkpoint, and reports that.
    void giveUp();

private:
    // Kept apart from the names, as it needs no alignment.
    struct File {
        enum State : unsigned char { kFound, kKnown, kListed };

        State state = kFound;
        Digest digest; // known from a checkpoint, or to be listed
    };

    std::size_t count() const override { return files_.size(); }
    const char* path(std::size_t index) const override { return names_[index]; }
    const Algorithm* algorithm(std::size_t) const override { return options_.algorithm; }
    bool opensOnly() const override { return isInVain_; }
    HashDecision decide(std::size_t index, const struct stat& status) const override;
    bool finish(std::size_t index, HashedFile& file) override;
    void idle(std::uint64_t bytes) override;

    template<class Take>
    void visitLines(Take take) const;
    void add(std::size_t index, const HashedFile& file);
    void addLeftOut();
    bool isLeftOut(const std::string& name, const struct stat& status) const;
    bool isError(const HashedFile& file) const;
    void useCheckpoint(std::size_t index, const Fingerprint& fingerprint, std::string_view digest);
    void copyKnown(std::size_t from, std::size_t to);
    void stopIfUnreadable() const;

    const ListOptions& options_;
    Console& console_;
    std::optional<AtomicOutput> output_;
    std::optional<Checkpoint> checkpoint_;
    std::atomic<double> now_{0}; // by the checkpoint's clock, and hardly ever late
    std::vector<FileIdentity> leftOut_;
    TextArena texts_;
    std::deque<const char*> names_;
    std::deque<File> files_;
    std::deque<Fingerprint> fingerprints_; // of the checkpoint, for each file; or empty
    std::size_t hashed_ = 0;
    std::size_t resumed_ = 0; // of them, those that were hashed before
    std::size_t unreadable_ = 0;
    std::atomic<bool> isInVain_{false}; // nothing will be written
};

Listing::Listing(const ListOptions& options, Console& console)
    : options_(options), console_(console) {
    if (options.out) {
        output_.emplace(*options.out);
        if (!output_->isInPlace())
            checkpoint_.emplace(output_->entry());
        else if (options.resume)
            throw Error(*options.out + ": is no regular file, so that there is nothing to resume");
    }
    addLeftOut();
}

// A list never names itself: it would be hashed as it is before it is written.
void Listing::addLeftOut() {
    struct stat status {};
    if (output_)
        leftOut_.emplace_back(*options_.out);
    else if (::fstat(STDOUT_FILENO, &status) == 0 && S_ISREG(status.st_mode))
        leftOut_.emplace_back(STDOUT_FILENO);
    if (checkpoint_)
        leftOut_.emplace_back(checkpoint_->path());
}

bool Listing::isLeftOut(const std::string& name, const struct stat& status) const {
    return std::any_of(leftOut_.begin(), leftOut_.end(),
                       [&](const FileIdentity& file) { return file.isAt(name, status); });
}

void Listing::stopIfUnreadable() const {
    if (unreadable_ > 0 && !options_.keepGoing)
        throw Error("nothing was written, as " + std::to_string(unreadable_) +
                    " could not be read (--keep-going lists the others)");
}

void Listing::find() {
    const auto note = [this](const std::string& line) { console_.error(line); };
    DirectoryWalk walk({
        .entries = DirectoryWalk::Entries::kFiles,
        .recursive = options_.recursive,
        .excludes = options_.excludes,
        .leftOut = leftOut_,
        .onEntry = [this](const std::string& name) { names_.push_back(texts_.add(name)); },
        .onUnreadable =
            [this](const std::string& name, const std::string& why) {
                console_.error(name + ": " + why);
                ++unreadable_;
            },
        .note = note,
    });
    for (const std::string& path : options_.paths)
        walk.visit(path);
    if (options_.filesFrom)
        visitPathsFrom(options_, [&](const std::string& path) { walk.visit(path); });
    walk.noteUnfollowedLinks();
    if (walk.refusedDirectories() > 0)
        throw Error("nothing was written: directories need -r");
    stopIfUnreadable();
    if (names_.empty())
        throw Error("nothing to list");
    files_.resize(names_.size());
}

void Listing::requireListable() const {
    bool isListable = true;
    for (const char* const name : names_) {
        const std::string error = validationError(name, options_.algorithm->textLength());
        if (error.empty())
            continue;
        console_.error(std::string(name) + ": " + error + " cannot stand in a hash list");
        isListable = false;
    }
    if (!isListable)
        throw Error("nothing was written (--exclude leaves names out)");
}

// The files that the checkpoint names are found in an ordered table.
void Listing::resume() {
    if (!checkpoint_)
        return;
    now_ = checkpoint_->now();
    if (!options_.resume)
        return;
    fingerprints_.resize(files_.size());
    std::vector<std::size_t> order(files_.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    const WalkOrder isBefore;
    std::sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
        return isBefore(names_[left], names_[right]);
    });
    checkpoint_->resume(
        [&](std::string_view name, const Fingerprint& fingerprint, std::string_view digest) {
            const auto file = std::lower_bound(order.begin(), order.end(), name,
                                               [&](std::size_t index, std::string_view key) {
                                                   return isBefore(names_[index], key);
                                               });
            if (file != order.end() && names_[*file] == name)
                useCheckpoint(*file, fingerprint, digest);
        });
    for (std::size_t i = 1; i < order.size(); ++i) {
        if (std::string_view(names_[order[i]]) == names_[order[i - 1]])
            copyKnown(order[i - 1], order[i]);
    }
}

void Listing::useCheckpoint(std::size_t index, const Fingerprint& fingerprint,
                            std::string_view digest) {
    const std::optional<Digest> known = Digest::parse(*options_.algorithm, digest);
    if (!known)
        return;
    files_[index] = {File::kKnown, *known};
    fingerprints_[index] = fingerprint;
}

// For a file that is listed several times.
void Listing::copyKnown(std::size_t from, std::size_t to) {
    files_[to] = files_[from];
    fingerprints_[to] = fingerprints_[from];
}

HashDecision Listing::decide(std::size_t index, const struct stat& status) const {
    const File& file = files_[index];
    if (isLeftOut(names_[index], status)) // some directories have other inode numbers than files
        return {HashDecision::kLeaveOut, {}, false};
    if (file.state == File::kKnown && fingerprints_[index] == Fingerprint(status))
        return {HashDecision::kUseKnown, file.digest, false};
    return {HashDecision::kRead, {}, isSettled(status, now_)};
}

// When nothing will be written any more, the other files are only opened; errors of reading those
// that are read all the same do not count.
bool Listing::isError(const HashedFile& file) const {
    return file.error && !(isInVain_ && file.error->opened);
}

bool Listing::finish(std::size_t index, HashedFile& file) {
    if (file.action == HashDecision::kLeaveOut)
        return true;
    if (isError(file)) {
        console_.error(std::string(names_[index]) + ": " + file.error->reason);
        ++unreadable_;
        isInVain_ = !options_.keepGoing;
    } else if (file.digest) {
        add(index, file);
    }
    return true;
}

void Listing::add(std::size_t index, const HashedFile& file) {
    files_[index] = {File::kListed, *file.digest};
    ++hashed_;
    if (file.action == HashDecision::kUseKnown)
        ++resumed_;
    else if (checkpoint_ && file.isSettled)
        checkpoint_->add(names_[index], file.status, *file.digest);
}

void Listing::idle(std::uint64_t bytes) {
    if (!checkpoint_)
        return;
    now_ = checkpoint_->now();
    checkpoint_->saveIfDue(bytes);
}

void Listing::hash() {
    ParallelHasher hasher(options_.jobs, console_.progress());
    if (hasher.run(*this) == ParallelHasher::End::kInterrupted)
        throw Interrupted();
    stopIfUnreadable();
    if (checkpoint_ && checkpoint_->isResumed())
        console_.error("resumed: " + std::to_string(resumed_) + " of " +
                       std::to_string(files_.size()) + " files were hashed before");
    if (hashed_ == 0)
        throw Error(unreadable_ > 0 ? "nothing to list: no file could be read" : "nothing to list");
}

// Calls `take` with each line, without its line feed.
template<class Take>
void Listing::visitLines(Take take) const {
    for (std::size_t i = 0; i < files_.size(); ++i) {
        if (files_[i].state == File::kListed)
            take(names_[i] + ("=" + files_[i].digest.text()));
    }
}

void Listing::write() {
    console_.progress().erase();
    if (!output_) {
        visitLines([this](const std::string& line) { console_.print(line); });
        return;
    }
    std::optional<SignalsBlocked> blocked;
    if (checkpoint_)
        blocked.emplace(); // until it is removed
    output_->commit([this](const AtomicOutput::Add& add) {
        visitLines([&](const std::string& line) { add(line + "\n"); });
    });
    if (checkpoint_)
        checkpoint_->remove();
}

void Listing::giveUp() {
    const bool isKept = checkpoint_ && hashed_ > 0;
    const int error = isKept ? checkpoint_->save() : 0;
    std::string kept = "nothing was written";
    if (error != 0)
        kept += ", as " + checkpoint_->path() + " could not be: " + errorText(error);
    else if (isKept)
        kept = "--resume goes on from " + checkpoint_->path();
    console_.error("interrupted: " + std::to_string(hashed_) + " of " +
                   std::to_string(files_.size()) + " files hashed, " + kept);
}

} // namespace

int runList(const Args& args, Console& console) {
    const ListOptions options = parseList(args);
    Listing listing(options, console);
    try {
        listing.find();
        listing.requireListable();
        listing.resume();
        listing.hash();
    } catch (const Interrupted&) {
        listing.giveUp();
        return kInterrupted;
    }
    listing.write();
    return listing.lacksFiles() ? kFailed : kDone;
}

} // namespace cli
