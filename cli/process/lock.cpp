#include "cli/process/lock.h"

#include "cli/files/descriptor.h"
#include "cli/process/error.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace cli {

namespace {

constexpr char kDirectory[] = "/var/run/vpnagent/";

using Status = struct stat;

// All zeros when there is no such file.
Status statusOf(const std::string& path) {
    Status status{};
    if (stat(path.c_str(), &status) != 0)
        status = Status{};
    return status;
}

Status statusOf(int descriptor) {
    Status status{};
    if (fstat(descriptor, &status) != 0)
        status = Status{};
    return status;
}

bool areSame(const Status& left, const Status& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

[[noreturn]] void fail(const std::string& name, int error) {
    const bool noDirectory = error == ENOENT;
    throw Error("cannot lock '" + name + "': " + errorText(error) +
                (noDirectory ? " (the directory /run/vpnagent is missing)" : ""));
}

} // namespace

Lock::Lock(SCChecker checker, bool wasThere) : checker_(std::move(checker)), wasThere_(wasThere) {}

Lock::Lock(Lock&& other) noexcept
    : checker_(std::move(other.checker_)), wasThere_(other.wasThere_) {
    other.checker_.fd = -1;
}

Lock::~Lock() {
    if (checker_.fd < 0)
        return;
    if (areSame(statusOf(checker_.path), statusOf(checker_.fd)))
        std::remove(checker_.path.c_str());
    close(checker_.fd);
}

std::optional<Lock> Lock::tryToTake(const std::string& name) {
    for (;;) {
        // The library's own answer to this is of use to root only. As long as a descriptor keeps
        // the file, no new one can get its number; this kind takes no lock along when it closes.
        const Descriptor found(open((kDirectory + name).c_str(), O_PATH | O_CLOEXEC));
        const Status before = statusOf(found.get());
        SCChecker checker;
        if (!checker.lock(name.c_str())) {
            if (errno == EAGAIN)
                return std::nullopt;
            fail(name, errno);
        }
        const Status locked = statusOf(checker.fd);
        if (areSame(statusOf(checker.path), locked))
            return Lock(std::move(checker), areSame(before, locked));
        close(checker.fd); // its last holder has removed it
    }
}

} // namespace cli
