// Loads and saves in a static initialiser. The first object of its program, without <iostream>, so
// that nothing has created the standard streams before.

#include "tests/config/early_failures.h"

#include "config/vpnxml.h"

#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// What `action` writes to standard error, past the streams that may not exist yet.
template<class Action>
std::string standardErrorOf(Action action) {
    const int memory = memfd_create("stderr", MFD_CLOEXEC);
    const int before = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    dup2(memory, STDERR_FILENO);
    action();
    dup2(before, STDERR_FILENO);
    char text[512];
    const ssize_t length = pread(memory, text, sizeof text, 0);
    close(before);
    close(memory);
    return std::string(text, length < 0 ? 0 : static_cast<std::size_t>(length));
}

const char kMalformed[] = "/dev/null";
const char kMissing[] = "/nonexistent/file";

} // namespace

const std::string early::reports = standardErrorOf([] {
    XMLDocument document("cfg", true);
    document.Load(kMissing);
    document.Save(kMissing, false);
    document.Load(kMalformed);
});
