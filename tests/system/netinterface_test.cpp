// The real kernel's interfaces, each test in a network namespace of its own, compared with what
// `ip -j addr` of iproute2 prints there.

#include "system/netinterface.h"
#include "tests/support/child.h"
#include "tests/support/namespaces.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <nlohmann/json.hpp>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using nlohmann::json;
using testing::IsEmpty;
using vpnfc::CollectNetInterfaceInfo;
using vpnfc::NetInterfaceInfo;

using Texts = std::vector<std::string>;

bool ip(const std::string& arguments) {
    return std::system(("ip " + arguments + " 2>/dev/null").c_str()) == 0;
}

json ipJson(const std::string& arguments) {
    std::FILE* const pipe = popen(("ip -j " + arguments).c_str(), "r");
    json answer = json::parse(pipe, nullptr, false);
    pclose(pipe);
    return answer;
}

std::string dotted(std::uint32_t address) {
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, text, sizeof text);
}

// One text an interface: its index, name and MTU, its addresses, its broadcasts.
Texts describe(const std::vector<NetInterfaceInfo>& all) {
    Texts texts;
    for (const NetInterfaceInfo& info : all) {
        std::string text =
            std::to_string(info.index) + " " + info.name + " " + std::to_string(info.mtu);
        for (const std::uint32_t address : info.addresses)
            text += " " + dotted(address);
        for (const std::uint32_t broadcast : info.broadcasts)
            text += " b" + dotted(broadcast);
        texts.push_back(text + info.auxText);
    }
    return texts;
}

std::string describe(const json& link) {
    std::string addresses;
    std::string broadcasts;
    for (const json& address : link["addr_info"]) {
        if (address.value("family", "") != "inet")
            continue;
        addresses += " " + address["local"].get<std::string>();
        if (address.contains("broadcast"))
            broadcasts += " b" + address["broadcast"].get<std::string>();
    }
    return link["ifindex"].dump() + " " + link["ifname"].get<std::string>() + " " +
           link["mtu"].dump() + addresses + broadcasts;
}

// The same of what iproute2 says, in the reverse of the kernel's order.
Texts describedByIp() {
    Texts texts;
    for (const json& link : ipJson("addr")) {
        const json& flags = link["flags"];
        if (std::find(flags.begin(), flags.end(), "LOOPBACK") == flags.end())
            texts.push_back(describe(link));
    }
    std::reverse(texts.begin(), texts.end());
    return texts;
}

class NetInterface : public testing::Test {
protected:
    void SetUp() override {
        if (std::system("ip -V >/dev/null 2>&1") != 0)
            GTEST_SKIP() << "needs the command ip of iproute2";
        if (!support::enterNewNamespaces(CLONE_NEWNET))
            GTEST_SKIP() << support::kNoNamespaces;
    }

    // The library and iproute2 see the same `count` interfaces.
    void expectAsIpSays(std::size_t count) {
        EXPECT_TRUE(CollectNetInterfaceInfo(found));
        EXPECT_EQ(found.size(), count);
        EXPECT_EQ(describe(found), describedByIp());
    }

    std::vector<NetInterfaceInfo> found;
};

TEST_F(NetInterface, LoopbackAloneGivesNothing) {
    EXPECT_TRUE(CollectNetInterfaceInfo(found));
    EXPECT_THAT(found, IsEmpty());
    if (!ip("link set lo up"))
        GTEST_SKIP() << "needs CAP_NET_ADMIN";
    EXPECT_TRUE(CollectNetInterfaceInfo(found));
    EXPECT_THAT(found, IsEmpty());
}

class NetInterfaceKind : public NetInterface, public testing::WithParamInterface<const char*> {};

TEST_P(NetInterfaceKind, IsListedUpAndDownAndWithAddresses) {
    if (!ip(GetParam()))
        GTEST_SKIP() << "this kernel cannot: ip " << GetParam();
    const std::size_t count = describedByIp().size();
    expectAsIpSays(count);
    ASSERT_TRUE(ip("link set x0 up"));
    ASSERT_TRUE(ip("addr add 192.0.2.1/24 brd + dev x0"));
    found.clear();
    expectAsIpSays(count);
    EXPECT_EQ(found[0].name.substr(0, 1), "x");
}

INSTANTIATE_TEST_SUITE_P(Kinds, NetInterfaceKind,
                         testing::Values("link add x0 type bridge",
                                         "link add x0 type veth peer name x1",
                                         "tuntap add x0 mode tap", "tuntap add x0 mode tun",
                                         "link add x0 type dummy"));

// A namespace with one bridge, the kind that nearly every kernel has.
class NetInterfaceOfABridge : public NetInterface {
protected:
    void SetUp() override {
        NetInterface::SetUp();
        if (!IsSkipped() && !ip("link add br0 type bridge"))
            GTEST_SKIP() << "needs a kernel with bridges";
    }

    void configure(const std::vector<std::string>& commands) {
        for (const std::string& command : commands)
            ASSERT_TRUE(ip(command)) << command;
    }
};

TEST_F(NetInterfaceOfABridge, IsListedWithoutAddresses) {
    expectAsIpSays(1);
    EXPECT_THAT(found[0].addresses, IsEmpty());
    EXPECT_THAT(found[0].broadcasts, IsEmpty());
}

TEST_F(NetInterfaceOfABridge, HasAddressesWithAndWithoutBroadcast) {
    configure({"addr add 192.0.2.1/24 brd + dev br0", "addr add 198.51.100.1/24 dev br0",
               "addr add 203.0.113.1/32 brd 203.0.113.77 dev br0"});
    expectAsIpSays(1);
    EXPECT_EQ(found[0].addresses.size(), 3U);
    EXPECT_EQ(found[0].broadcasts.size(), 2U);
    EXPECT_EQ(dotted(found[0].addresses[0]), "192.0.2.1");
}

TEST_F(NetInterfaceOfABridge, HasSecondaryAddressesLabelsAndPeers) {
    configure({"link set br0 up", "addr add 192.0.2.1/24 brd + dev br0 label br0:1",
               "addr add 192.0.2.2/24 brd + dev br0 label br0:2",
               "addr add 192.0.2.3/24 brd + dev br0",
               "addr add 198.51.100.1 peer 198.51.100.2 dev br0"});
    expectAsIpSays(1);
    EXPECT_EQ(found[0].addresses.size(), 4U);
    EXPECT_EQ(found[0].name, "br0");
}

TEST_F(NetInterfaceOfABridge, HasNoAddressesOfTheOtherFamily) {
    if (!ip("addr add 2001:db8::1/64 dev br0"))
        GTEST_SKIP() << "needs a kernel with IPv6";
    expectAsIpSays(1);
    EXPECT_THAT(found[0].addresses, IsEmpty());
}

TEST_F(NetInterfaceOfABridge, HasAnOddMtu) {
    for (const char* const mtu : {"68", "1333", "9001", "65535"}) {
        configure({std::string("link set br0 mtu ") + mtu});
        found.clear();
        expectAsIpSays(1);
        EXPECT_EQ(std::to_string(found[0].mtu), mtu);
    }
}

TEST_F(NetInterfaceOfABridge, HasANameOfAnyLength) {
    configure({"link add abcdefghijklmno type bridge", "link add name b type bridge"});
    expectAsIpSays(3);
}

TEST_F(NetInterfaceOfABridge, HasTwoHundredAddresses) {
    std::FILE* const batch = popen("ip -batch -", "w");
    for (int i = 1; i <= 200; ++i)
        std::fprintf(batch, "addr add 192.0.2.%d/24 brd + dev br0\n", i);
    ASSERT_EQ(pclose(batch), 0);
    expectAsIpSays(1);
    EXPECT_EQ(found[0].addresses.size(), 200U);
}

TEST_F(NetInterfaceOfABridge, IsOneOfThreeHundred) {
    std::FILE* const batch = popen("ip -batch -", "w");
    for (int i = 1; i < 300; ++i) {
        std::fprintf(batch, "link add br%d mtu %d type bridge\n", i, 1000 + i);
        std::fprintf(batch, "addr add 10.1.%d.%d/31 brd + dev br%d\n", i / 128, i % 128 * 2, i);
    }
    ASSERT_EQ(pclose(batch), 0);
    expectAsIpSays(300);
}

TEST_F(NetInterfaceOfABridge, IsAppendedByEveryCall) {
    expectAsIpSays(1);
    EXPECT_TRUE(CollectNetInterfaceInfo(found));
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[1].name, "br0");
}

// Binds a netlink socket to the port id `port`. Returns the socket, or -1.
int takePortId(pid_t port) {
    const int taken = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = static_cast<std::uint32_t>(port);
    if (bind(taken, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return taken;
    close(taken);
    return -1;
}

TEST_F(NetInterfaceOfABridge, CannotBeAskedForWhileThePortIdIsTaken) {
    const int taken = takePortId(getpid());
    ASSERT_GE(taken, 0);
    found.resize(1);
    EXPECT_FALSE(CollectNetInterfaceInfo(found));
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_EQ(found.size(), 1U);
    close(taken);
    EXPECT_TRUE(CollectNetInterfaceInfo(found));
    EXPECT_EQ(found.size(), 2U);
}

TEST_F(NetInterface, CannotBeAskedForWhileAProcessOfAnotherUserHoldsThePortId) {
    constexpr uid_t kNobody = 65534;
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t wanted = getpid();
    support::Child holder([&] {
        const bool other = setgid(kNobody) == 0 && setuid(kNobody) == 0;
        const char answer = !other ? 's' : takePortId(wanted) >= 0 ? 'y' : 'n';
        if (write(ready[1], &answer, 1) == 1)
            pause();
        return 0;
    });
    close(ready[1]);
    char answer = 0;
    EXPECT_EQ(read(ready[0], &answer, 1), 1);
    close(ready[0]);
    if (answer == 's')
        GTEST_SKIP() << "needs a second user";
    EXPECT_EQ(answer, 'y');
    EXPECT_FALSE(CollectNetInterfaceInfo(found));
    EXPECT_EQ(errno, EADDRINUSE);
    holder.kill(SIGKILL);
    EXPECT_TRUE(CollectNetInterfaceInfo(found));
}

} // namespace
