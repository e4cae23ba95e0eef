#include "system/scchecker.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char kLockDirectory[] = "/var/run/vpnagent/";

bool isReadable(const char* path) {
    std::FILE* const file = std::fopen(path, "rb");
    if (file == nullptr)
        return false;
    std::fclose(file);
    return true;
}

// Sets `path` to that of the lock `name`. Returns false, with `path` unchanged, without memory.
bool setPath(std::string& path, const char* name) {
    try {
        path = std::string(kLockDirectory) + (name == nullptr ? "" : name);
        return true;
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return false;
    }
}

} // namespace

bool SCChecker::lock(const char* name) {
    fd = -1;
    if (!setPath(path, name))
        return false;
    wasAbsent = !isReadable(path.c_str());
    fd = creat(path.c_str(), S_IWUSR);
    if (fd < 0)
        return false;
    if (lockf(fd, F_TLOCK, 0) == 0)
        return true;
    const int error = errno;
    close(fd);
    fd = -1;
    errno = error;
    return false;
}

void SCChecker::unlock() {
    if (fd < 0)
        return;
    close(fd);
    std::remove(path.c_str());
}
