// pelorik list: makes a hash list of files and directories.

#include "checker/hashfile_checker.h"
#include "cli/args/options.h"
#include "cli/commands.h"
#include "cli/files/atomic_output.h"
#include "cli/files/directory_walk.h"
#include "cli/files/line_reader.h"
#include "cli/hashing/checkpoint.h"
#include "cli/hashing/digester.h"
#include "cli/hashing/file_hasher.h"
#include "cli/hashing/hash_list.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <ctime>
#include <optional>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace cli {

namespace {

constexpr std::size_t kLongestPath = 4096; // more than the system opens

struct ListOptions {
    HashFileChecker::Alg algorithm = HashFileChecker::GOST_3411_2012;
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
                      "[--keep-going] [--resume] [-o OUT] PATH...",
                      "Writes a hash list of the files PATH, under the names as they are given.");
    ListOptions options;
    std::optional<std::string> algorithm;
    declare(line, options, algorithm);
    describe(line);
    options.paths = line.parse(args);
    options.algorithm = algorithmNamed(algorithm.value_or(kDefaultAlgorithm));
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

void addPathsFrom(const ListOptions& options, std::vector<std::string>& paths) {
    Lines lines(*options.filesFrom, options.zeroSeparated ? '\0' : '\n', kLongestPath);
    while (lines.next()) {
        if (lines.line().size() > kLongestPath)
            lines.refuse("longer than a path can be");
        if (lines.line().find('\0') != std::string::npos)
            lines.refuse("holds a zero byte (-0 reads names that end with one)");
        if (!lines.line().empty())
            paths.push_back(lines.line());
    }
}

// Where standard output is a file, that file would be listed as it is now: still without the list.
bool isStandardOutput(const struct stat& status) {
    struct stat output {};
    return ::fstat(STDOUT_FILENO, &output) == 0 && S_ISREG(output.st_mode) &&
           status.st_dev == output.st_dev && status.st_ino == output.st_ino;
}

// Makes one list. The steps are taken in order; each throws `Error` when it ends the command.
class Listing {
public:
    Listing(const ListOptions& options, Console& console);

    void find();
    void refuseUnsafeNames() const;
    void hash();
    void write();

    bool lacksFiles() const { return unreadable_ > 0; }

    // Keeps what is there to go on from, and tells so.
    void giveUp();

private:
    bool isLeftOut(const std::string& name, const struct stat& status) const;
    std::string digestOf(const FoundFile& file);
    bool hashFile(const FoundFile& file, bool justOpen);
    void expectAll();
    void stopIfUnreadable() const;

    const ListOptions& options_;
    Console& console_;
    Digester digester_;
    std::optional<AtomicOutput> output_;
    std::optional<Checkpoint> checkpoint_;
    std::size_t resumed_ = 0; // files that were hashed before
    std::vector<FoundFile> files_;
    std::list<HashFileChecker::HashPair> pairs_;
    std::size_t unreadable_ = 0;
};

Listing::Listing(const ListOptions& options, Console& console)
    : options_(options), console_(console), digester_({options.algorithm}) {
    if (!options.out)
        return;
    output_.emplace(*options.out);
    if (!output_->isInPlace())
        checkpoint_.emplace(output_->target(), options.algorithm);
    else if (options.resume)
        throw Error(*options.out + ": is no regular file, so that there is nothing to resume");
    if (options.resume)
        checkpoint_->resume();
}

void Listing::stopIfUnreadable() const {
    if (unreadable_ > 0 && !options_.keepGoing)
        throw Error("nothing was written, as " + std::to_string(unreadable_) +
                    " could not be read (--keep-going lists the others)");
}

bool Listing::isLeftOut(const std::string& name, const struct stat& status) const {
    if (!output_)
        return isStandardOutput(status);
    return output_->replaces(name, status) || (checkpoint_ && checkpoint_->isAt(name, status));
}

void Listing::find() {
    std::vector<std::string> paths = options_.paths;
    if (options_.filesFrom)
        addPathsFrom(options_, paths);
    const auto leaveOut = [this](const std::string& name, const struct stat& status) {
        return isLeftOut(name, status);
    };
    const auto note = [this](const std::string& line) { console_.error(line); };
    Walk walk({options_.recursive, options_.excludes, leaveOut, note, nullptr});
    for (const std::string& path : paths)
        walk.add(path);
    files_ = walk.files();
    unreadable_ = walk.unreadable();
    walk.noteUnfollowedLinks();
    if (walk.refusedDirectories() > 0)
        throw Error("nothing was written: directories need -r");
    stopIfUnreadable();
    if (files_.empty())
        throw Error("nothing to list");
}

void Listing::refuseUnsafeNames() const {
    if (reportUnlistable(files_, options_.algorithm, console_))
        throw Error("nothing was written (--exclude leaves names out)");
}

void Listing::expectAll() {
    Amount total{files_.size(), 0};
    for (const FoundFile& file : files_)
        total.bytes += file.size;
    console_.progress().expect(total);
}

std::string Listing::digestOf(const FoundFile& file) {
    const std::time_t opened = std::time(nullptr);
    ListedFile listed(file.name);
    if (!checkpoint_)
        return listed.digest(digester_, console_.progress());
    std::string digest = checkpoint_->digestOf(file.name, listed.status());
    if (!digest.empty()) {
        ++resumed_;
        console_.progress().addBytes(file.size);
        return digest;
    }
    checkpoint_->expect(file.size);
    digest = listed.digest(digester_, console_.progress());
    checkpoint_->add(file.name, listed.status(), opened, digest);
    return digest;
}

// Returns false, with a note, when the file cannot be listed.
bool Listing::hashFile(const FoundFile& file, bool justOpen) {
    try {
        if (justOpen)
            ListedFile(file.name);
        else
            pairs_.push_back({file.name, digestOf(file)});
        return true;
    } catch (const NotHashable& refused) {
        console_.error(file.name + ": " + refused.why);
        return false;
    }
}

void Listing::hash() {
    expectAll();
    for (const FoundFile& file : files_) {
        stopIfInterrupted();
        // When nothing will be written any more, the rest is only asked whether it could be read.
        const bool inVain = unreadable_ > 0 && !options_.keepGoing;
        if (!hashFile(file, inVain))
            ++unreadable_;
        console_.progress().addFile();
    }
    stopIfUnreadable();
    if (checkpoint_ && checkpoint_->isResumed())
        console_.error("resumed: " + std::to_string(resumed_) + " of " +
                       std::to_string(files_.size()) + " files were hashed before");
    if (pairs_.empty())
        throw Error("nothing to list: no file could be read");
}

void Listing::write() {
    console_.progress().erase();
    std::ostringstream text;
    text.exceptions(std::ios::badbit); // passes on that memory has ended
    HashFileChecker::PrintHashes(pairs_, text);
    if (output_) {
        output_->commit(text.view());
        if (checkpoint_)
            checkpoint_->remove();
        return;
    }
    std::istringstream lines(std::move(text).str());
    lines.exceptions(std::ios::badbit);
    for (std::string line; std::getline(lines, line);)
        console_.print(line);
}

void Listing::giveUp() {
    const int error = checkpoint_ && !pairs_.empty() ? checkpoint_->save() : 0;
    std::string kept = "nothing was written";
    if (error != 0)
        kept += ", as " + checkpoint_->path() + " could not be: " + errorText(error);
    else if (checkpoint_ && !pairs_.empty())
        kept = "--resume goes on from " + checkpoint_->path();
    console_.error("interrupted: " + std::to_string(pairs_.size()) + " of " +
                   std::to_string(files_.size()) + " files hashed, " + kept);
}

} // namespace

int runList(const Args& args, Console& console) {
    const ListOptions options = parseList(args);
    Listing listing(options, console);
    try {
        listing.find();
        listing.refuseUnsafeNames();
        listing.hash();
    } catch (const Interrupted&) {
        listing.giveUp();
        return kInterrupted;
    }
    listing.write();
    return listing.lacksFiles() ? kFailed : kDone;
}

} // namespace cli
