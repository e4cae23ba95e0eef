#include "cli/held_lock.h"

#include "cli/descriptor.h"
#include "cli/failure.h"

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
    throw Failure("cannot lock '" + name + "': " + errorText(error) +
                  (noDirectory ? " (the directory /run/vpnagent is missing)" : ""));
}

} // namespace

HeldLock::HeldLock(SCChecker checker, bool wasThere)
    : checker_(std::move(checker)), wasThere_(wasThere) {}

HeldLock::HeldLock(HeldLock&& other) noexcept
    : checker_(std::move(other.checker_)), wasThere_(other.wasThere_) {
    other.checker_.fd = -1;
}

HeldLock::~HeldLock() {
    if (checker_.fd < 0)
        return;
    if (areSame(statusOf(checker_.path), statusOf(checker_.fd)))
        std::remove(checker_.path.c_str());
    close(checker_.fd);
}

std::optional<HeldLock> HeldLock::tryToTake(const std::string& name) {
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
            return HeldLock(std::move(checker), areSame(before, locked));
        close(checker.fd); // its last holder has removed it
    }
}

} // namespace cli
