// Puts another file in the place of one while the tool runs, when this is loaded before everything
// else: what an attacker does who may write to the directory and is quick.
//
// PELORIK_SWAP is "NUMBER FROM TO": before the NUMBERth call with a path that holds the last name
// of TO, FROM and TO are exchanged, or FROM is renamed when there is no TO. A test that tries all
// numbers tries all moments.

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<long> callsLeft{0};
char from[4096];
char to[4096];

bool isSwapped(std::string_view path) {
    const std::string_view name = std::string_view(to).substr(std::string_view(to).rfind('/') + 1);
    while (!path.empty()) {
        const std::size_t length = std::min(path.find('/'), path.size());
        if (path.substr(0, length) == name)
            return true;
        path.remove_prefix(std::min(length + 1, path.size()));
    }
    return false;
}

void look(const char* path) {
    if (callsLeft == 0 || !isSwapped(path) || --callsLeft != 0)
        return;
    if (syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, RENAME_EXCHANGE) != 0)
        syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0);
}

[[gnu::constructor]] void readOrder() {
    const char* const order = std::getenv("PELORIK_SWAP");
    long number = 0;
    if (order != nullptr && std::sscanf(order, "%ld %4095s %4095s", &number, from, to) == 3)
        callsLeft = number;
}

template<class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

mode_t modeOf(int flags, va_list arguments) {
    return (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(arguments, unsigned)) : 0;
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    look(path);
    return next<int(const char*, int, mode_t)>("open")(path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    look(path);
    return next<int(int, const char*, int, mode_t)>("openat")(directory, path, flags, mode);
}

int stat(const char* path, struct stat* status) noexcept {
    look(path);
    return next<int(const char*, struct stat*)>("stat")(path, status);
}

int lstat(const char* path, struct stat* status) noexcept {
    look(path);
    return next<int(const char*, struct stat*)>("lstat")(path, status);
}

int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
    look(path);
    return next<int(int, const char*, struct stat*, int)>("fstatat")(directory, path, status,
                                                                     flags);
}

ssize_t readlinkat(int directory, const char* path, char* text, std::size_t size) noexcept {
    look(path);
    return next<ssize_t(int, const char*, char*, std::size_t)>("readlinkat")(directory, path, text,
                                                                             size);
}

char* realpath(const char* path, char* out) noexcept {
    look(path);
    return next<char*(const char*, char*)>("realpath")(path, out);
}

int access(const char* path, int mode) noexcept {
    look(path);
    return next<int(const char*, int)>("access")(path, mode);
}

int faccessat(int directory, const char* path, int mode, int flags) noexcept {
    look(path);
    return next<int(int, const char*, int, int)>("faccessat")(directory, path, mode, flags);
}

int unlink(const char* path) noexcept {
    look(path);
    return next<int(const char*)>("unlink")(path);
}

int unlinkat(int directory, const char* path, int flags) noexcept {
    look(path);
    return next<int(int, const char*, int)>("unlinkat")(directory, path, flags);
}

int rename(const char* source, const char* target) noexcept {
    look(target);
    return next<int(const char*, const char*)>("rename")(source, target);
}

int renameat(int sourceDirectory, const char* source, int targetDirectory,
             const char* target) noexcept {
    look(target);
    return next<int(int, const char*, int, const char*)>("renameat")(sourceDirectory, source,
                                                                     targetDirectory, target);
}

int renameat2(int sourceDirectory, const char* source, int targetDirectory, const char* target,
              unsigned flags) noexcept {
    look(target);
    return next<int(int, const char*, int, const char*, unsigned)>("renameat2")(
        sourceDirectory, source, targetDirectory, target, flags);
}
}
#pragma GCC visibility pop
