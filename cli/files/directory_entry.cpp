#include "cli/files/directory_entry.h"

#include "cli/files/file_identity.h"
#include "cli/process/error.h"
#include "cli/process/signals.h"

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/vfs.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace cli {

namespace {

using Status = struct stat;

constexpr std::chrono::seconds kLongestWait(10);
constexpr std::chrono::milliseconds kBetweenAttempts(20);
constexpr int kMostLinks = 40; // as the kernel's limit
constexpr int kDirectoryFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

void pause() {
    std::this_thread::sleep_for(kBetweenAttempts);
    stopIfInterrupted();
}

// Every user who may write to it can add files, but not replace those of others.
bool isSharedSticky(const Status& directory) {
    return (directory.st_mode & S_ISVTX) != 0 && (directory.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

// Throws `Error` about `path` when a file in `directory` does not count.
void requireTrusted(int directory, const Status& file, const std::string& path) {
    Status status{};
    if (::fstat(directory, &status) != 0)
        throw Error(path, errno);
    if (isSharedSticky(status) && file.st_uid != ::geteuid() && file.st_uid != status.st_uid)
        throw Error(path + ": owned by another user in a sticky directory");
}

bool isInProc(int directory) {
    struct statfs system {};
    return ::fstatfs(directory, &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

} // namespace

// Walks along a path as the kernel does, but looks at each link before it follows it.
class EntryFinder {
public:
    explicit EntryFinder(const std::string& path) : path_(path) { begin(path); }

    DirectoryEntry find() {
        if (path_.empty())
            fail(ENOENT);
        for (;;) {
            const std::string name = nextName();
            const std::optional<Status> status = look(name);
            if (status && S_ISLNK(status->st_mode)) {
                if (follow(name, *status))
                    return {std::move(directory_), name, path_, true};
            } else if (names_.empty()) {
                requireExpected(status);
                if (!status && links_ > 0)
                    fail(ENOENT); // a link that leads nowhere is not completed
                return {std::move(directory_), name, shownPath(name), false};
            } else {
                enter(name, O_NOFOLLOW);
            }
        }
    }

private:
    [[noreturn]] void fail(int error) const { throw Error(path_, error); }

    // Puts the names in `path`, which replaces a name, before those that are still to come.
    void begin(const std::string& path) {
        if (path.starts_with('/')) {
            directory_ = Descriptor(::open("/", kDirectoryFlags));
            walked_ = "/";
        } else if (!directory_) {
            directory_ = Descriptor(::open(".", kDirectoryFlags));
        }
        if (!directory_)
            fail(errno);
        if (path.ends_with('/'))
            names_.emplace_back("."); // demands a directory
        for (std::size_t end = path.size(); end > 0;) {
            const std::size_t slash = path.rfind('/', end - 1);
            const std::size_t start = slash + 1; // npos + 1 is 0
            if (start < end)
                names_.push_back(path.substr(start, end - start));
            end = slash == std::string::npos ? 0 : slash;
        }
    }

    std::string nextName() {
        if (names_.empty())
            return "."; // of a root
        std::string name = std::move(names_.back());
        names_.pop_back();
        return name;
    }

    std::optional<Status> look(const std::string& name) const {
        Status status{};
        if (::fstatat(directory_.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
            return status;
        if (errno != ENOENT || !names_.empty())
            fail(errno);
        return std::nullopt;
    }

    void enter(const std::string& name, int flags) {
        directory_ = Descriptor(::openat(directory_.get(), name.c_str(), kDirectoryFlags | flags));
        if (!directory_)
            fail(errno);
        walked_ += name + "/";
    }

    // Returns true for a magic link that leads to no path.
    bool follow(const std::string& name, const Status& link) {
        requireTrusted(directory_.get(), link, path_);
        if (++links_ > kMostLinks)
            fail(ELOOP);
        if (isInProc(directory_.get()))
            return followMagic(name);
        begin(textOf(name));
        return false;
    }

    // Links in /proc lead to open files whatever their text says.
    bool followMagic(const std::string& name) {
        if (!names_.empty()) {
            enter(name, 0);
            return false;
        }
        Status status{};
        if (::fstatat(directory_.get(), name.c_str(), &status, 0) != 0)
            fail(errno);
        if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))
            return true;
        begin(textOf(name));
        expected_ = status;
        return false;
    }

    std::string textOf(const std::string& link) const {
        std::string text(PATH_MAX, '\0');
        const ssize_t length =
            ::readlinkat(directory_.get(), link.c_str(), text.data(), text.size());
        if (length < 0)
            fail(errno);
        text.resize(static_cast<std::size_t>(length));
        if (text.empty())
            fail(ENOENT);
        return text;
    }

    // The path in a magic link may lead to another file by now, or to none.
    void requireExpected(const std::optional<Status>& found) const {
        if (expected_ &&
            (!found || found->st_dev != expected_->st_dev || found->st_ino != expected_->st_ino))
            fail(ENOENT);
    }

    std::string shownPath(const std::string& name) const {
        if (links_ == 0)
            return path_;
        const std::string directory = resolved(walked_.empty() ? "." : walked_);
        return directory.empty() ? path_ : directory + (directory == "/" ? "" : "/") + name;
    }

    std::string path_;
    Descriptor directory_;
    std::string walked_;             // the path of the directory
    std::vector<std::string> names_; // that are still to come, the last one first
    int links_ = 0;
    std::optional<Status> expected_;
};

DirectoryEntry::DirectoryEntry(Descriptor directory, std::string name, std::string path,
                               bool isMagic)
    : directory_(std::move(directory)), name_(std::move(name)), path_(std::move(path)),
      isMagic_(isMagic) {}

DirectoryEntry DirectoryEntry::find(const std::string& path) {
    return EntryFinder(path).find();
}

DirectoryEntry DirectoryEntry::withSuffix(const std::string& suffix) const {
    Descriptor directory(::fcntl(directory_.get(), F_DUPFD_CLOEXEC, 0));
    if (!directory)
        throw Error(path_, errno);
    return {std::move(directory), name_ + suffix, path_ + suffix, false};
}

std::optional<struct stat> DirectoryEntry::status() const {
    Status status{};
    const int flags = isMagic_ ? 0 : AT_SYMLINK_NOFOLLOW;
    if (::fstatat(directory_.get(), name_.c_str(), &status, flags) == 0) {
        requireTrusted(status);
        return status;
    }
    if (errno != ENOENT)
        throw Error(path_, errno);
    return std::nullopt;
}

void DirectoryEntry::requireTrusted(const struct stat& status) const {
    cli::requireTrusted(directory_.get(), status, path_);
}

bool DirectoryEntry::isAccessible(int mode) const {
    return ::faccessat(directory_.get(), name_.c_str(), mode, 0) == 0;
}

bool DirectoryEntry::isDirectoryAccessible(int mode) const {
    return ::faccessat(directory_.get(), ".", mode, 0) == 0;
}

Descriptor DirectoryEntry::open(int flags, mode_t mode) const {
    flags |= O_CLOEXEC | O_NOCTTY | (isMagic_ ? 0 : O_NOFOLLOW);
    for (;;) {
        Descriptor opened(::openat(directory_.get(), name_.c_str(), flags, mode));
        if (opened || (errno != EAGAIN && errno != EINTR))
            return opened;
        pause(); // another process has to give up its lease first
    }
}

Descriptor DirectoryEntry::openLocked(int flags, mode_t mode) const {
    const auto end = std::chrono::steady_clock::now() + kLongestWait;
    for (;;) {
        Descriptor file = open((flags & ~O_CREAT) | O_NONBLOCK);
        const bool isNew = !file && errno == ENOENT && (flags & O_CREAT) != 0;
        if (isNew)
            file = open(flags | O_NONBLOCK | O_EXCL, mode);
        if (isNew && !file && errno == EEXIST)
            continue;
        if (!file)
            return file;
        if (!isNew)
            requireTrustedFile(file.get());
        if (const int error = lock(file.get(), end); error != 0) {
            if (isNew)
                ::unlinkat(directory_.get(), name_.c_str(), 0);
            throw Error(path_ + ": cannot be locked", error);
        }
        if (isSame(file.get()))
            return file;
        stopIfInterrupted(); // the process that held the lock has replaced or removed the file
    }
}

void DirectoryEntry::requireTrustedFile(int file) const {
    Status status{};
    if (::fstat(file, &status) != 0)
        throw Error(path_, errno);
    if (!S_ISREG(status.st_mode))
        throw Error(path_ + ": not a regular file");
    requireTrusted(status);
}

// Returns 0 or the error number.
int DirectoryEntry::lock(int file, std::chrono::steady_clock::time_point end) const {
    while (::flock(file, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            return errno;
        if (std::chrono::steady_clock::now() >= end)
            throw Error(path_ + ": locked by another process");
        pause();
    }
    return 0;
}

bool DirectoryEntry::isSame(int descriptor) const {
    Status named{};
    Status opened{};
    return ::fstatat(directory_.get(), name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           ::fstat(descriptor, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

int DirectoryEntry::rename(const std::string& name, unsigned flags) const {
    const int directory = directory_.get();
    return ::renameat2(directory, name.c_str(), directory, name_.c_str(), flags) == 0 ? 0 : errno;
}

void DirectoryEntry::removeIfSame(int descriptor) const {
    if (isSame(descriptor))
        ::unlinkat(directory_.get(), name_.c_str(), 0);
}

} // namespace cli
