#include "tests/support/fault_injection.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <new>
#include <stdexcept>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace support {

namespace {

constexpr int kNotFailed = -1;
constexpr long kFirstOfChild = 1000000;
constexpr std::size_t kUnlimited = static_cast<std::size_t>(-1);

// Kept in plain atomics, since the calls come from anywhere: other threads, the loader, the end of
// the process.
std::atomic<int> injections{0};
std::atomic<bool> counting{false};
std::atomic<CallKind> wantedKind{CallKind::kMemory};
std::atomic<long> wantedNumber{0};
std::atomic<unsigned> wantedWay{0};
std::atomic<bool> wantsAllFromThere{false};
std::atomic<long> count{0};
std::atomic<bool> wasReached{false};
std::atomic<bool> hasFailed{false};
std::atomic<const char*> wantedName{""};
std::atomic<int> wantedError{kNotFailed};
std::atomic<int> logDescriptor{-1};
std::atomic<long> live{0};
std::atomic<std::size_t> most{kUnlimited};

thread_local int uncounted = 0;

// The file whose reads fail.
struct {
    std::atomic<bool> isSet{false};
    dev_t device;
    ino_t inode;
    off_t offset;
    int error;
} unreadable;

// Writes past the interposed functions.
void writeLog(const char* name, long number, std::size_t ways) {
    char line[64];
    const int length = std::snprintf(line, sizeof line, "%ld %s %zu\n", number, name, ways);
    syscall(SYS_write, logDescriptor.load(), line, length);
}

bool isWanted(long number) {
    return wantsAllFromThere ? number >= wantedNumber : number == wantedNumber;
}

void countFromBeginningOfChild() {
    count = kFirstOfChild;
}

bool tellChildrenApart() {
    return pthread_atfork(nullptr, nullptr, countFromBeginningOfChild) == 0;
}

void startCounting(CallKind kind, long number, unsigned way, bool allFromThere) {
    static const bool toldApart = tellChildrenApart();
    static_cast<void>(toldApart);
    wantedKind = kind;
    wantedNumber = number;
    wantedWay = way;
    wantsAllFromThere = allFromThere;
    count = 0;
    wasReached = false;
    hasFailed = false;
    wantedError = kNotFailed;
    ++injections;
    counting = true;
}

void stopCounting() {
    counting = false;
    --injections;
}

void* counted(void* block) {
    live += block != nullptr ? 1 : 0;
    return block;
}

} // namespace

std::size_t shortened(std::size_t size) {
    return std::max<std::size_t>(size / 2, std::min<std::size_t>(size, 1));
}

std::size_t limited(std::size_t size) {
    return std::min<std::size_t>(size, most);
}

Uncounted::Uncounted() {
    ++uncounted;
}

Uncounted::~Uncounted() {
    --uncounted;
}

Injection::Injection() {
    ++injections;
}

Injection::~Injection() {
    --injections;
}

bool CallBase::isActive() {
    return injections != 0 && uncounted == 0;
}

int CallBase::failure() const {
    if (!counting || properties_.kind != wantedKind)
        return kPasses;
    const int errorBefore = errno;
    const long number = ++count;
    if (logDescriptor >= 0)
        writeLog(properties_.name, number, properties_.ways.size());
    errno = errorBefore;
    if (!isWanted(number))
        return kPasses;
    wasReached = true;
    wantedName = properties_.name;
    if (wantedWay >= properties_.ways.size())
        return kPasses;
    hasFailed = true;
    wantedError = properties_.ways[wantedWay];
    return wantedError;
}

void* CallBase::find() const {
    void* function = __atomic_load_n(&found_, __ATOMIC_ACQUIRE);
    if (function == nullptr) {
        function = dlsym(RTLD_NEXT, properties_.name);
        __atomic_store_n(&found_, function, __ATOMIC_RELEASE);
    }
    return function;
}

} // namespace support

namespace {

using support::Call;
using support::CallKind;
using support::kShort;

mode_t modeAmong(int flags, va_list arguments) {
    return (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(arguments, unsigned)) : 0;
}

} // namespace

extern "C" {

#ifdef PELORIK_SANITIZED

// The sanitizers' own functions.
void* __interceptor_malloc(std::size_t size);
void* __interceptor_calloc(std::size_t items, std::size_t size);
void* __interceptor_realloc(void* block, std::size_t size);
void __interceptor_free(void* block);

#else

// Usable from the first instruction of the process on.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t items, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);

#endif
}

namespace {

#ifdef PELORIK_SANITIZED

constexpr auto* libraryMalloc = __interceptor_malloc;
constexpr auto* libraryCalloc = __interceptor_calloc;
constexpr auto* libraryRealloc = __interceptor_realloc;
constexpr auto* libraryFree = __interceptor_free;

#else

// The function that the loader finds, which valgrind replaces, or `early` while it is looked for.
template<auto early>
auto* found(const char* name) {
    static constinit decltype(early) function = nullptr;
    static constinit bool isSought = false;
    if (function == nullptr) {
        if (isSought)
            return early;
        isSought = true;
        function = reinterpret_cast<decltype(early)>(dlsym(RTLD_NEXT, name));
        isSought = false;
    }
    return function;
}

void* libraryMalloc(std::size_t size) {
    return found<__libc_malloc>("malloc")(size);
}

void* libraryCalloc(std::size_t items, std::size_t size) {
    return found<__libc_calloc>("calloc")(items, size);
}

void* libraryRealloc(void* block, std::size_t size) {
    return found<__libc_realloc>("realloc")(block, size);
}

void libraryFree(void* block) {
    found<__libc_free>("free")(block);
}

#endif

// Programs call strlen before the loader can look it up.
std::size_t libraryStrlen(const char* text) {
    const char* end = text;
    while (*end != '\0') {
        ++end;
        asm volatile("" : "+r"(end)); // or the compiler makes this a call of strlen
    }
    return static_cast<std::size_t>(end - text);
}

constexpr support::CallProperties system(const char* name, support::Ways ways) {
    return {name, CallKind::kSystem, ways};
}

// A call that releases what it was given also when it fails.
constexpr support::CallProperties release(const char* name, support::Ways ways) {
    return {name, CallKind::kSystem, ways, true};
}

constexpr support::CallProperties memory(const char* name) {
    return {name, CallKind::kMemory, {ENOMEM}};
}

constexpr support::CallProperties other(const char* name) {
    return {name};
}

} // namespace

namespace support::calls {

constinit Call<void*(std::size_t)> malloc(memory("malloc"), nullptr, libraryMalloc);
constinit Call<void*(std::size_t, std::size_t)> calloc(memory("calloc"), nullptr, libraryCalloc);
constinit Call<void*(void*, std::size_t)> realloc(memory("realloc"), nullptr, libraryRealloc);
constinit Call<void(void*)> free(other("free"), nullptr, libraryFree);

constinit Call<std::FILE*(const char*, const char*)>
    fopen(system("fopen", {EACCES, EMFILE, EINTR, ENOENT}), nullptr);
constinit Call<std::FILE*(const char*, const char*)>
    fopen64(system("fopen64", {EACCES, EMFILE, EINTR, ENOENT}), nullptr);
constinit Call<int(std::FILE*)> fclose(release("fclose", {EIO}), EOF);
constinit Call<std::size_t(void*, std::size_t, std::size_t, std::FILE*), 2>
    fread(system("fread", {EIO, EINTR, kShort}), 0);

// Variadic functions are called with all of their arguments.
constinit Call<int(const char*, int, mode_t)> open(system("open", {EACCES, EMFILE, EINTR, EIO}),
                                                   -1);
constinit Call<int(int, const char*, int, mode_t)>
    openat(system("openat", {EACCES, EMFILE, EINTR, EIO}), -1);
constinit Call<int(const char*, mode_t)> creat(system("creat", {EACCES, EMFILE, EINTR, ENOSPC}),
                                               -1);
constinit Call<int(char*, int)> mkostemp(system("mkostemp", {EACCES, EMFILE, ENOSPC}), -1);
constinit Call<int(int)> close(release("close", {EIO, EINTR}), -1);
constinit Call<ssize_t(int, void*, std::size_t), 2> read(system("read", {EIO, EINTR, kShort}), -1);
constinit Call<ssize_t(int, void*, std::size_t, off_t), 2>
    pread(system("pread", {EIO, EINTR, kShort}), -1);
constinit Call<ssize_t(int, const void*, std::size_t), 2>
    write(system("write", {EIO, EINTR, ENOSPC, kShort}), -1);
constinit Call<ssize_t(int, const iovec*, int), 2>
    writev(system("writev", {EIO, EINTR, ENOSPC, kShort}), -1);
constinit Call<off_t(int, off_t, int)> lseek(system("lseek", {EIO}), -1);
constinit Call<off64_t(int, off64_t, int)> lseek64(system("lseek64", {EIO}), -1);
constinit Call<int(int)> fsync(system("fsync", {EIO, ENOSPC}), -1);
constinit Call<int(int, int, void*)> lockByFcntl(system("fcntl", {EAGAIN, ENOLCK, EINTR}), -1);
constinit Call<int(int, int, void*)> duplicateByFcntl(system("fcntl", {EMFILE}), -1);
constinit Call<int(int, int, off_t)> lockf(system("lockf", {EAGAIN, ENOLCK, EINTR}), -1);

constinit Call<int(const char*, struct stat*)> stat(system("stat", {EACCES, EIO, ENOENT}), -1);
constinit Call<int(const char*, struct ::stat*)> lstat(system("lstat", {EACCES, EIO, ENOENT}), -1);
constinit Call<int(int, struct ::stat*)> fstat(system("fstat", {EIO}), -1);
constinit Call<int(int, const char*, struct ::stat*, int)>
    fstatat(system("fstatat", {EACCES, EIO, ENOENT}), -1);
constinit Call<ssize_t(int, const char*, char*, std::size_t)>
    readlinkat(system("readlinkat", {EACCES, EIO}), -1);
constinit Call<int(int, const char*, int, int)> faccessat(system("faccessat", {EACCES, EIO}), -1);
constinit Call<int(int, int)> flock(system("flock", {EINTR, ENOLCK}), -1);
constinit Call<int(int, const char*, int, const char*)>
    renameat(system("renameat", {EACCES, ENOSPC, EIO}), -1);
constinit Call<int(int, const char*, int, const char*, unsigned)>
    renameat2(system("renameat2", {EACCES, EINVAL, ENOSPC, EIO}), -1);
constinit Call<int(int, const char*, int)> unlinkat(system("unlinkat", {EACCES, EIO}), -1);
constinit Call<ssize_t(int, char*, std::size_t)> flistxattr(system("flistxattr", {EIO, ENOTSUP}),
                                                            -1);
constinit Call<ssize_t(int, const char*, void*, std::size_t)>
    fgetxattr(system("fgetxattr", {EIO, ENOTSUP}), -1);
constinit Call<int(int, const char*, const void*, std::size_t, int)>
    fsetxattr(system("fsetxattr", {ENOSPC, EPERM, ENOTSUP}), -1);
constinit Call<int(int, const char*)> fremovexattr(system("fremovexattr", {EIO, EPERM}), -1);
constinit Call<int(const char*, int)> access(system("access", {EACCES, EIO}), -1);
constinit Call<int(const char*, mode_t)> chmod(system("chmod", {EACCES, EIO}), -1);
constinit Call<int(int, mode_t)> fchmod(system("fchmod", {EPERM, EIO}), -1);
constinit Call<int(int, uid_t, gid_t)> fchown(system("fchown", {EPERM, EIO}), -1);
constinit Call<int(const char*, const char*)> rename(system("rename", {EACCES, ENOSPC, EIO}), -1);
constinit Call<int(const char*)> remove(system("remove", {EACCES, EIO}), -1);
constinit Call<int(const char*)> unlink(system("unlink", {EACCES, EIO}), -1);
constinit Call<char*(const char*, char*)> realpath(system("realpath", {EACCES, EIO}), nullptr);
constinit Call<int(const char*)> chdir(system("chdir", {EACCES, EIO}), -1);
constinit Call<DIR*(const char*)> opendir(system("opendir", {EACCES, EMFILE}), nullptr);
constinit Call<dirent*(DIR*)> readdir(system("readdir", {EIO}), nullptr);
constinit Call<int(DIR*)> closedir(release("closedir", {EIO}), -1);

constinit Call<int(int, int, int)> socket(system("socket", {EACCES, EMFILE, ENOBUFS}), -1);
constinit Call<int(int, const sockaddr*, socklen_t)> bind(system("bind", {EACCES, EADDRINUSE}), -1);
constinit Call<ssize_t(int, const msghdr*, int)> sendmsg(system("sendmsg", {EINTR, ENOBUFS, EIO}),
                                                         -1);
constinit Call<ssize_t(int, msghdr*, int)> recvmsg(system("recvmsg", {EINTR, ENOBUFS, EIO}), -1);

constinit Call<int(int*, int)> pipe2(system("pipe2", {EMFILE}), -1);
constinit Call<pid_t()> fork(system("fork", {EAGAIN, ENOMEM}), -1);
constinit Call<pid_t()> getpid(other("getpid"), -1);
constinit Call<int(const char*, char* const*)> execvp(system("execvp", {EACCES, ENOENT, EIO}), -1);
constinit Call<pid_t(pid_t, int*, int)> waitpid(system("waitpid", {EINTR}), -1);

// Those of pthread return the error.
constinit Call<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>
    pthread_create(system("pthread_create", {EAGAIN}), EAGAIN);
constinit Call<int(pthread_key_t*, void (*)(void*))> pthread_key_create(other("pthread_key_create"),
                                                                        EAGAIN);
constinit Call<int(pthread_key_t, const void*)> pthread_setspecific(other("pthread_setspecific"),
                                                                    ENOMEM);

constinit Call<int(int)> toupper(other("toupper"), 0);
constinit Call<int(int)> tolower(other("tolower"), 0);
constinit Call<double(const char*, char**)> strtod(other("strtod"), 0);
constinit Call<std::size_t(const char*)> strlen(other("strlen"), 0, libraryStrlen);

} // namespace support::calls

namespace {

namespace calls = support::calls;

// Whether a read of the file at `position` fails. One that begins before the failure gets no more
// bytes than stand there: `size` is reduced then.
bool readFails(int descriptor, off_t position, std::size_t& size) {
    struct stat status {};
    if (calls::fstat.original(descriptor, &status) != 0)
        return false;
    if (status.st_dev != support::unreadable.device || status.st_ino != support::unreadable.inode)
        return false;
    const off_t left = support::unreadable.offset - position;
    if (left <= 0) {
        errno = support::unreadable.error;
        return true;
    }
    size = std::min(size, static_cast<std::size_t>(left));
    return false;
}

bool mayFailToRead() {
    return support::unreadable.isSet && support::uncounted == 0;
}

// What the C library does when its read fails.
void setError(std::FILE* file) {
    file->_flags |= _IO_ERR_SEEN;
    errno = support::unreadable.error;
}

std::size_t readItems(void* buffer, std::size_t size, std::size_t items, std::FILE* file) {
    std::size_t bytes = size * items;
    const bool fails = readFails(fileno(file), ftello(file), bytes);
    const std::size_t itemsLeft = fails || size == 0 ? 0 : bytes / size;
    const std::size_t result = itemsLeft == 0 ? 0 : calls::fread(buffer, size, itemsLeft, file);
    if (fails || itemsLeft < items)
        setError(file);
    return result;
}

} // namespace

// Visible, so that libraries find them too.
#pragma GCC visibility push(default)
extern "C" {

// Memory.

void* malloc(std::size_t size) noexcept {
    return support::counted(calls::malloc(size));
}

void* calloc(std::size_t items, std::size_t size) noexcept {
    return support::counted(calls::calloc(items, size));
}

void* realloc(void* block, std::size_t size) noexcept {
    void* const result = calls::realloc(block, size);
    return block == nullptr ? support::counted(result) : result;
}

void free(void* block) noexcept {
    support::live -= block != nullptr ? 1 : 0;
    calls::free(block);
}

// Files.

std::FILE* fopen(const char* path, const char* mode) {
    return calls::fopen(path, mode);
}

std::FILE* fopen64(const char* path, const char* mode) {
    return calls::fopen64(path, mode);
}

int fclose(std::FILE* file) {
    return calls::fclose(file);
}

std::size_t fread(void* buffer, std::size_t size, std::size_t items, std::FILE* file) {
    return mayFailToRead() ? readItems(buffer, size, items, file)
                           : calls::fread(buffer, size, items, file);
}

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeAmong(flags, arguments);
    va_end(arguments);
    return calls::open(path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeAmong(flags, arguments);
    va_end(arguments);
    return calls::openat(directory, path, flags, mode);
}

int creat(const char* path, mode_t mode) {
    return calls::creat(path, mode);
}

int mkostemp(char* name, int flags) {
    return calls::mkostemp(name, flags);
}

int close(int descriptor) {
    return calls::close(descriptor);
}

ssize_t read(int descriptor, void* buffer, std::size_t size) {
    if (mayFailToRead() &&
        readFails(descriptor, calls::lseek.original(descriptor, 0, SEEK_CUR), size))
        return -1;
    return calls::read(descriptor, buffer, size);
}

ssize_t pread(int descriptor, void* buffer, std::size_t size, off_t offset) {
    if (mayFailToRead() && readFails(descriptor, offset, size))
        return -1;
    return calls::pread(descriptor, buffer, size, offset);
}

ssize_t write(int descriptor, const void* data, std::size_t size) {
    return calls::write(descriptor, data, size);
}

ssize_t writev(int descriptor, const iovec* blocks, int number) {
    return calls::writev(descriptor, blocks, number);
}

off_t lseek(int descriptor, off_t offset, int origin) noexcept {
    return calls::lseek(descriptor, offset, origin);
}

off64_t lseek64(int descriptor, off64_t offset, int origin) noexcept {
    return calls::lseek64(descriptor, offset, origin);
}

int fsync(int descriptor) {
    return calls::fsync(descriptor);
}

// Reads an argument also for commands that have none. Only commands that lock or duplicate fail.
int fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (command == F_OFD_SETLK)
        return calls::lockByFcntl(descriptor, command, argument);
    if (command == F_DUPFD_CLOEXEC)
        return calls::duplicateByFcntl(descriptor, command, argument);
    return calls::lockByFcntl.original(descriptor, command, argument);
}

int lockf(int descriptor, int command, off_t length) {
    return calls::lockf(descriptor, command, length);
}

int stat(const char* path, struct stat* status) noexcept {
    return calls::stat(path, status);
}

int lstat(const char* path, struct stat* status) noexcept {
    return calls::lstat(path, status);
}

int fstat(int descriptor, struct stat* status) noexcept {
    return calls::fstat(descriptor, status);
}

int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
    return calls::fstatat(directory, path, status, flags);
}

ssize_t readlinkat(int directory, const char* path, char* text, std::size_t size) noexcept {
    return calls::readlinkat(directory, path, text, size);
}

int faccessat(int directory, const char* path, int mode, int flags) noexcept {
    return calls::faccessat(directory, path, mode, flags);
}

int flock(int descriptor, int operation) noexcept {
    return calls::flock(descriptor, operation);
}

int renameat(int from, const char* name, int to, const char* newName) noexcept {
    return calls::renameat(from, name, to, newName);
}

int renameat2(int from, const char* name, int to, const char* newName, unsigned flags) noexcept {
    return calls::renameat2(from, name, to, newName, flags);
}

int unlinkat(int directory, const char* path, int flags) noexcept {
    return calls::unlinkat(directory, path, flags);
}

ssize_t flistxattr(int descriptor, char* names, std::size_t size) noexcept {
    return calls::flistxattr(descriptor, names, size);
}

ssize_t fgetxattr(int descriptor, const char* name, void* value, std::size_t size) noexcept {
    return calls::fgetxattr(descriptor, name, value, size);
}

int fsetxattr(int descriptor, const char* name, const void* value, std::size_t size,
              int flags) noexcept {
    return calls::fsetxattr(descriptor, name, value, size, flags);
}

int fremovexattr(int descriptor, const char* name) noexcept {
    return calls::fremovexattr(descriptor, name);
}

int access(const char* path, int mode) noexcept {
    return calls::access(path, mode);
}

int chmod(const char* path, mode_t mode) noexcept {
    return calls::chmod(path, mode);
}

int fchmod(int descriptor, mode_t mode) noexcept {
    return calls::fchmod(descriptor, mode);
}

int fchown(int descriptor, uid_t user, gid_t group) noexcept {
    return calls::fchown(descriptor, user, group);
}

int rename(const char* from, const char* to) noexcept {
    return calls::rename(from, to);
}

int remove(const char* path) noexcept {
    return calls::remove(path);
}

int unlink(const char* path) noexcept {
    return calls::unlink(path);
}

char* realpath(const char* path, char* out) noexcept {
    return calls::realpath(path, out);
}

int chdir(const char* path) noexcept {
    return calls::chdir(path);
}

DIR* opendir(const char* path) {
    return calls::opendir(path);
}

dirent* readdir(DIR* directory) {
    return calls::readdir(directory);
}

int closedir(DIR* directory) {
    return calls::closedir(directory);
}

// Sockets.

int socket(int domain, int type, int protocol) noexcept {
    return calls::socket(domain, type, protocol);
}

int bind(int descriptor, const sockaddr* address, socklen_t length) noexcept {
    return calls::bind(descriptor, address, length);
}

ssize_t sendmsg(int descriptor, const msghdr* message, int flags) {
    return calls::sendmsg(descriptor, message, flags);
}

ssize_t recvmsg(int descriptor, msghdr* message, int flags) {
    return calls::recvmsg(descriptor, message, flags);
}

// Processes and threads.

int pipe2(int* ends, int flags) noexcept {
    return calls::pipe2(ends, flags);
}

pid_t fork() noexcept {
    return calls::fork();
}

pid_t getpid() noexcept {
    return calls::getpid();
}

int execvp(const char* file, char* const* arguments) noexcept {
    return calls::execvp(file, arguments);
}

pid_t waitpid(pid_t child, int* status, int options) {
    return calls::waitpid(child, status, options);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    return calls::pthread_create(thread, attributes, body, argument);
}

int pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) noexcept {
    return calls::pthread_key_create(key, destructor);
}

int pthread_setspecific(pthread_key_t key, const void* value) noexcept {
    return calls::pthread_setspecific(key, value);
}

// Texts.

int toupper(int byte) noexcept {
    return calls::toupper(byte);
}

int tolower(int byte) noexcept {
    return calls::tolower(byte);
}

double strtod(const char* text, char** end) noexcept {
    return calls::strtod(text, end);
}

std::size_t strlen(const char* text) noexcept {
    return calls::strlen(text);
}
}

#ifdef PELORIK_SANITIZED

// The sanitizers' operators do not call malloc. Those for arrays are weak: array_new.cpp has
// others.

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size == 0 ? 1 : size);
}

__attribute__((weak)) void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return operator new(size, std::nothrow);
}

void* operator new(std::size_t size) {
    void* const block = operator new(size, std::nothrow);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

__attribute__((weak)) void* operator new[](std::size_t size) {
    return operator new(size);
}

void operator delete(void* block) noexcept {
    std::free(block);
}

__attribute__((weak)) void operator delete[](void* block) noexcept {
    operator delete(block);
}

void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

__attribute__((weak)) void operator delete[](void* block, std::size_t) noexcept {
    operator delete(block);
}

#endif
#pragma GCC visibility pop

namespace support {

FailingCall::FailingCall(CallKind kind, long number, unsigned way) {
    startCounting(kind, number, way, false);
}

FailingCall::~FailingCall() {
    stopCounting();
}

bool FailingCall::reached() const {
    return wasReached;
}

bool FailingCall::failed() const {
    return hasFailed;
}

FailingCalls::FailingCalls(CallKind kind, long first) {
    startCounting(kind, first, 0, true);
}

FailingCalls::~FailingCalls() {
    stopCounting();
}

ShortCounts::ShortCounts(std::size_t limit) {
    limitCounts(limit);
}

ShortCounts::~ShortCounts() {
    most = kUnlimited;
    --injections;
}

FailingReads::FailingReads(const std::string& path, off_t offset, int error) {
    failReads(path, offset, error);
}

FailingReads::~FailingReads() {
    unreadable.isSet = false;
}

long countedCalls() {
    return count;
}

std::string failedCall() {
    const int error = wantedError;
    const char* const way = error == kShort ? "short" : strerrorname_np(error);
    return wantedName.load() + std::string(", call ") + std::to_string(wantedNumber) + ", " +
           (way == nullptr ? "passed" : way);
}

long liveBlocks() {
    return live;
}

void logCalls(CallKind kind, int descriptor) {
    logDescriptor = descriptor;
    failCall(kind, 0, 0);
}

void failCall(CallKind kind, long number, unsigned way) {
    startCounting(kind, number, way, false);
}

void limitCounts(std::size_t limit) {
    most = limit;
    ++injections;
}

void failReads(const std::string& path, off_t offset, int error) {
    struct stat status {};
    if (calls::stat.original(path.c_str(), &status) != 0)
        throw std::runtime_error("no file " + path);
    unreadable.device = status.st_dev;
    unreadable.inode = status.st_ino;
    unreadable.offset = offset;
    unreadable.error = error;
    unreadable.isSet = true;
}

} // namespace support
