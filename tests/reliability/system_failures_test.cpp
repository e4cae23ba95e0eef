// The enumeration of interfaces and the lock where memory ends and where the system fails, in
// namespaces of their own.

#include "system/netinterface.h"
#include "system/scchecker.h"
#include "tests/support/every_fault.h"
#include "tests/support/namespaces.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using std::string;
using support::failEverything;
using support::kNoMemory;

// Loopback and, where it can be had, a bridge: few enough for the first buffer. What an enumeration
// without memory for a larger one leaves is tested with a scripted kernel.
TEST(NetInterfaceFailures, InterfacesAreListedWholeOrNotAtAll) {
    if (!support::enterNewNamespaces(CLONE_NEWNET))
        GTEST_SKIP() << support::kNoNamespaces;
    if (std::system("ip link add br0 type bridge 2>/dev/null && ip addr add 192.0.2.1/24 brd + "
                    "dev br0 2>/dev/null") != 0)
        GTEST_SKIP() << "needs iproute2 and a kernel with bridges";
    const support::Scenario scenario = [] {
        std::vector<vpnfc::NetInterfaceInfo> found;
        const bool listed = vpnfc::CollectNetInterfaceInfo(found);
        EXPECT_EQ(found.size(), listed ? 1u : 0u);
        return listed ? found[0].name + std::to_string(found[0].addresses.size()) : "false";
    };
    EXPECT_EQ(scenario(), "br01");
    failEverything(scenario, {kNoMemory, "false"}, {"false"});
}

class LockFailures : public testing::Test {
protected:
    void SetUp() override {
        if (!support::haveOwnRunDirectory())
            GTEST_SKIP() << support::kNoRunDirectory;
        mkdir("/var/run/vpnagent", 0755);
    }

    // Whether the lock was had, or why not, where nobody left a file behind.
    static string lockAndUnlock() {
        removeLeftovers();
        SCChecker checker;
        errno = 0;
        const bool locked = checker.lock("a-name-that-needs-memory-of-its-own");
        const string why = locked ? "locked" : strerrorname_np(errno);
        EXPECT_EQ(fcntl(checker.fd, F_GETFD) >= 0, locked);
        checker.unlock();
        return why;
    }

private:
    static void removeLeftovers() {
        const support::Uncounted own;
        unlink("/var/run/vpnagent/a-name-that-needs-memory-of-its-own");
    }
};

TEST_F(LockFailures, TheLockIsHadOrNotAndThenNothingIsKept) {
    EXPECT_EQ(lockAndUnlock(), "locked");
    failEverything(lockAndUnlock, {"ENOMEM"},
                   {"EACCES", "EMFILE", "EINTR", "ENOSPC", "EAGAIN", "ENOLCK"});
}

// The file of a lock that was refused, or that could not be removed, is in nobody's way.
TEST_F(LockFailures, WhatIsLeftBehindDoesNotKeepAnyoneOut) {
    support::failEveryCall(support::CallKind::kSystem,
                           [] {
                               SCChecker checker;
                               checker.lock("x");
                               checker.unlock();
                               return string();
                           },
                           {});
    SCChecker checker;
    EXPECT_TRUE(checker.lock("x"));
    checker.unlock();
    EXPECT_NE(access("/var/run/vpnagent/x", F_OK), 0);
}

} // namespace
