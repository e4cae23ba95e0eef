// Namespaces of the kernel in which a test may change the network or the mounted file systems.

#ifndef PELORIK_TESTS_SUPPORT_NAMESPACES_H
#define PELORIK_TESTS_SUPPORT_NAMESPACES_H

namespace support {

// Moves the calling thread, and what it starts from now on, into new namespaces of the kinds in
// `flags` (CLONE_NEWNET, CLONE_NEWNS). A caller without CAP_SYS_ADMIN becomes root of a user
// namespace first, if the kernel allows it. Returns false on failure.
bool enterNewNamespaces(int flags);

// Gives this process, at the first call, a /var/run of its own. Returns whether it has one.
bool haveOwnRunDirectory();

// Reasons of a skip after one of these has failed.
inline constexpr char kNoNamespaces[] = "needs CAP_SYS_ADMIN or unprivileged user namespaces";
inline constexpr char kNoRunDirectory[] =
    "needs a mount namespace (CAP_SYS_ADMIN or unprivileged user namespaces), "
    "tmpfs, and a root directory that is a mount point (no chroot)";

} // namespace support

#endif
