#include "cli/hashing/checkpoint.h"

#include "cli/hashing/hash_list.h"
#include "cli/process/error.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <ctime>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace cli {

namespace {

constexpr char kFirstLine[] =
    "pelorik: an interrupted list, which pelorik list --resume goes on from";
constexpr std::size_t kLongestFingerprint = 160;
constexpr std::uint64_t kWorthSaving = std::uint64_t{64} << 20; // bytes read
constexpr std::uint64_t kOfOneFile = 4096;                      // bytes that opening it is worth
constexpr double kCoarsestTime = 2;                             // seconds, of file systems

double seconds(const timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

} // namespace

Fingerprint::Fingerprint(const struct stat& status)
    : device_(status.st_dev), inode_(status.st_ino), size_(status.st_size),
      modified_(status.st_mtim.tv_sec), changed_(status.st_ctim.tv_sec),
      modifiedFraction_(static_cast<std::int32_t>(status.st_mtim.tv_nsec)),
      changedFraction_(static_cast<std::int32_t>(status.st_ctim.tv_nsec)) {}

std::string Fingerprint::text() const {
    return std::to_string(device_) + ":" + std::to_string(inode_) + ":" + std::to_string(size_) +
           ":" + std::to_string(modified_) + "." + std::to_string(modifiedFraction_) + ":" +
           std::to_string(changed_) + "." + std::to_string(changedFraction_);
}

std::optional<Fingerprint> Fingerprint::parse(std::string_view text) {
    Fingerprint read;
    const char* next = text.data();
    const char* const end = text.data() + text.size();
    bool isGood = true;
    const auto readNumber = [&](auto& number, char divider) {
        const auto [stopped, error] = std::from_chars(next, end, number);
        const bool isDivided =
            divider == '\0' ? stopped == end : stopped != end && *stopped == divider;
        isGood = isGood && error == std::errc() && isDivided;
        next = isGood && stopped != end ? stopped + 1 : end;
    };
    readNumber(read.device_, ':');
    readNumber(read.inode_, ':');
    readNumber(read.size_, ':');
    readNumber(read.modified_, '.');
    readNumber(read.modifiedFraction_, ':');
    readNumber(read.changed_, '.');
    readNumber(read.changedFraction_, '\0');
    return isGood ? std::optional(read) : std::nullopt;
}

bool isSettled(const struct stat& status, double now) {
    return std::max(seconds(status.st_mtim), seconds(status.st_ctim)) + kCoarsestTime <= now;
}

Checkpoint::Checkpoint(const DirectoryEntry& output) : entry_(output.withSuffix(".partial")) {
    const auto found = entry_.status();
    if (found && !S_ISREG(found->st_mode))
        throw Error(path() + ": is in the way: no file of yours");
    file_ = entry_.openLocked(O_RDWR | O_APPEND | O_CREAT, S_IRUSR | S_IWUSR);
    if (!file_)
        throw Error(path(), errno);
    try {
        requireOwn();
    } catch (...) {
        removeIfEmpty();
        throw;
    }
}

void Checkpoint::requireOwn() const {
    // Whoever else can write to the file could choose digests.
    struct stat status {};
    if (::fstat(file_.get(), &status) != 0)
        throw Error(path(), errno);
    if (status.st_uid != ::geteuid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        throw Error(path() + ": is in the way: no file of yours");
    LineReader lines = reader(kLongestListLine);
    if (lines.next() && lines.line() != kFirstLine)
        throw Error(path() + ": is in the way: no interrupted list");
}

Checkpoint::~Checkpoint() {
    removeIfEmpty();
}

// A file without content was made by this object, for the lock.
void Checkpoint::removeIfEmpty() const {
    if (::lseek(file_.get(), 0, SEEK_END) == 0)
        entry_.removeIfSame(file_.get());
}

LineReader Checkpoint::reader(std::size_t longest) const {
    if (::lseek(file_.get(), 0, SEEK_SET) != 0)
        throw Error(path(), errno);
    return {FileSource::copyOf(file_.get()), path(), '\n', longest};
}

double Checkpoint::now() const {
    const std::array<timespec, 2> now = {{{0, UTIME_NOW}, {0, UTIME_NOW}}};
    struct stat status {};
    if (::futimens(file_.get(), now.data()) == 0 && ::fstat(file_.get(), &status) == 0)
        return seconds(status.st_mtim);
    timespec here{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &here); // what local file systems use
    return seconds(here);
}

void Checkpoint::resume(const Visit& visit) {
    constexpr std::size_t kLongest = kLongestFingerprint + kLongestListLine;
    LineReader lines = reader(kLongest);
    resumed_ = lines.next(); // the first one has been checked
    while (lines.next() && lines.line().size() <= kLongest)
        readEntry(lines.line(), visit);
}

void Checkpoint::readEntry(const std::string& line, const Visit& visit) const {
    const std::size_t blank = line.find(' ');
    const std::size_t divider = line.find('=', blank);
    if (blank == std::string::npos || divider == std::string::npos)
        return;
    const std::string_view text = line;
    if (const auto fingerprint = Fingerprint::parse(text.substr(0, blank)))
        visit(text.substr(blank + 1, divider - blank - 1), *fingerprint, text.substr(divider + 1));
}

void Checkpoint::add(std::string_view name, const struct stat& status, const Digest& digest) {
    if (error_ != 0)
        return;
    unsaved_ += Fingerprint(status).text() + " ";
    unsaved_ += name;
    unsaved_ += "=" + digest.text() + "\n";
    ++unsavedFiles_;
}

void Checkpoint::saveIfDue(std::uint64_t bytes) {
    const std::uint64_t work = bytes - bytesWhenSaved_ + unsavedFiles_ * kOfOneFile;
    if (unsaved_.empty() || work < kWorthSaving)
        return;
    bytesWhenSaved_ = bytes;
    save();
}

// Starts anew, or continues after what was resumed, which may end in the middle of a line.
int Checkpoint::begin() {
    if (!resumed_ && ::ftruncate(file_.get(), 0) != 0)
        return errno;
    return writeAll(file_.get(), resumed_ ? "\n" : std::string(kFirstLine) + "\n");
}

int Checkpoint::save() {
    if (error_ == 0 && !isBegun_)
        error_ = begin();
    isBegun_ = true;
    if (error_ == 0)
        error_ = writeAll(file_.get(), unsaved_);
    if (error_ != 0 && !resumed_)
        remove(); // it may lack its first line
    unsaved_.clear();
    unsavedFiles_ = 0;
    return error_;
}

void Checkpoint::remove() {
    entry_.removeIfSame(file_.get());
}

} // namespace cli
