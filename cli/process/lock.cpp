#include "cli/process/lock.h"

#include "cli/process/error.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace cli {

namespace {

constexpr char kDirectory[] = "/var/run/vpnagent/";

// Flags that neither follow a link nor wait for a FIFO.
constexpr int kOpenFlags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Sets or clears a lock of the whole file. Unlike a `lockf` lock it belongs to the open file, which
// child processes inherit; the two kinds exclude each other.
bool setLock(int descriptor, short type) {
    struct flock whole {};
    whole.l_type = type;
    whole.l_whence = SEEK_SET;
    return ::fcntl(descriptor, F_OFD_SETLK, &whole) == 0;
}

bool isAt(const std::string& path, int descriptor) {
    struct stat named {};
    struct stat opened {};
    return ::lstat(path.c_str(), &named) == 0 && ::fstat(descriptor, &opened) == 0 &&
           named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

bool isRegular(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

[[noreturn]] void fail(const std::string& name, const std::string& reason) {
    throw Error("cannot lock '" + name + "': " + reason);
}

[[noreturn]] void fail(const std::string& name, int error) {
    if (error == ENXIO) // a FIFO that nobody reads, or a socket
        fail(name, "not a regular file");
    fail(name,
         errorText(error) + (error == ENOENT ? " (the directory /run/vpnagent is missing)" : ""));
}

} // namespace

Lock::Lock(std::string path, Descriptor file, bool wasThere)
    : path_(std::move(path)), file_(std::move(file)), wasThere_(wasThere) {}

Lock::~Lock() {
    if (!file_)
        return;
    if (isAt(path_, file_.get()))
        ::unlink(path_.c_str());
    setLock(file_.get(), F_UNLCK); // descendants of the command may keep the open file
}

std::optional<Lock> Lock::tryToTake(const std::string& name) {
    const std::string path = kDirectory + name;
    for (;;) {
        Descriptor file(::open(path.c_str(), kOpenFlags));
        const bool wasThere = static_cast<bool>(file);
        if (!file && errno == ENOENT)
            file = Descriptor(::open(path.c_str(), kOpenFlags | O_CREAT | O_EXCL, S_IWUSR));
        if (!file && errno == EEXIST)
            continue; // another process was faster
        if (!file)
            fail(name, errno);
        if (!isRegular(file.get()))
            fail(name, "not a regular file");
        if (!setLock(file.get(), F_WRLCK)) {
            if (errno == EAGAIN || errno == EACCES)
                return std::nullopt;
            fail(name, errno);
        }
        if (isAt(path, file.get()))
            return Lock(path, std::move(file), wasThere);
        // Its last holder has removed it.
    }
}

} // namespace cli
