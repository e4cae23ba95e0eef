#include "cli/files/atomic_output.h"

#include "cli/process/error.h"
#include "cli/process/signals.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace cli {

namespace {

// With the slash; empty for the current directory.
std::string directoryOf(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1); // npos + 1 is 0
}

mode_t modeOfNewFiles() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

} // namespace

void requireRegular(const std::string& path) {
    struct stat status {};
    const bool exists = ::stat(path.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))
        throw Error(path + ": is no regular file");
}

AtomicOutput::AtomicOutput(const std::string& path, bool toBeWritten)
    : path_(path), target_(path), identity_(path) {
    struct stat link {};
    exists_ = ::stat(path.c_str(), &status_) == 0;
    // Links to pipes, as in /dev/fd, lead to no path; they are written to where they stand.
    if (!isInPlace() && ::lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
        target_ = resolved(path);
        exists_ = ::stat(target_.c_str(), &status_) == 0;
    }
    if (!exists_ && (errno != ENOENT || target_.empty() || target_.ends_with('/')))
        fail(errno);
    if (exists_ && S_ISDIR(status_.st_mode))
        fail(EISDIR);
    if (toBeWritten)
        requirePermission();
}

void AtomicOutput::requirePermission() const {
    // The rename alone would pass over a file's own write protection.
    if (exists_ && ::access(target_.c_str(), W_OK) != 0)
        fail(errno);
    const std::string directory = directoryOf(target_);
    if (!isInPlace() && ::access(directory.empty() ? "." : directory.c_str(), W_OK | X_OK) != 0)
        fail(errno);
}

bool AtomicOutput::isInPlace() const {
    return exists_ && !S_ISREG(status_.st_mode);
}

void AtomicOutput::fail(int errorNumber) const {
    throw Error(path_, errorNumber);
}

void AtomicOutput::createTemporary() {
    std::string name = directoryOf(target_) + ".pelorik-XXXXXX";
    file_ = Descriptor(::mkostemp(name.data(), O_CLOEXEC));
    if (!file_)
        fail(errno);
    temporary_ = name;
    keepOwnership();
}

void AtomicOutput::keepOwnership() const {
    if (exists_ && ::fchown(file_.get(), status_.st_uid, status_.st_gid) != 0 && errno != EPERM)
        fail(errno);
    if (::fchmod(file_.get(), exists_ ? status_.st_mode & 0777 : modeOfNewFiles()) != 0)
        fail(errno);
}

void AtomicOutput::write(std::string_view content) {
    int error = writeAll(file_.get(), content);
    if (error == 0 && ::fsync(file_.get()) != 0 && !isInPlace())
        error = errno;
    const int closeError = file_.close();
    if (error == EINTR)
        throw Interrupted();
    if (error != 0 || closeError != 0)
        fail(error != 0 ? error : closeError);
}

// At a named pipe it waits for the reader.
void AtomicOutput::openInPlace() {
    do {
        stopIfInterrupted();
        file_ = Descriptor(::open(target_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
    } while (!file_ && errno == EINTR);
    if (!file_)
        fail(errno);
}

void AtomicOutput::commit(std::string_view content, const Inspect& inspect) {
    if (isInPlace()) {
        openInPlace();
        write(content);
        return;
    }
    const SignalsBlocked blocked;
    try {
        replace(content, inspect);
    } catch (...) {
        removeTemporary();
        throw;
    }
}

void AtomicOutput::replace(std::string_view content, const Inspect& inspect) {
    createTemporary();
    write(content);
    if (inspect)
        inspect(temporary_);
    if (::rename(temporary_.c_str(), target_.c_str()) != 0)
        fail(errno);
    temporary_.clear();
}

void AtomicOutput::removeTemporary() {
    if (!temporary_.empty())
        ::unlink(temporary_.c_str());
}

} // namespace cli
