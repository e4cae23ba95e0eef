// Namespaces of the kernel in which a test may do what it likes to the network or the file system.

#ifndef PELORIK_TESTS_SUPPORT_NAMESPACES_H
#define PELORIK_TESTS_SUPPORT_NAMESPACES_H

namespace support {

// Moves the calling thread, and what it starts from now on, into new namespaces of the kinds that
// `flags` (CLONE_NEWNET, CLONE_NEWNS) names. A user who is not root becomes root of a user
// namespace first, where the kernel allows it. Returns false, with errno, when it cannot be had.
bool enterNewNamespaces(int flags);

// Gives this process, at the first call, a /var/run of its own. Returns whether it has one.
bool haveOwnRunDirectory();

// Why a test is skipped when one of these has failed.
inline constexpr char kNoNamespaces[] = "needs root, or a kernel that gives users namespaces";

} // namespace support

#endif
