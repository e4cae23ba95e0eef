// What the tool's locks do at the moments when another holder comes in between. The real system,
// with two of its calls in the test's hands.

#include "cli/process/error.h"
#include "cli/process/lock.h"
#include "system/scchecker.h"
#include "tests/support/child.h"
#include "tests/support/fault_injection.h"
#include "tests/support/namespaces.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

namespace fs = std::filesystem;
using cli::Lock;

constexpr char kDirectory[] = "/var/run/vpnagent";
constexpr char kFile[] = "/var/run/vpnagent/x";

class HeldLockTest : public testing::Test {
protected:
    void SetUp() override {
        if (!support::haveOwnRunDirectory())
            GTEST_SKIP() << support::kNoRunDirectory;
        fs::create_directory(kDirectory);
    }

    void TearDown() override {
        if (support::haveOwnRunDirectory())
            fs::remove_all(kDirectory);
    }

    std::function<void()> beforeLocking;   // called once
    std::function<void()> beforeUnlocking; // called once

private:
    int lockFile(int fd, int command, void* argument) {
        const bool unlocks = static_cast<struct flock*>(argument)->l_type == F_UNLCK;
        auto& before = unlocks ? beforeUnlocking : beforeLocking;
        if (const auto step = std::exchange(before, nullptr))
            step();
        return support::calls::lockByFcntl.original(fd, command, argument);
    }

    const support::Replacement<decltype(support::calls::lockByFcntl)> fcntl_{
        support::calls::lockByFcntl,
        [this](int fd, int command, void* argument) { return lockFile(fd, command, argument); }};
};

void makeFile() {
    std::ofstream out(kFile);
}

bool namesTheLockedFile(const Lock& lock) {
    struct stat path {};
    struct stat locked {};
    return stat(kFile, &path) == 0 && fstat(lock.descriptor(), &locked) == 0 &&
           path.st_ino == locked.st_ino;
}

bool anotherProcessGetsIt() {
    return support::inChild([] { return Lock::tryToTake("x") ? 1 : 0; }) == 1;
}

TEST_F(HeldLockTest, IsNotHadOnAFileThatItsHolderRemovesMeanwhile) {
    beforeLocking = [] { fs::remove(kFile); };
    const std::optional<Lock> lock = Lock::tryToTake("x");
    ASSERT_TRUE(lock);
    EXPECT_TRUE(namesTheLockedFile(*lock));
    EXPECT_FALSE(lock->wasThereAlready());
    EXPECT_FALSE(anotherProcessGetsIt());
}

TEST_F(HeldLockTest, IsNotHadOnAFileThatAnotherOneHasReplaced) {
    makeFile();
    beforeLocking = [] {
        fs::remove(kFile);
        makeFile();
    };
    const std::optional<Lock> lock = Lock::tryToTake("x");
    ASSERT_TRUE(lock);
    EXPECT_TRUE(namesTheLockedFile(*lock));
    EXPECT_FALSE(anotherProcessGetsIt());
}

TEST_F(HeldLockTest, IsGivenUpOnlyWhenItsFileIsGone) {
    std::optional<Lock> lock = Lock::tryToTake("x");
    ASSERT_TRUE(lock);
    std::optional<bool> there;
    beforeUnlocking = [&] { there = fs::exists(kFile); };
    lock.reset();
    EXPECT_EQ(there, std::optional(false));
    EXPECT_TRUE(anotherProcessGetsIt());
}

TEST_F(HeldLockTest, EndsThoughItsDescriptorIsStillOpenElsewhere) {
    std::optional<Lock> lock = Lock::tryToTake("x");
    ASSERT_TRUE(lock);
    const int copy = dup(lock->descriptor());
    fs::create_hard_link(kFile, std::string(kFile) + "-kept");
    lock.reset();
    fs::rename(std::string(kFile) + "-kept", kFile);
    EXPECT_TRUE(anotherProcessGetsIt());
    close(copy);
}

TEST_F(HeldLockTest, ExcludesTheOneOfTheLibraryAndIsExcludedByIt) {
    std::optional<Lock> lock = Lock::tryToTake("x");
    ASSERT_TRUE(lock);
    EXPECT_EQ(support::inChild([] { return SCChecker().lock("x") ? 1 : 0; }), 0);
    lock.reset();
    SCChecker library;
    ASSERT_TRUE(library.lock("x"));
    EXPECT_FALSE(Lock::tryToTake("x"));
    library.unlock();
    EXPECT_TRUE(Lock::tryToTake("x"));
}

TEST_F(HeldLockTest, LeavesTheFileOfAnotherHolderAlone) {
    std::optional<Lock> lock = Lock::tryToTake("x");
    ASSERT_TRUE(lock);
    fs::remove(kFile);
    makeFile();
    lock.reset();
    EXPECT_TRUE(fs::exists(kFile));
}

TEST_F(HeldLockTest, KnowsAFileThatWasLeftBehind) {
    makeFile();
    EXPECT_TRUE(Lock::tryToTake("x")->wasThereAlready());
    EXPECT_FALSE(Lock::tryToTake("x")->wasThereAlready());
}

TEST_F(HeldLockTest, IsHeldByWhoeverItWasMovedTo) {
    std::optional<Lock> lock = Lock::tryToTake("x");
    ASSERT_TRUE(lock);
    {
        const Lock moved(std::move(*lock));
        lock.reset();
        EXPECT_TRUE(namesTheLockedFile(moved));
        EXPECT_FALSE(anotherProcessGetsIt());
    }
    EXPECT_FALSE(fs::exists(kFile));
}

TEST_F(HeldLockTest, SaysWhyItCannotBeHad) {
    fs::remove(kDirectory);
    try {
        Lock::tryToTake("x");
        ADD_FAILURE();
    } catch (const cli::Error& failure) {
        EXPECT_THAT(failure.what(), testing::HasSubstr("/run/vpnagent is missing"));
    }
}

} // namespace
