// The lock's calls of the system, which a mock records and answers. scchecker_test.cpp has the
// tests with the real system.

#include "system/scchecker.h"
#include "tests/support/fault_injection.h"

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

namespace calls = support::calls;
using support::Replacement;
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

// While it lives, the library's calls reach the `system`.
class Mocked {
public:
    explicit Mocked(System& system) : system_(system) {}

private:
    std::FILE* openFile(const char* path, const char* mode) {
        const int error = system_.fileExists ? 0 : ENOENT;
        const int result = system_.answer(std::string("fopen ") + path + " " + mode, error, 0);
        return result < 0 ? nullptr : calls::fopen.original("/dev/null", "rb");
    }

    int createFile(const char* path, mode_t mode) {
        const std::string call = std::string("creat ") + path + " " + std::to_string(mode);
        return system_.answer(call, system_.creatError, system_.created);
    }

    int lockFile(int fd, int command, off_t length) {
        EXPECT_EQ(command, F_TLOCK);
        const std::string call = "lockf " + std::to_string(fd) + " " + std::to_string(length);
        return system_.answer(call, system_.lockError, 0);
    }

    int closeFile(int fd) {
        return system_.answer("close " + std::to_string(fd), system_.closeError, 0);
    }

    int removeFile(const char* path) { return system_.answer(std::string("remove ") + path, 0, 0); }

    System& system_;
    const Replacement<decltype(calls::fopen)> fopen_{
        calls::fopen, [this](auto... arguments) { return openFile(arguments...); }};
    const Replacement<decltype(calls::creat)> creat_{
        calls::creat, [this](auto... arguments) { return createFile(arguments...); }};
    const Replacement<decltype(calls::lockf)> lockf_{
        calls::lockf, [this](auto... arguments) { return lockFile(arguments...); }};
    const Replacement<decltype(calls::close)> close_{
        calls::close, [this](auto... arguments) { return closeFile(arguments...); }};
    const Replacement<decltype(calls::remove)> remove_{
        calls::remove, [this](auto... arguments) { return removeFile(arguments...); }};
};

class ScCheckerCalls : public testing::Test {
protected:
    std::vector<std::string> takeCalls() { return std::exchange(system.calls, {}); }

    System system;
    const Mocked mocked{system};
    SCChecker checker;
};

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
    for (const char* const name : {"y", "a name that takes memory of its own", ""}) {
        EXPECT_TRUE(checker.lock("x"));
        takeCalls();
        bool locked = true;
        {
            const support::FailingCalls noMemory(support::CallKind::kMemory);
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
    const Mocked mocked(system);
    {
        SCChecker checker;
        EXPECT_TRUE(checker.lock("x"));
        system.calls.clear();
    }
    EXPECT_THAT(system.calls, IsEmpty());
}

} // namespace
