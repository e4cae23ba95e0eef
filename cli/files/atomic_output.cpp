#include "cli/files/atomic_output.h"

#include "cli/files/file_attributes.h"
#include "cli/process/error.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <random>
#include <unistd.h>
#include <utility>

namespace cli {

namespace {

bool areSame(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino &&
           (left.st_mode & S_IFMT) == (right.st_mode & S_IFMT) && left.st_rdev == right.st_rdev;
}

bool areSameTimes(const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

// An error of fsync for what has no storage, such as a FIFO.
bool isNothingToSynchronize(int error) {
    return error == EINVAL || error == EROFS || error == ENOTSUP;
}

// Writes everything that `produce` adds, in large blocks. Returns 0 or the error number.
int writeProduced(int descriptor, const AtomicOutput::Produce& produce) {
    constexpr std::size_t kBlock = 65536;
    std::string block;
    int error = 0;
    produce([&](std::string_view piece) {
        block += piece;
        if (block.size() < kBlock || error != 0)
            return;
        error = writeAll(descriptor, block);
        block.clear();
    });
    return error != 0 ? error : writeAll(descriptor, block);
}

std::string temporaryName() {
    constexpr std::string_view kDigits = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::random_device random;
    std::uniform_int_distribution<std::size_t> digit(0, kDigits.size() - 1);
    std::string name = ".pelorik-";
    std::generate_n(std::back_inserter(name), 6, [&] { return kDigits[digit(random)]; });
    return name;
}

} // namespace

AtomicOutput::AtomicOutput(const std::string& path, Use use)
    : path_(path), use_(use), entry_(DirectoryEntry::find(path)) {
    if (const auto found = entry_.status())
        openExisting(found->st_mode & S_IFMT);
    else if (use != Use::kCreate)
        fail(ENOENT);
    if (use != Use::kRead && !isInPlace_ && !entry_.isDirectoryAccessible(W_OK | X_OK))
        fail(errno);
}

void AtomicOutput::openExisting(mode_t type) {
    if (type == S_IFDIR)
        fail(EISDIR);
    if (type == S_IFREG)
        openRegular();
    else if (use_ == Use::kCreate)
        openSpecial();
    else
        throw Error(path_ + ": not a regular file");
    if (::fstat(file_.get(), &status_) != 0)
        fail(errno);
    if ((status_.st_mode & S_IFMT) != type)
        failAsChanged();
    if (!isInPlace_ && use_ != Use::kRead)
        requireReplaceable(file_.get(), path_);
}

void AtomicOutput::openRegular() {
    file_ = use_ == Use::kRead ? entry_.open(O_RDONLY | O_NONBLOCK) : entry_.openLocked(O_RDWR);
    if (!file_ && errno == EACCES && use_ == Use::kCreate)
        file_ = entry_.openLocked(O_WRONLY); // nobody has to read what is replaced
    if (!file_)
        fail(errno);
}

// Opening a device or FIFO for writing has effects, and is left to `commit`.
void AtomicOutput::openSpecial() {
    file_ = entry_.open(O_PATH);
    if (!file_ || !entry_.isAccessible(W_OK))
        fail(errno);
    isInPlace_ = true;
}

void AtomicOutput::fail(int errorNumber) const {
    throw Error(path_, errorNumber);
}

void AtomicOutput::failAsChanged() const {
    throw Error(path_ + ": changed by another process meanwhile, not written");
}

void AtomicOutput::commit(std::string_view content, const Inspect& inspect) {
    commit([&](const Add& add) { add(content); }, inspect);
}

void AtomicOutput::commit(const Produce& produce, const Inspect& inspect) {
    if (isInPlace_) {
        writeInPlace(produce);
        return;
    }
    const SignalsBlocked blocked;
    try {
        createTemporary();
        writeTemporary(produce, inspect);
        requireUnchanged();
        replace();
    } catch (...) {
        removeTemporary();
        throw;
    }
    synchronizeDirectory();
}

// A new file gets the permissions of any new file; those of one that replaces another come last.
void AtomicOutput::createTemporary() {
    constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    do {
        temporaryName_ = temporaryName();
        temporary_ = Descriptor(
            ::openat(entry_.directory(), temporaryName_.c_str(), kFlags, file_ ? 0600 : 0666));
    } while (!temporary_ && errno == EEXIST);
    if (!temporary_)
        fail(errno);
}

void AtomicOutput::removeTemporary() {
    struct stat named {};
    struct stat opened {};
    if (temporary_ && ::fstat(temporary_.get(), &opened) == 0 &&
        ::fstatat(entry_.directory(), temporaryName_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
        areSame(named, opened))
        ::unlinkat(entry_.directory(), temporaryName_.c_str(), 0);
}

void AtomicOutput::writeTemporary(const Produce& produce, const Inspect& inspect) {
    if (const int error = writeProduced(temporary_.get(), produce); error != 0)
        fail(error);
    if (file_)
        copyAttributes(file_.get(), temporary_.get(), path_);
    if (::fsync(temporary_.get()) != 0)
        fail(errno);
    if (!inspect)
        return;
    if (::lseek(temporary_.get(), 0, SEEK_SET) != 0)
        fail(errno);
    inspect(FileSource::copyOf(temporary_.get()));
}

void AtomicOutput::requireUnchanged() const {
    const auto now = entry_.status();
    const bool isSame = now ? file_ && isExpected(*now) : !file_;
    const bool isEdited = now && use_ == Use::kEdit && !areSameTimes(now->st_ctim, status_.st_ctim);
    if (!isSame || isEdited)
        failAsChanged();
}

// The ctime is left out, because renaming changes it.
bool AtomicOutput::isExpected(const struct stat& status) const {
    return areSame(status, status_) &&
           (use_ != Use::kEdit ||
            (status.st_size == status_.st_size && areSameTimes(status.st_mtim, status_.st_mtim)));
}

// Exchanges the files where the file system can: nothing is lost then if another process has put
// its own file there since the last look.
void AtomicOutput::replace() {
    int error = entry_.rename(temporaryName_, file_ ? RENAME_EXCHANGE : RENAME_NOREPLACE);
    if (error == EINVAL || error == ENOSYS)
        error = entry_.rename(temporaryName_, 0);
    else if (error == EEXIST || error == ENOENT)
        failAsChanged();
    else if (error == 0 && file_)
        removeDisplaced();
    if (error != 0)
        fail(error);
}

void AtomicOutput::removeDisplaced() {
    const int directory = entry_.directory();
    const char* const name = temporaryName_.c_str();
    struct stat displaced {};
    int error = ::fstatat(directory, name, &displaced, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
    const bool isChanged = error == 0 && !isExpected(displaced);
    if (error == 0 && !isChanged)
        error = ::unlinkat(directory, name, 0) == 0 ? 0 : errno;
    if (error == 0 && !isChanged)
        return;
    entry_.rename(temporaryName_, RENAME_EXCHANGE);
    isChanged ? failAsChanged() : fail(error);
}

// Without this, a crash of the system could bring the old file back.
void AtomicOutput::synchronizeDirectory() const {
    const Descriptor directory(
        ::openat(entry_.directory(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory || ::fsync(directory.get()) == 0)
        return; // a directory that the user may not read cannot be synchronized
    if (!isNothingToSynchronize(errno))
        throw Error(path_ + ": written, but its directory could not be synchronized", errno);
}

// Waits for the reader of a FIFO.
void AtomicOutput::writeInPlace(const Produce& produce) {
    Descriptor file = entry_.open(O_WRONLY);
    struct stat opened {};
    if (!file || ::fstat(file.get(), &opened) != 0)
        fail(errno);
    if (!areSame(opened, status_))
        failAsChanged();
    int error = writeProduced(file.get(), produce);
    if (error == EINTR)
        throw Interrupted();
    if (error == 0 && ::fsync(file.get()) != 0 && !isNothingToSynchronize(errno))
        error = errno;
    if (const int closeError = file.close(); error == 0)
        error = closeError;
    if (error != 0)
        fail(error);
}

} // namespace cli
