// Fault injection: calls of the C library that fail, move less than they were asked, or run a
// test's own function.
//
// A program that links pelorik_fault_injection interposes the functions below, also for the shared
// libraries that it loads. They call the C library until a test asks for something else. The tool's
// tests preload them, see tests/cli/fault_injection_preload.cpp.

#ifndef PELORIK_TESTS_SUPPORT_FAULT_INJECTION_H
#define PELORIK_TESTS_SUPPORT_FAULT_INJECTION_H

#include "tests/support/interposed_call.h"

#include <cstddef>
#include <cstdio>
#include <pthread.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace support {

// The interposed functions that tests replace.
namespace calls {

extern Call<void*(std::size_t)> malloc;
extern Call<void*(void*, std::size_t)> realloc;
extern Call<void(void*)> free;
extern Call<std::FILE*(const char*, const char*)> fopen;
extern Call<int(std::FILE*)> fclose;
extern Call<std::size_t(void*, std::size_t, std::size_t, std::FILE*), 2> fread;
extern Call<int(const char*, mode_t)> creat;
extern Call<int(int)> close;
extern Call<ssize_t(int, void*, std::size_t), 2> read;
extern Call<off_t(int, off_t, int)> lseek;
extern Call<int(int, int, void*)> lockByFcntl; // fcntl with F_OFD_SETLK
extern Call<int(int, int, off_t)> lockf;
extern Call<int(const char*, struct stat*)> stat;
extern Call<int(const char*, int)> access;
extern Call<int(const char*)> remove;
extern Call<int(int, int, int)> socket;
extern Call<int(int, const sockaddr*, socklen_t)> bind;
extern Call<ssize_t(int, const msghdr*, int)> sendmsg;
extern Call<ssize_t(int, msghdr*, int)> recvmsg;
extern Call<pid_t()> getpid;
extern Call<int(pthread_key_t*, void (*)(void*))> pthread_key_create;
extern Call<int(pthread_key_t, const void*)> pthread_setspecific;
extern Call<int(int)> toupper;
extern Call<int(int)> tolower;
extern Call<double(const char*, char**)> strtod;
extern Call<std::size_t(const char*)> strlen;

} // namespace calls

// While it lives, calls of one kind are counted, and call `number`, from 1, fails in its way `way`,
// from 0: with one of its likely errors, or by moving less than it was asked. With number 0 none
// fails.
class FailingCall {
public:
    FailingCall(CallKind kind, long number, unsigned way = 0);
    ~FailingCall();
    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;

    // Whether that call was made, and whether it has such a way.
    bool reached() const;
    bool failed() const;
};

// While it lives, every call of one kind from call `first` on fails in its first way.
class FailingCalls {
public:
    explicit FailingCalls(CallKind kind, long first = 1);
    ~FailingCalls();
    FailingCalls(const FailingCalls&) = delete;
    FailingCalls& operator=(const FailingCalls&) = delete;
};

// While it lives, calls that move data move at most `most` bytes or items each.
class ShortCounts {
public:
    explicit ShortCounts(std::size_t most);
    ~ShortCounts();
    ShortCounts(const ShortCounts&) = delete;
    ShortCounts& operator=(const ShortCounts&) = delete;
};

// While it lives, reads of the file `path` fail with `error` from `offset` on. Reads that begin
// before it end there. Concerns read, pread and fread, which file streams call, too.
class FailingReads {
public:
    FailingReads(const std::string& path, off_t offset, int error);
    ~FailingReads();
    FailingReads(const FailingReads&) = delete;
    FailingReads& operator=(const FailingReads&) = delete;
};

// How many calls were counted during the last `FailingCall` or `FailingCalls`.
long countedCalls();

// The call that was last to fail, for messages: "read, call 3, EIO".
std::string failedCall();

// How many blocks are allocated now.
long liveBlocks();

// The same until the process ends, for the preloaded module.

// Writes a line for each call to `descriptor`: its number, its name and the number of its ways. A
// process that is started by fork counts from 1000001 on.
void logCalls(CallKind kind, int descriptor);

void failCall(CallKind kind, long number, unsigned way);
void limitCounts(std::size_t most);

// Throws std::runtime_error when there is no such file.
void failReads(const std::string& path, off_t offset, int error);

} // namespace support

#endif
