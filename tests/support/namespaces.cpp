#include "tests/support/namespaces.h"

#include "tests/support/child.h"

#include <cerrno>
#include <fstream>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

namespace {

bool write(const char* path, const std::string& text) {
    std::ofstream out(path);
    out << text << std::flush;
    return out.good();
}

bool becomeRootOfUserNamespace() {
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    return unshare(CLONE_NEWUSER) == 0 && write("/proc/self/setgroups", "deny") &&
           write("/proc/self/uid_map", "0 " + user + " 1") &&
           write("/proc/self/gid_map", "0 " + group + " 1");
}

// Tries in a child first, because a half-made user namespace has no way back.
bool canBecomeRootOfUserNamespace() {
    return support::inChild([] { return becomeRootOfUserNamespace() ? 0 : 1; }) == 0;
}

} // namespace

bool support::enterNewNamespaces(int flags) {
    if (unshare(flags) == 0)
        return true;
    return errno == EPERM && canBecomeRootOfUserNamespace() && becomeRootOfUserNamespace() &&
           unshare(flags) == 0;
}

bool support::haveOwnRunDirectory() {
    static const bool have = enterNewNamespaces(CLONE_NEWNS) &&
                             mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0 &&
                             mount("none", "/var/run", "tmpfs", 0, "mode=0755") == 0;
    return have;
}
