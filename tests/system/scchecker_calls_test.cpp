// The lock's conversation with the system: a stand-in for it records each call and answers as the
// test says. The real system is asked in scchecker_test.cpp.

#include "system/scchecker.h"
#include "tests/support/leaks.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kDescriptor = 77; // no descriptor of the test program

struct System {
    bool fileExists = false;
    int creatError = 0; // 0: it succeeds
    int created = kDescriptor;
    int lockError = 0;
    int closeError = 0;
    std::vector<std::string> calls;

    int answer(const std::string& call, int error, int result) {
        calls.push_back(call);
        if (error == 0)
            return result;
        errno = error;
        return -1;
    }
};

System* standIn = nullptr; // calls go to the C library while it is null

class ScCheckerCalls : public testing::Test {
protected:
    ScCheckerCalls() { standIn = &system; }
    ~ScCheckerCalls() override { standIn = nullptr; }

    std::vector<std::string> takeCalls() { return std::exchange(system.calls, {}); }

    System system;
    SCChecker checker;
};

} // namespace

extern "C" {

std::FILE* __real_fopen(const char* path, const char* mode);
int __real_creat(const char* path, mode_t mode);
int __real_lockf(int fd, int command, off_t length);
int __real_close(int fd);
int __real_remove(const char* path);

std::FILE* __wrap_fopen(const char* path, const char* mode);
int __wrap_creat(const char* path, mode_t mode);
int __wrap_lockf(int fd, int command, off_t length);
int __wrap_close(int fd);
int __wrap_remove(const char* path);

std::FILE* __wrap_fopen(const char* path, const char* mode) {
    if (standIn == nullptr)
        return __real_fopen(path, mode);
    const int error = standIn->fileExists ? 0 : ENOENT;
    const int result = standIn->answer(std::string("fopen ") + path + " " + mode, error, 0);
    return result < 0 ? nullptr : __real_fopen("/dev/null", "rb");
}

int __wrap_creat(const char* path, mode_t mode) {
    if (standIn == nullptr)
        return __real_creat(path, mode);
    const std::string call = std::string("creat ") + path + " " + std::to_string(mode);
    return standIn->answer(call, standIn->creatError, standIn->created);
}

int __wrap_lockf(int fd, int command, off_t length) {
    if (standIn == nullptr)
        return __real_lockf(fd, command, length);
    EXPECT_EQ(command, F_TLOCK);
    const std::string call = "lockf " + std::to_string(fd) + " " + std::to_string(length);
    return standIn->answer(call, standIn->lockError, 0);
}

int __wrap_close(int fd) {
    if (standIn == nullptr)
        return __real_close(fd);
    return standIn->answer("close " + std::to_string(fd), standIn->closeError, 0);
}

int __wrap_remove(const char* path) {
    if (standIn == nullptr)
        return __real_remove(path);
    return standIn->answer(std::string("remove ") + path, 0, 0);
}
}

namespace {

constexpr char kOpenForReading[] = "fopen /var/run/vpnagent/x rb";
constexpr char kCreate[] = "creat /var/run/vpnagent/x 128";

TEST_F(ScCheckerCalls, LockReadsThenCreatesThenLocksTheWholeFile) {
    EXPECT_TRUE(checker.lock("x"));
    EXPECT_THAT(system.calls, ElementsAre(kOpenForReading, kCreate, "lockf 77 0"));
    EXPECT_EQ(checker.fd, kDescriptor);
    EXPECT_EQ(checker.path, "/var/run/vpnagent/x");
    EXPECT_TRUE(checker.wasAbsent);
}

TEST_F(ScCheckerCalls, LockNoticesAFileThatIsThereAlready) {
    system.fileExists = true;
    EXPECT_TRUE(checker.lock("x"));
    EXPECT_FALSE(checker.wasAbsent);
}

TEST_F(ScCheckerCalls, LockEndsWhereTheFileCannotBeCreated) {
    system.creatError = EROFS;
    EXPECT_FALSE(checker.lock("x"));
    EXPECT_EQ(errno, EROFS);
    EXPECT_THAT(system.calls, ElementsAre(kOpenForReading, kCreate));
    EXPECT_EQ(checker.fd, -1);
}

TEST_F(ScCheckerCalls, LockThatIsRefusedClosesAndKeepsErrno) {
    for (const int error : {EACCES, EAGAIN, ENOLCK}) {
        system.lockError = error;
        system.closeError = EIO;
        EXPECT_FALSE(checker.lock("x"));
        EXPECT_EQ(errno, error);
        EXPECT_THAT(takeCalls(), ElementsAre(kOpenForReading, kCreate, "lockf 77 0", "close 77"));
        EXPECT_EQ(checker.fd, -1);
    }
}

TEST_F(ScCheckerCalls, LockForgetsTheDescriptorOfAnEarlierOne) {
    EXPECT_TRUE(checker.lock("x"));
    system.creatError = EACCES;
    EXPECT_FALSE(checker.lock("y"));
    EXPECT_EQ(checker.fd, -1);
    EXPECT_EQ(checker.path, "/var/run/vpnagent/y");
}

// A process that was started without standard input may get its number.
TEST_F(ScCheckerCalls, LockTakesDescriptorZeroToo) {
    system.created = 0;
    EXPECT_TRUE(checker.lock("x"));
    EXPECT_EQ(checker.fd, 0);
    EXPECT_THAT(system.calls, ElementsAre(kOpenForReading, kCreate, "lockf 0 0"));
}

// That each allocation may fail by itself is tested in system_failures_test.cpp.
TEST_F(ScCheckerCalls, LockReturnsFalseWithoutMemoryForThePath) {
    if (!support::canFailAllocations())
        GTEST_SKIP() << "a sanitizer's operator new does not fail";
    for (const char* const name : {"y", "a name that takes memory of its own", ""}) {
        EXPECT_TRUE(checker.lock("x"));
        takeCalls();
        bool locked = true;
        {
            const support::NoMemory noMemory;
            locked = checker.lock(name);
        }
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_FALSE(locked);
        EXPECT_EQ(checker.fd, -1);
        EXPECT_EQ(checker.path, "/var/run/vpnagent/x");
        EXPECT_TRUE(checker.wasAbsent);
        checker.unlock();
        EXPECT_THAT(system.calls, IsEmpty());
    }
}

TEST_F(ScCheckerCalls, LockTakesANameThatStandsInItsOwnPath) {
    EXPECT_TRUE(checker.lock("first"));
    EXPECT_TRUE(checker.lock(checker.path.c_str() + sizeof "/var/run/vpnagent"));
    EXPECT_EQ(checker.path, "/var/run/vpnagent/first");
}

TEST_F(ScCheckerCalls, UnlockClosesAndThenRemoves) {
    EXPECT_TRUE(checker.lock("x"));
    takeCalls();
    checker.unlock();
    EXPECT_THAT(system.calls, ElementsAre("close 77", "remove /var/run/vpnagent/x"));
}

TEST_F(ScCheckerCalls, UnlockRemovesEvenWhereClosingFails) {
    EXPECT_TRUE(checker.lock("x"));
    takeCalls();
    system.closeError = EIO;
    checker.unlock();
    EXPECT_THAT(system.calls, ElementsAre("close 77", "remove /var/run/vpnagent/x"));
}

TEST_F(ScCheckerCalls, Deliberate_UnlockKeepsTheNumberAndDoesTheSameAgain) {
    EXPECT_TRUE(checker.lock("x"));
    checker.unlock();
    takeCalls();
    EXPECT_EQ(checker.fd, kDescriptor);
    checker.unlock();
    EXPECT_THAT(system.calls, ElementsAre("close 77", "remove /var/run/vpnagent/x"));
}

TEST_F(ScCheckerCalls, UnlockOfWhatWasNeverLockedCallsNothing) {
    EXPECT_EQ(checker.fd, -1);
    checker.unlock();
    EXPECT_THAT(system.calls, IsEmpty());
}

TEST_F(ScCheckerCalls, UnlockAfterARefusalCallsNothing) {
    system.lockError = EAGAIN;
    EXPECT_FALSE(checker.lock("x"));
    takeCalls();
    checker.unlock();
    EXPECT_THAT(system.calls, IsEmpty());
}

TEST_F(ScCheckerCalls, FieldZeroIsAnOpenDescriptorToo) {
    checker.fd = 0;
    checker.path = "/p";
    checker.unlock();
    EXPECT_THAT(system.calls, ElementsAre("close 0", "remove /p"));
}

TEST(ScCheckerLayout, FieldsStandInTheirOrder) {
    static_assert(offsetof(SCChecker, fd) == 0);
    static_assert(offsetof(SCChecker, path) == 8);
    static_assert(offsetof(SCChecker, wasAbsent) == 8 + sizeof(std::string));
    static_assert(!std::is_polymorphic_v<SCChecker>);
}

TEST(ScCheckerLayout, DestructionReleasesNothing) {
    System system;
    standIn = &system;
    {
        SCChecker checker;
        EXPECT_TRUE(checker.lock("x"));
        system.calls.clear();
    }
    standIn = nullptr;
    EXPECT_THAT(system.calls, IsEmpty());
}

} // namespace
