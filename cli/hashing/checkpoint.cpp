#include "cli/hashing/checkpoint.h"

#include "cli/files/line_reader.h"
#include "cli/hashing/algorithm.h"
#include "cli/hashing/hash_list.h"
#include "cli/process/error.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace cli {

namespace {

constexpr char kFirstLine[] =
    "pelorik: an interrupted list, which pelorik list --resume goes on from";
constexpr std::size_t kLongestFingerprint = 128;
constexpr std::uint64_t kWorthSaving = std::uint64_t{64} << 20; // bytes read
constexpr std::uint64_t kOfOneFile = 4096;                      // bytes that opening it is worth
constexpr std::time_t kCoarsestTime = 2;                        // seconds, of file systems

std::string timeText(const timespec& time) {
    return std::to_string(time.tv_sec) + "." + std::to_string(time.tv_nsec);
}

// Changes with everything that can happen to a file's content.
std::string fingerprintOf(const struct stat& status) {
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) + ":" +
           std::to_string(status.st_size) + ":" + timeText(status.st_mtim) + ":" +
           timeText(status.st_ctim);
}

// False for a file that could change once more without any change of its times, since those tell
// only so much, or that was made in what the clock takes for the future.
bool isSettled(const struct stat& status, std::time_t opened) {
    return std::max(status.st_mtim.tv_sec, status.st_ctim.tv_sec) + kCoarsestTime < opened;
}

} // namespace

Checkpoint::Checkpoint(const std::string& output, HashFileChecker::Alg algorithm)
    : path_(output + ".partial"), sample_(sampleDigest(algorithm)), identity_(path_) {
    struct stat status {};
    if (::lstat(path_.c_str(), &status) != 0)
        return;
    // Whoever else can put a file there could choose digests.
    if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid())
        throw Error(path_ + ": is in the way: no file of yours");
    Lines lines(path_, '\n', kLongestListLine);
    if (lines.next() && lines.line() != kFirstLine)
        throw Error(path_ + ": is in the way: no interrupted list");
}

void Checkpoint::resume() {
    if (::access(path_.c_str(), F_OK) != 0)
        return;
    Lines lines(path_, '\n', kLongestFingerprint + kLongestListLine);
    resumed_ = lines.next(); // the first one has been looked at
    while (lines.next() && lines.line().size() <= kLongestFingerprint + kLongestListLine)
        readEntry(lines.line());
}

bool Checkpoint::isWhole(const std::string& digest) const {
    const std::string prefix = algorithmOf(sample_);
    return digest.size() == sample_.size() && digest.starts_with(prefix) &&
           digest.find_first_not_of("0123456789abcdef", prefix.size()) == std::string::npos;
}

void Checkpoint::readEntry(const std::string& line) {
    const std::size_t blank = line.find(' ');
    const std::size_t divider = line.find('=', blank);
    if (blank == std::string::npos || divider == std::string::npos)
        return;
    const std::string name = line.substr(blank + 1, divider - blank - 1);
    const std::string digest = line.substr(divider + 1);
    if (isWhole(digest))
        entries_[name] = {line.substr(0, blank), digest};
}

std::string Checkpoint::digestOf(const std::string& name, const struct stat& status) const {
    const auto entry = entries_.find(name);
    return entry != entries_.end() && entry->second.fingerprint == fingerprintOf(status)
               ? entry->second.digest
               : "";
}

void Checkpoint::expect(std::uint64_t size) {
    if (!unsaved_.empty() && unsavedBytes_ + size >= kWorthSaving)
        save();
}

void Checkpoint::add(const std::string& name, const struct stat& status, std::time_t opened,
                     const std::string& digest) {
    if (error_ != 0 || !isSettled(status, opened))
        return;
    unsaved_ += fingerprintOf(status) + " " + name + "=" + digest + "\n";
    unsavedBytes_ += static_cast<std::uint64_t>(status.st_size) + kOfOneFile;
}

// A new file is begun unless that was resumed which is there.
int Checkpoint::open() {
    if (!resumed_ && ::unlink(path_.c_str()) != 0 && errno != ENOENT)
        return errno;
    const int flags = resumed_ ? 0 : O_CREAT | O_EXCL;
    file_ = Descriptor(
        ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW | flags, 0600));
    if (!file_)
        return errno;
    // What was resumed may end in the middle of a line.
    return writeAll(file_.get(), resumed_ ? "\n" : std::string(kFirstLine) + "\n");
}

int Checkpoint::save() {
    if (error_ == 0 && !file_)
        error_ = open();
    if (error_ == 0)
        error_ = writeAll(file_.get(), unsaved_);
    if (error_ != 0 && file_ && !resumed_)
        remove(); // it may lack its first line
    unsaved_.clear();
    unsavedBytes_ = 0;
    return error_;
}

void Checkpoint::remove() {
    ::unlink(path_.c_str());
}

} // namespace cli
