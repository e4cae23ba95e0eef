#include "tests/support/failing_calls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <initializer_list>
#include <malloc.h>
#include <new>
#include <pthread.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

using support::CallKind;

constexpr int kCutShort = 0; // a way: the call does less than it was asked
constexpr int kPasses = -1;
constexpr long kFirstOfChild = 1000000;

using Ways = std::initializer_list<int>; // error numbers

// Kept in plain atomics, since the calls come from anywhere: other threads, the loader, the end of
// the process.
std::atomic<bool> counting{false};
std::atomic<CallKind> wantedKind{CallKind::kMemory};
std::atomic<long> wantedNumber{0};
std::atomic<unsigned> wantedWay{0};
std::atomic<long> count{0};
std::atomic<bool> wasReached{false};
std::atomic<bool> hasFailed{false};
std::atomic<const char*> wantedName{""};
std::atomic<int> wantedError{kPasses};
std::atomic<int> logDescriptor{-1};
std::atomic<long> live{0};

// Past every stand-in.
void writeLog(const char* name, long number, std::size_t ways) {
    char line[64];
    const int length = std::snprintf(line, sizeof line, "%ld %s %zu\n", number, name, ways);
    syscall(SYS_write, logDescriptor.load(), line, length);
}

// How the call that is being made fails: an error number, kCutShort, or kPasses.
int failureOf(CallKind kind, const char* name, Ways ways) {
    if (!counting || kind != wantedKind)
        return kPasses;
    const int errorBefore = errno;
    const long number = ++count;
    if (logDescriptor >= 0)
        writeLog(name, number, ways.size());
    errno = errorBefore;
    if (number != wantedNumber)
        return kPasses;
    wasReached = true;
    wantedName = name;
    if (wantedWay >= ways.size())
        return kPasses;
    hasFailed = true;
    wantedError = ways.begin()[wantedWay];
    return wantedError;
}

// The same for calls that cannot be cut short, with errno set.
bool fails(const char* name, Ways ways, CallKind kind = CallKind::kSystem) {
    const int error = failureOf(kind, name, ways);
    if (error == kPasses)
        return false;
    errno = error;
    return true;
}

bool lacksMemory(const char* name) {
    return fails(name, {ENOMEM}, CallKind::kMemory);
}

void* counted(void* block) {
    live += block != nullptr ? 1 : 0;
    return block;
}

// The C library's own.
template<class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template<class Result, class... Arguments>
Result failOrCall(const char* name, Ways ways, Result failure, Arguments... arguments) {
    if (fails(name, ways))
        return failure;
    return next<Result(Arguments...)>(name)(arguments...);
}

// For calls that release what they were given also when they fail.
template<class Result, class Argument>
Result callAndFail(const char* name, Ways ways, Result failure, Argument argument) {
    const int error = failureOf(CallKind::kSystem, name, ways);
    const Result result = next<Result(Argument)>(name)(argument);
    if (error == kPasses)
        return result;
    errno = error;
    return failure;
}

// For calls that move `size` bytes or items.
template<class Size>
bool failsToMove(const char* name, Ways ways, Size& size) {
    const int error = failureOf(CallKind::kSystem, name, ways);
    if (error == kCutShort)
        size = std::max<Size>(size / 2, std::min<Size>(size, 1));
    else if (error != kPasses)
        errno = error;
    return error != kPasses && error != kCutShort;
}

void countFromBeginningOfChild() {
    count = kFirstOfChild;
}

bool tellChildrenApart() {
    return pthread_atfork(nullptr, nullptr, countFromBeginningOfChild) == 0;
}

mode_t modeAmong(int flags, va_list arguments) {
    return (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(arguments, unsigned)) : 0;
}

} // namespace

// Visible, so that libraries find them too.
#pragma GCC visibility push(default)
extern "C" {

// Memory.

#ifndef PELORIK_SANITIZED

// Usable from the first instruction of the process on.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t items, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size) noexcept {
    return lacksMemory("malloc") ? nullptr : counted(__libc_malloc(size));
}

void* calloc(std::size_t items, std::size_t size) noexcept {
    return lacksMemory("calloc") ? nullptr : counted(__libc_calloc(items, size));
}

void* realloc(void* block, std::size_t size) noexcept {
    if (lacksMemory("realloc"))
        return nullptr;
    void* const result = __libc_realloc(block, size);
    return block == nullptr ? counted(result) : result;
}

void free(void* block) noexcept {
    live -= block != nullptr ? 1 : 0;
    __libc_free(block);
}

#endif

// Files.

std::FILE* fopen(const char* path, const char* mode) {
    return failOrCall<std::FILE*>("fopen", {EACCES, EMFILE, EINTR, ENOENT}, nullptr, path, mode);
}

std::FILE* fopen64(const char* path, const char* mode) {
    return failOrCall<std::FILE*>("fopen64", {EACCES, EMFILE, EINTR, ENOENT}, nullptr, path, mode);
}

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeAmong(flags, arguments);
    va_end(arguments);
    return failOrCall("open", {EACCES, EMFILE, EINTR, EIO}, -1, path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeAmong(flags, arguments);
    va_end(arguments);
    return failOrCall("openat", {EACCES, EMFILE, EINTR, EIO}, -1, directory, path, flags, mode);
}

int creat(const char* path, mode_t mode) {
    return failOrCall("creat", {EACCES, EMFILE, EINTR, ENOSPC}, -1, path, mode);
}

int mkostemp(char* name, int flags) {
    return failOrCall("mkostemp", {EACCES, EMFILE, ENOSPC}, -1, name, flags);
}

int fclose(std::FILE* file) {
    return callAndFail("fclose", {EIO}, EOF, file);
}

int close(int descriptor) {
    return callAndFail("close", {EIO, EINTR}, -1, descriptor);
}

std::size_t fread(void* buffer, std::size_t size, std::size_t items, std::FILE* file) {
    if (failsToMove("fread", {EIO, EINTR, kCutShort}, items))
        return 0;
    return next<std::size_t(void*, std::size_t, std::size_t, std::FILE*)>("fread")(buffer, size,
                                                                                   items, file);
}

ssize_t read(int descriptor, void* buffer, std::size_t size) {
    if (failsToMove("read", {EIO, EINTR, kCutShort}, size))
        return -1;
    return next<ssize_t(int, void*, std::size_t)>("read")(descriptor, buffer, size);
}

ssize_t pread(int descriptor, void* buffer, std::size_t size, off_t offset) {
    if (failsToMove("pread", {EIO, EINTR, kCutShort}, size))
        return -1;
    return next<ssize_t(int, void*, std::size_t, off_t)>("pread")(descriptor, buffer, size, offset);
}

ssize_t write(int descriptor, const void* data, std::size_t size) {
    if (failsToMove("write", {EIO, EINTR, ENOSPC, kCutShort}, size))
        return -1;
    return next<ssize_t(int, const void*, std::size_t)>("write")(descriptor, data, size);
}

ssize_t writev(int descriptor, const iovec* pieces, int number) {
    if (failsToMove("writev", {EIO, EINTR, ENOSPC, kCutShort}, number))
        return -1;
    return next<ssize_t(int, const iovec*, int)>("writev")(descriptor, pieces, number);
}

off_t lseek(int descriptor, off_t offset, int origin) noexcept {
    return failOrCall<off_t>("lseek", {EIO}, -1, descriptor, offset, origin);
}

off64_t lseek64(int descriptor, off64_t offset, int origin) noexcept {
    return failOrCall<off64_t>("lseek64", {EIO}, -1, descriptor, offset, origin);
}

int fsync(int descriptor) {
    return failOrCall("fsync", {EIO, ENOSPC}, -1, descriptor);
}

int lockf(int descriptor, int command, off_t length) {
    return failOrCall("lockf", {EAGAIN, ENOLCK, EINTR}, -1, descriptor, command, length);
}

int stat(const char* path, struct stat* status) noexcept {
    return failOrCall("stat", {EACCES, EIO, ENOENT}, -1, path, status);
}

int lstat(const char* path, struct stat* status) noexcept {
    return failOrCall("lstat", {EACCES, EIO, ENOENT}, -1, path, status);
}

int fstat(int descriptor, struct stat* status) noexcept {
    return failOrCall("fstat", {EIO}, -1, descriptor, status);
}

int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
    return failOrCall("fstatat", {EACCES, EIO, ENOENT}, -1, directory, path, status, flags);
}

ssize_t readlinkat(int directory, const char* path, char* text, std::size_t size) noexcept {
    return failOrCall<ssize_t>("readlinkat", {EACCES, EIO}, -1, directory, path, text, size);
}

int faccessat(int directory, const char* path, int mode, int flags) noexcept {
    return failOrCall("faccessat", {EACCES, EIO}, -1, directory, path, mode, flags);
}

int flock(int descriptor, int operation) noexcept {
    return failOrCall("flock", {EINTR, ENOLCK}, -1, descriptor, operation);
}

int renameat(int from, const char* name, int to, const char* newName) noexcept {
    return failOrCall("renameat", {EACCES, ENOSPC, EIO}, -1, from, name, to, newName);
}

int renameat2(int from, const char* name, int to, const char* newName, unsigned flags) noexcept {
    return failOrCall("renameat2", {EACCES, EINVAL, ENOSPC, EIO}, -1, from, name, to, newName,
                      flags);
}

int unlinkat(int directory, const char* path, int flags) noexcept {
    return failOrCall("unlinkat", {EACCES, EIO}, -1, directory, path, flags);
}

ssize_t flistxattr(int descriptor, char* names, std::size_t size) noexcept {
    return failOrCall<ssize_t>("flistxattr", {EIO, ENOTSUP}, -1, descriptor, names, size);
}

ssize_t fgetxattr(int descriptor, const char* name, void* value, std::size_t size) noexcept {
    return failOrCall<ssize_t>("fgetxattr", {EIO, ENOTSUP}, -1, descriptor, name, value, size);
}

int fsetxattr(int descriptor, const char* name, const void* value, std::size_t size,
              int flags) noexcept {
    return failOrCall("fsetxattr", {ENOSPC, EPERM, ENOTSUP}, -1, descriptor, name, value, size,
                      flags);
}

int fremovexattr(int descriptor, const char* name) noexcept {
    return failOrCall("fremovexattr", {EIO, EPERM}, -1, descriptor, name);
}

int access(const char* path, int mode) noexcept {
    return failOrCall("access", {EACCES, EIO}, -1, path, mode);
}

int chmod(const char* path, mode_t mode) noexcept {
    return failOrCall("chmod", {EACCES, EIO}, -1, path, mode);
}

int fchmod(int descriptor, mode_t mode) noexcept {
    return failOrCall("fchmod", {EPERM, EIO}, -1, descriptor, mode);
}

int fchown(int descriptor, uid_t user, gid_t group) noexcept {
    return failOrCall("fchown", {EPERM, EIO}, -1, descriptor, user, group);
}

int rename(const char* from, const char* to) noexcept {
    return failOrCall("rename", {EACCES, ENOSPC, EIO}, -1, from, to);
}

int remove(const char* path) noexcept {
    return failOrCall("remove", {EACCES, EIO}, -1, path);
}

int unlink(const char* path) noexcept {
    return failOrCall("unlink", {EACCES, EIO}, -1, path);
}

char* realpath(const char* path, char* out) noexcept {
    return failOrCall<char*>("realpath", {EACCES, EIO}, nullptr, path, out);
}

int chdir(const char* path) noexcept {
    return failOrCall("chdir", {EACCES, EIO}, -1, path);
}

DIR* opendir(const char* path) {
    return failOrCall<DIR*>("opendir", {EACCES, EMFILE}, nullptr, path);
}

dirent* readdir(DIR* directory) {
    return failOrCall<dirent*>("readdir", {EIO}, nullptr, directory);
}

int closedir(DIR* directory) {
    return callAndFail("closedir", {EIO}, -1, directory);
}

// Sockets.

int socket(int domain, int type, int protocol) noexcept {
    return failOrCall("socket", {EACCES, EMFILE, ENOBUFS}, -1, domain, type, protocol);
}

int bind(int descriptor, const sockaddr* address, socklen_t length) noexcept {
    return failOrCall("bind", {EACCES, EADDRINUSE}, -1, descriptor, address, length);
}

ssize_t sendmsg(int descriptor, const msghdr* message, int flags) {
    return failOrCall<ssize_t>("sendmsg", {EINTR, ENOBUFS, EIO}, -1, descriptor, message, flags);
}

ssize_t recvmsg(int descriptor, msghdr* message, int flags) {
    return failOrCall<ssize_t>("recvmsg", {EINTR, ENOBUFS, EIO}, -1, descriptor, message, flags);
}

// Processes.

int pipe2(int* ends, int flags) noexcept {
    return failOrCall("pipe2", {EMFILE}, -1, ends, flags);
}

pid_t fork() noexcept {
    return failOrCall<pid_t>("fork", {EAGAIN, ENOMEM}, -1);
}

int execvp(const char* file, char* const* arguments) noexcept {
    return failOrCall("execvp", {EACCES, ENOENT, EIO}, -1, file, arguments);
}

pid_t waitpid(pid_t child, int* status, int options) {
    return failOrCall<pid_t>("waitpid", {EINTR}, -1, child, status, options);
}

// Tells its error by its result.
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    return failOrCall("pthread_create", {EAGAIN}, EAGAIN, thread, attributes, body, argument);
}
}

#ifdef PELORIK_SANITIZED

// The sanitizers' malloc bears no stand-in, so that in their builds only these fail.

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return lacksMemory("new") ? nullptr : counted(std::malloc(size == 0 ? 1 : size));
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return operator new(size, std::nothrow);
}

void* operator new(std::size_t size) {
    void* const block = operator new(size, std::nothrow);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void* operator new[](std::size_t size) {
    return operator new(size);
}

void operator delete(void* block) noexcept {
    live -= block != nullptr ? 1 : 0;
    std::free(block);
}

void operator delete[](void* block) noexcept {
    operator delete(block);
}

void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

void operator delete[](void* block, std::size_t) noexcept {
    operator delete(block);
}

#endif
#pragma GCC visibility pop

support::FailingCall::FailingCall(CallKind kind, long number, unsigned way) {
    failCall(kind, number, way);
}

support::FailingCall::~FailingCall() {
    counting = false;
}

bool support::FailingCall::reached() const {
    return wasReached;
}

bool support::FailingCall::failed() const {
    return hasFailed;
}

long support::countedCalls() {
    return count;
}

support::Uncounted::Uncounted() : before_(counting.exchange(false)) {}

support::Uncounted::~Uncounted() {
    counting = before_;
}

std::string support::failedCall() {
    const int error = wantedError;
    const char* const way = error == kCutShort ? "cut short" : strerrorname_np(error);
    return wantedName.load() + std::string(", call ") + std::to_string(wantedNumber) + ", " +
           (way == nullptr ? "passed" : way);
}

long support::liveBlocks() {
    return live;
}

void support::failCall(CallKind kind, long number, unsigned way) {
    static const bool toldApart = tellChildrenApart();
    static_cast<void>(toldApart);
    wantedKind = kind;
    wantedNumber = number;
    wantedWay = way;
    count = 0;
    wasReached = false;
    hasFailed = false;
    wantedError = kPasses;
    counting = true;
}

void support::logCalls(CallKind kind, int descriptor) {
    logDescriptor = descriptor;
    failCall(kind, 0, 0);
}
