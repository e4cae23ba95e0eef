// Lets a test step in where the tool reads a file, when this is loaded before everything else.
//
// PELORIK_WATCHED is the file. PELORIK_BAD_OFFSET makes reads of it fail with EIO from that offset
// on. PELORIK_STOP_AT stops the process with SIGSTOP: "open" before it is opened, "read" after the
// first read. PELORIK_COUNTS is a file for the number of calls of memcmp, and of each call that
// concerned the watched file, at the end of the process.

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

template<class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

struct Counts {
    unsigned long comparisons = 0;
    unsigned long looks = 0;
    unsigned long opens = 0;
    unsigned long reads = 0;
    unsigned long descriptorLooks = 0;
    unsigned long closes = 0;
};
Counts counts;

const char* settingOf(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

bool isWatched(const char* path) {
    const char* const watched = settingOf("PELORIK_WATCHED");
    return *watched != '\0' && std::string_view(watched) == path;
}

bool isWatched(int descriptor) {
    const char* const watched = settingOf("PELORIK_WATCHED");
    struct stat wanted {};
    struct stat status {};
    return *watched != '\0' &&
           next<int(const char*, struct stat*)>("stat")(watched, &wanted) == 0 &&
           next<int(int, struct stat*)>("fstat")(descriptor, &status) == 0 &&
           wanted.st_dev == status.st_dev && wanted.st_ino == status.st_ino;
}

void stopAt(std::string_view where) {
    if (where == settingOf("PELORIK_STOP_AT")) {
        unsetenv("PELORIK_STOP_AT");
        raise(SIGSTOP);
    }
}

// Returns how many of `size` bytes from `offset` on can be read.
std::size_t readable(off_t offset, std::size_t size) {
    const char* const bad = settingOf("PELORIK_BAD_OFFSET");
    if (*bad == '\0')
        return size;
    const off_t left = std::atol(bad) - offset;
    if (left <= 0)
        return 0;
    return static_cast<std::size_t>(left) < size ? static_cast<std::size_t>(left) : size;
}

[[gnu::destructor]] void writeCounts() {
    const char* const path = settingOf("PELORIK_COUNTS");
    std::FILE* const file = *path == '\0' ? nullptr : std::fopen(path, "w");
    if (file == nullptr)
        return;
    std::fprintf(file, "memcmp %lu\nstat %lu\nopen %lu\nread %lu\nfstat %lu\nclose %lu\n",
                 counts.comparisons, counts.looks, counts.opens, counts.reads,
                 counts.descriptorLooks, counts.closes);
    std::fclose(file);
}

int compare(const void* left, const void* right, std::size_t size) {
    ++counts.comparisons;
    const volatile auto* const a = static_cast<const unsigned char*>(left);
    const volatile auto* const b = static_cast<const unsigned char*>(right);
    for (std::size_t i = 0; i < size; ++i) {
        if (a[i] != b[i])
            return a[i] < b[i] ? -1 : 1;
    }
    return 0;
}

} // namespace

#define PELORIK_INTERPOSED __attribute__((visibility("default")))

extern "C" {

PELORIK_INTERPOSED int memcmp(const void* left, const void* right, std::size_t size) noexcept {
    return compare(left, right, size);
}

PELORIK_INTERPOSED int bcmp(const void* left, const void* right, std::size_t size) noexcept {
    return compare(left, right, size);
}

PELORIK_INTERPOSED int stat(const char* path, struct stat* status) noexcept {
    if (isWatched(path))
        ++counts.looks;
    return next<int(const char*, struct stat*)>("stat")(path, status);
}

PELORIK_INTERPOSED int fstat(int descriptor, struct stat* status) noexcept {
    if (isWatched(descriptor))
        ++counts.descriptorLooks;
    return next<int(int, struct stat*)>("fstat")(descriptor, status);
}

PELORIK_INTERPOSED int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    if (isWatched(path)) {
        stopAt("open");
        ++counts.opens;
    }
    return next<int(const char*, int, ...)>("open")(path, flags, mode);
}

PELORIK_INTERPOSED int openat(int directory, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    if (isWatched(path)) {
        stopAt("open");
        ++counts.opens;
    }
    return next<int(int, const char*, int, ...)>("openat")(directory, path, flags, mode);
}

PELORIK_INTERPOSED std::FILE* fopen(const char* path, const char* mode) {
    if (isWatched(path)) {
        stopAt("open");
        ++counts.opens;
    }
    return next<std::FILE*(const char*, const char*)>("fopen")(path, mode);
}

PELORIK_INTERPOSED ssize_t read(int descriptor, void* buffer, std::size_t size) {
    const auto original = next<ssize_t(int, void*, std::size_t)>("read");
    if (!isWatched(descriptor))
        return original(descriptor, buffer, size);
    ++counts.reads;
    const std::size_t count = readable(lseek(descriptor, 0, SEEK_CUR), size);
    if (count == 0 && size != 0) {
        errno = EIO;
        return -1;
    }
    const ssize_t result = original(descriptor, buffer, count);
    stopAt("read");
    return result;
}

PELORIK_INTERPOSED std::size_t fread(void* buffer, std::size_t size, std::size_t items,
                                     std::FILE* file) {
    const auto original = next<std::size_t(void*, std::size_t, std::size_t, std::FILE*)>("fread");
    if (!isWatched(fileno(file)))
        return original(buffer, size, items, file);
    ++counts.reads;
    const std::size_t count = readable(std::ftell(file), size * items);
    const std::size_t result = original(buffer, 1, count, file) / size;
    if (count < size * items)
        errno = EIO;
    stopAt("read");
    return result;
}

PELORIK_INTERPOSED int close(int descriptor) {
    if (isWatched(descriptor))
        ++counts.closes;
    return next<int(int)>("close")(descriptor);
}

} // extern "C"
