// The lock on the real system, between real processes, in a mount namespace whose /var/run is the
// test's own.

#include "system/scchecker.h"
#include "tests/support/child.h"
#include "tests/support/namespaces.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using support::Child;
using support::inChild;

constexpr char kDirectory[] = "/var/run/vpnagent";
constexpr char kFile[] = "/var/run/vpnagent/x";
constexpr uid_t kNobody = 65534;

class ScChecker : public testing::Test {
protected:
    void SetUp() override {
        if (!support::haveOwnRunDirectory())
            GTEST_SKIP() << support::kNoRunDirectory;
        fs::create_directory(kDirectory);
    }

    void TearDown() override {
        if (support::haveOwnRunDirectory())
            fs::remove_all(kDirectory);
        checker.unlock();
    }

    SCChecker checker;
};

unsigned permissions(const char* path) {
    struct stat status {};
    EXPECT_EQ(stat(path, &status), 0) << path;
    return status.st_mode & 07777;
}

// What another process gets when it asks for the lock: 0 when it has it (until it ends, at once),
// else the error number.
int askFromAnotherProcess(const char* name) {
    return inChild([=] {
        SCChecker other;
        return other.lock(name) ? 0 : errno;
    });
}

void expectRefusedElsewhere(const char* name) {
    const int error = askFromAnotherProcess(name);
    EXPECT_TRUE(error == EACCES || error == EAGAIN) << error;
}

// Another process that holds the lock "x" and does nothing more.
class Holder {
public:
    Holder()
        : locked_(openPipe()), child_([this] {
              SCChecker other;
              const char answer = other.lock("x") ? 'y' : 'n';
              if (write(locked_.write, &answer, 1) != 1)
                  return 1;
              pause();
              return 0;
          }) {
        close(locked_.write);
        char answer = 0;
        EXPECT_EQ(read(locked_.read, &answer, 1), 1);
        close(locked_.read);
        EXPECT_EQ(answer, 'y');
    }

    void kill() { child_.kill(SIGKILL); }

private:
    struct Pipe {
        int read;
        int write;
    };

    static Pipe openPipe() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe(ends), 0);
        return {ends[0], ends[1]};
    }

    Pipe locked_;
    Child child_;
};

TEST_F(ScChecker, LockMakesAFileThatOnlyItsOwnerMayWrite) {
    ASSERT_TRUE(checker.lock("x"));
    EXPECT_TRUE(checker.wasAbsent);
    EXPECT_GE(checker.fd, 0);
    EXPECT_EQ(checker.path, kFile);
    EXPECT_EQ(permissions(kFile), 0200U);
    EXPECT_EQ(fs::file_size(kFile), 0U);
}

TEST_F(ScChecker, LockMakesTheFileUnderTheUmask) {
    struct Row {
        mode_t mask;
        unsigned permissions;
    };
    for (const Row row : {Row{0, 0200}, Row{022, 0200}, Row{077, 0200}, Row{0277, 0}}) {
        const mode_t before = umask(row.mask);
        EXPECT_TRUE(checker.lock("x"));
        umask(before);
        EXPECT_EQ(permissions(kFile), row.permissions) << row.mask;
        checker.unlock();
    }
    checker.fd = -1;
}

TEST_F(ScChecker, LockKeepsThePermissionsOfAFileThatIsThere) {
    std::ofstream(kFile) << "text";
    fs::permissions(kFile, fs::perms(0640));
    ASSERT_TRUE(checker.lock("x"));
    EXPECT_FALSE(checker.wasAbsent);
    EXPECT_EQ(permissions(kFile), 0640U);
    EXPECT_EQ(fs::file_size(kFile), 0U);
}

TEST_F(ScChecker, LockIsRefusedWhileAnotherProcessHoldsIt) {
    const Holder holder;
    EXPECT_FALSE(checker.lock("x"));
    EXPECT_TRUE(errno == EACCES || errno == EAGAIN) << errno;
    EXPECT_EQ(checker.fd, -1);
    EXPECT_FALSE(checker.wasAbsent);
    checker.unlock();
    EXPECT_TRUE(fs::exists(kFile));
    expectRefusedElsewhere("x");
}

TEST_F(ScChecker, Deliberate_LockThatIsRefusedHasTruncatedTheHoldersFile) {
    const Holder holder;
    std::ofstream(kFile) << "text";
    EXPECT_EQ(fs::file_size(kFile), 4U);
    EXPECT_FALSE(checker.lock("x"));
    EXPECT_EQ(fs::file_size(kFile), 0U);
}

TEST_F(ScChecker, LockSucceedsAfterTheHolderWasKilled) {
    Holder holder;
    holder.kill();
    EXPECT_TRUE(fs::exists(kFile));
    EXPECT_TRUE(checker.lock("x"));
    EXPECT_FALSE(checker.wasAbsent);
}

TEST_F(ScChecker, LockSucceedsAfterTheHolderHasExited) {
    EXPECT_EQ(askFromAnotherProcess("x"), 0);
    EXPECT_TRUE(fs::exists(kFile));
    EXPECT_TRUE(checker.lock("x"));
    EXPECT_FALSE(checker.wasAbsent);
}

TEST_F(ScChecker, UnlockLeavesNoFileAndNoLock) {
    ASSERT_TRUE(checker.lock("x"));
    expectRefusedElsewhere("x");
    checker.unlock();
    EXPECT_FALSE(fs::exists(kFile));
    EXPECT_EQ(fcntl(checker.fd, F_GETFD), -1);
    checker.fd = -1;
    EXPECT_EQ(askFromAnotherProcess("x"), 0);
}

TEST_F(ScChecker, Deliberate_SecondUnlockTakesWhateverHasTheNumberAndTheNameByThen) {
    ASSERT_TRUE(checker.lock("x"));
    checker.unlock();
    const int reused = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(reused, checker.fd);
    std::ofstream(kFile) << "somebody else's";
    checker.unlock();
    EXPECT_EQ(fcntl(reused, F_GETFD), -1);
    EXPECT_FALSE(fs::exists(kFile));
    checker.fd = -1;
}

TEST_F(ScChecker, TwoObjectsOfOneProcessShareTheLock) {
    SCChecker second;
    ASSERT_TRUE(checker.lock("x"));
    ASSERT_TRUE(second.lock("x"));
    EXPECT_FALSE(second.wasAbsent);
    expectRefusedElsewhere("x");
    second.unlock();
    EXPECT_EQ(askFromAnotherProcess("x"), 0);
}

TEST_F(ScChecker, DifferentNamesAreDifferentLocks) {
    const Holder holder;
    EXPECT_TRUE(checker.lock("y"));
    EXPECT_TRUE(checker.wasAbsent);
}

TEST_F(ScChecker, DescriptorIsInheritedByPrograms) {
    ASSERT_TRUE(checker.lock("x"));
    EXPECT_EQ(fcntl(checker.fd, F_GETFD), 0);
}

TEST_F(ScChecker, LockFailsWithoutItsDirectory) {
    fs::remove_all(kDirectory);
    EXPECT_FALSE(checker.lock("x"));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(checker.fd, -1);
    EXPECT_TRUE(checker.wasAbsent);
    EXPECT_FALSE(fs::exists(kDirectory));
}

TEST_F(ScChecker, EmptyNameIsTheDirectoryAndFails) {
    for (const char* const name : {"", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(checker.lock(name));
        EXPECT_EQ(errno, EISDIR);
        EXPECT_EQ(checker.path, "/var/run/vpnagent/");
        EXPECT_FALSE(checker.wasAbsent); // a directory opens for reading
    }
}

TEST_F(ScChecker, NameMayLeadElsewhere) {
    fs::create_directory("/var/run/vpnagent/sub");
    ASSERT_TRUE(checker.lock("sub/y"));
    EXPECT_TRUE(fs::exists("/var/run/vpnagent/sub/y"));
    checker.unlock();
    ASSERT_TRUE(checker.lock("../outside"));
    EXPECT_TRUE(fs::exists("/var/run/outside"));
    checker.unlock();
    checker.fd = -1;
}

int lockAsNobody() {
    if (setgid(kNobody) != 0 || setuid(kNobody) != 0)
        return -1;
    SCChecker other;
    const bool locked = other.lock("x");
    return locked ? 100 + other.wasAbsent : errno;
}

class ScCheckerOfAUser : public ScChecker {
protected:
    void SetUp() override {
        ScChecker::SetUp();
        if (!IsSkipped() && inChild([] { return setuid(kNobody) == 0 ? 0 : 1; }) != 0)
            GTEST_SKIP() << "needs a second user";
    }
};

TEST_F(ScCheckerOfAUser, LockCannotTellThatACrashedHoldersFileIsThere) {
    fs::permissions(kDirectory, fs::perms::all);
    EXPECT_EQ(inChild(lockAsNobody), 101);
    EXPECT_EQ(permissions(kFile), 0200U);
    EXPECT_EQ(inChild(lockAsNobody), 101);
}

TEST_F(ScCheckerOfAUser, LockNeedsADirectoryThatTheUserMayWrite) {
    EXPECT_EQ(inChild(lockAsNobody), EACCES);
    EXPECT_FALSE(fs::exists(kFile));
}

TEST_F(ScCheckerOfAUser, LockCannotOpenTheFileOfAnotherUser) {
    fs::permissions(kDirectory, fs::perms::all);
    EXPECT_EQ(askFromAnotherProcess("x"), 0);
    EXPECT_EQ(inChild(lockAsNobody), EACCES);
}

} // namespace
