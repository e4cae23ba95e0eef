#include "tests/support/leak_check.h"

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <sys/wait.h>

namespace {

bool hasChildren() {
    const pid_t child = waitpid(-1, nullptr, WNOHANG);
    return child != -1 || errno != ECHILD;
}

} // namespace

int support::openDescriptors() {
    int count = 0;
    DIR* const directory = opendir("/proc/self/fd");
    if (directory == nullptr)
        return -1;
    while (readdir(directory) != nullptr)
        ++count;
    closedir(directory);
    return count;
}

bool support::LeakCheck::found() const {
    const bool descriptors = openDescriptors() != descriptors_;
    if (descriptors)
        std::fputs("leak check: the program left a descriptor open\n", stderr);
    const bool children = hasChildren();
    if (children)
        std::fputs("leak check: the program left a child process\n", stderr);
    return descriptors || children;
}
