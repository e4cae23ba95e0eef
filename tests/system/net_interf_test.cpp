// The rtnetlink conversation with a scripted kernel, and the records that come of it. Requests and
// replies are spelled out after rtnetlink(7) and netlink(7). The real kernel is asked in
// netinterface_test.cpp.

#include "system/net_interf.h"
#include "tests/support/fault_injection.h"
#include "tests/support/leak_check.h"
#include "tests/system/netlink_bytes.h"
#include "tests/system/scripted_kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <vector>

namespace {

using namespace netlink;
using scripted::datagram;
using scripted::failure;
using scripted::Kernel;
using scripted::result;
using testing::ElementsAre;
using testing::IsEmpty;

using Texts = std::vector<std::string>;

constexpr std::size_t kBuffer = 4096;

// 10.0.0.N as it stands in memory.
constexpr std::uint32_t host(unsigned n) {
    return n << 24U | 10U;
}

std::string describe(const char* label, const net_addresses* addresses) {
    std::string text;
    for (std::uint32_t i = 0; addresses != nullptr && i < addresses->count; ++i) {
        unsigned char bytes[4];
        std::memcpy(bytes, &addresses->values[i], sizeof bytes);
        text += label;
        for (const unsigned byte : bytes)
            text += "." + std::to_string(byte);
    }
    return text;
}

// One text an interface: its index, name and MTU, its addresses and its broadcasts.
Texts describe(const lan_interface* list) {
    Texts texts;
    for (; list != nullptr; list = list->next) {
        texts.push_back(std::to_string(list->ifindex) + " " + list->name + " " +
                        std::to_string(list->mtu) + describe(" a", list->addresses) +
                        describe(" b", list->broadcasts));
        EXPECT_EQ(list->aux_text, nullptr);
    }
    return texts;
}

class NetInterf : public testing::Test {
protected:
    int call() {
        return kernel.run([this] { return get_system_network_interfaces(&found); });
    }

    // The conversation that consists of these two answers, each with its end.
    void answer(const Bytes& links, const Bytes& addresses = {}) {
        kernel.replies.push_back(datagram(links + done()));
        kernel.replies.push_back(datagram(addresses + done()));
    }

    // What the kernel's answers become.
    Texts listOf(const Bytes& links, const Bytes& addresses = {}) {
        answer(links, addresses);
        return list();
    }

    // What the script becomes, and that nothing is left of it.
    Texts list() {
        if (call() != 0)
            return {"the call failed"};
        const Texts texts = describe(found.list);
        EXPECT_EQ(found.extra_interface, nullptr);
        EXPECT_THAT(kernel.replies, IsEmpty());
        EXPECT_EQ(kernel.openSockets, 0U);
        kernel.run([this] { sys_network_interfaces_destroy(&found); });
        EXPECT_THAT(kernel.blocks, IsEmpty());
        kernel = Kernel();
        found = {};
        return texts;
    }

    // The script makes the call fail with `unread` replies still to come, and nothing is left of
    // it.
    void expectFailure(std::size_t unread = 0) {
        EXPECT_EQ(call(), -1);
        EXPECT_EQ(kernel.openSockets, 0U);
        EXPECT_THAT(kernel.blocks, IsEmpty());
        EXPECT_EQ(kernel.replies.size(), unread);
        kernel = Kernel();
        found = {};
    }

    // The first answer makes the call fail, whatever the second one would be.
    void expectFailureOf(const Bytes& links) {
        kernel.replies = {datagram(links), datagram(done())};
        expectFailure(1);
    }

    void expectFailureWith(int error) {
        expectFailure();
        EXPECT_EQ(errno, error);
    }

    Kernel kernel;
    system_network_interfaces found{};
};

const Bytes kLinks = link(2, name("eth0") + mtu(1400)) + link(3, name("eth1"));
const Bytes kAddresses = address(2, local(host(1)) + broadcast(host(255))) +
                         address(3, local(host(2))) + address(2, local(host(3)));
const Texts kListed = {"3 eth1 1500 a.10.0.0.2", "2 eth0 1400 a.10.0.0.1 a.10.0.0.3 b.10.0.0.255"};

// The header and body of a request, as bytes of rtnetlink(7) in this machine's order.
const Bytes kLinkRequest = {17, 0, 0, 0, 18, 0, 1, 3, 1, 0, 0, 0, 4, 3, 2, 1, 17};
const Bytes kAddressRequest = {24, 0, 0, 0, 22, 0, 1, 3, 2, 0, 0, 0,
                               4,  3, 2, 1, 2,  0, 0, 0, 0, 0, 0, 0};

constexpr char kSocketCall[] = "socket 16 3 0";
constexpr char kBindCall[] = "bind 77 to 12 16 16909060 0";
constexpr char kSendCall[] = "sendmsg 77 0 to 12 16 0 0 vectors 1";
constexpr char kReceiveCall[] = "recvmsg 77 32 4096";

// The conversation

TEST_F(NetInterf, AsksForLinksAndThenForAddresses) {
    answer(kLinks, kAddresses);
    EXPECT_EQ(call(), 0);
    EXPECT_THAT(kernel.calls, ElementsAre(kSocketCall, kBindCall, kSendCall, kReceiveCall,
                                          kSendCall, kReceiveCall, "close 77"));
    EXPECT_THAT(kernel.requests, ElementsAre(kLinkRequest, kAddressRequest));
    EXPECT_EQ(describe(found.list), kListed);
    kernel.run([this] { sys_network_interfaces_destroy(&found); });
}

TEST_F(NetInterf, ListsNothingWhereThereIsNothing) {
    EXPECT_THAT(listOf({}), IsEmpty());
}

TEST_F(NetInterf, FailsWithoutASocket) {
    kernel.socketError = EMFILE;
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_THAT(kernel.calls, ElementsAre(kSocketCall));
}

TEST_F(NetInterf, FailsWhereItCannotBind) {
    kernel.bindError = EADDRINUSE;
    kernel.closeError = EIO;
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_THAT(kernel.calls, ElementsAre(kSocketCall, kBindCall, "close 77"));
}

TEST_F(NetInterf, FailsWhereARequestIsNotSentExactly) {
    for (const ssize_t sent : {-1, 0, 16, 18, 20}) {
        answer(kLinks, kAddresses);
        kernel.failingRequest = 1;
        kernel.requestResult = sent;
        expectFailure(2);
    }
    for (const ssize_t sent : {-1, 0, 23, 25}) {
        answer(kLinks, kAddresses);
        kernel.failingRequest = 2;
        kernel.requestResult = sent;
        expectFailure(1);
    }
}

// sendmsg, recvmsg and close are cancellation points.
TEST_F(NetInterf, ClosesTheSocketWhereverTheThreadIsCancelled) {
#ifdef PELORIK_SANITIZED
    GTEST_SKIP() << "the address sanitizer takes the stack of a cancelled thread for misused";
#endif
    support::allowLeaks(); // what the system keeps of a finished thread
    for (std::size_t number = 3; number <= 7; ++number) {
        answer(kLinks, kAddresses);
        kernel.cancelledCall = number;
        std::function<void()> body = [this] {
            call();
            pthread_testcancel();
        };
        const auto start = [](void* function) -> void* {
            (*static_cast<std::function<void()>*>(function))();
            return nullptr;
        };
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, nullptr, start, &body), 0);
        void* result = nullptr;
        ASSERT_EQ(pthread_join(thread, &result), 0);
        EXPECT_EQ(result, PTHREAD_CANCELED) << number;
        EXPECT_EQ(kernel.openSockets, 0U) << number;
        EXPECT_EQ(kernel.calls.back(), "close 77") << number;

        kernel.run([this] { sys_network_interfaces_destroy(&found); });
        EXPECT_THAT(kernel.blocks, IsEmpty()) << number;
        kernel = Kernel();
        found = {};
    }
}

TEST_F(NetInterf, KeepsErrnoOfAFailedRequestThroughTheCleanup) {
    kernel.replies = {datagram(kLinks + done())};
    kernel.failingRequest = 2;
    kernel.closeError = EIO;
    expectFailureWith(ENOBUFS);
}

TEST_F(NetInterf, FailsWhereReceivingFails) {
    for (const int error : {EINTR, EAGAIN, ENOBUFS}) {
        kernel.replies = {datagram(kLinks), failure(error)};
        kernel.closeError = EIO;
        expectFailureWith(error);
        kernel.replies = {datagram(kLinks + done()), datagram(kAddresses), failure(error)};
        kernel.closeError = EIO;
        expectFailureWith(error);
    }
}

TEST_F(NetInterf, FailsOnALengthThatDoesNotFit32Bits) {
    for (const ssize_t length : {ssize_t{1} << 32, (ssize_t{1} << 32) + 100, ssize_t{1} << 62}) {
        kernel.replies = {result(length), datagram(kLinks + done()), datagram(done())};
        expectFailure(2);
        kernel.replies = {datagram(kLinks + done()), result(length), datagram(done())};
        expectFailure(1);
    }
}

TEST_F(NetInterf, EmptyDatagramEndsAnAnswer) {
    kernel.replies = {datagram(kLinks), result(0), datagram(kAddresses), result(0)};
    EXPECT_EQ(list(), kListed);
}

TEST_F(NetInterf, TakesAnswersOfManyDatagrams) {
    kernel.replies = {datagram(link(2, name("eth0") + mtu(1400))), datagram(link(3, name("eth1"))),
                      datagram(done()), datagram(kAddresses), datagram(done())};
    EXPECT_EQ(list(), kListed);
}

TEST_F(NetInterf, SkipsDatagramsThatHoldNoHeader) {
    Bytes shorter = done();
    for (shorter.resize(15); !shorter.empty(); shorter.pop_back())
        kernel.replies.push_back(datagram(shorter));
    kernel.replies.push_back(datagram(kLinks + done()));
    kernel.replies.push_back(datagram(Bytes(15)));
    kernel.replies.push_back(datagram(kAddresses + done()));
    EXPECT_EQ(list(), kListed);
}

TEST_F(NetInterf, SkipsDatagramsWhoseFirstLengthIsTooSmall) {
    for (const std::uint32_t length : {0U, 1U, 15U})
        kernel.replies.push_back(datagram(messageOfLength(length, NLMSG_ERROR, {}) + done()));
    kernel.replies.push_back(datagram(kLinks + done()));
    kernel.replies.push_back(datagram(messageOfLength(15, NLMSG_ERROR, {}) + done()));
    kernel.replies.push_back(datagram(kAddresses + done()));
    EXPECT_EQ(list(), kListed);
}

TEST_F(NetInterf, LeavesADatagramAtALengthThatMakesNoSense) {
    for (const std::uint32_t length :
         {0U, 15U, 41U, 0x7FFFFFFFU, 0xFFFFFFF0U, 0xFFFFFFFDU, 0xFFFFFFFFU}) {
        const Bytes strange = messageOfLength(length, NLMSG_ERROR, Bytes(24)); // 40 bytes
        kernel.replies = {datagram(kLinks + strange), datagram(done()),
                          datagram(kAddresses + strange), datagram(done())};
        EXPECT_EQ(list(), kListed) << length;
    }
}

TEST_F(NetInterf, LeavesADatagramWhereLessThanAHeaderRemains) {
    kernel.replies = {datagram(kLinks + Bytes(15, 0xFF)), datagram(done()),
                      datagram(kAddresses + Bytes(1)), datagram(done())};
    EXPECT_EQ(list(), kListed);
}

TEST_F(NetInterf, MessagesStartAtMultiplesOfFour) {
    const Bytes ends = attributeOfLength(7, IFLA_IFNAME, {'a', 'b', 'c'}); // one byte of padding
    Bytes odd = link(2, ends);
    odd[0] -= 1; // the message ends with the attribute
    EXPECT_THAT(listOf(odd + link(3, name("next"))), ElementsAre("3 next 1500", "2 abc 1500"));
}

TEST_F(NetInterf, LastMessageNeedsNoPadding) {
    Bytes odd = link(2, attributeOfLength(7, IFLA_IFNAME, {'a', 'b', 'c'}));
    odd[0] -= 1;
    odd.pop_back();
    kernel.replies = {datagram(odd), datagram(done()), datagram(done())};
    EXPECT_THAT(list(), ElementsAre("2 abc 1500"));
}

TEST_F(NetInterf, DoneEndsAnAnswerWhateverFollowsInItsDatagram) {
    kernel.replies = {datagram(kLinks + done() + link(9, name("late"))),
                      datagram(kAddresses + done() + address(2, local(host(9))))};
    EXPECT_EQ(list(), kListed);
}

TEST_F(NetInterf, DoneNeedsNoBody) {
    kernel.replies = {datagram(kLinks + message(NLMSG_DONE)),
                      datagram(kAddresses + message(NLMSG_DONE))};
    EXPECT_EQ(list(), kListed);
}

TEST_F(NetInterf, SkipsMessagesThatSayNothing) {
    const Bytes noop = message(NLMSG_NOOP);
    EXPECT_EQ(listOf(noop + kLinks + noop, noop + kAddresses + noop), kListed);
}

TEST_F(NetInterf, FailsOnEveryOtherMessage) {
    const Bytes success = message(NLMSG_ERROR, Bytes(20));
    for (const Bytes& other :
         {success, message(NLMSG_ERROR, bytesOf(-EPERM) + Bytes(16)), message(NLMSG_OVERRUN),
          message(RTM_DELLINK), message(0), message(0xFFFF)}) {
        expectFailureOf(kLinks + other + done());
        kernel.replies = {datagram(kLinks + done()), datagram(kAddresses + other + done())};
        expectFailure();
    }
}

TEST_F(NetInterf, FailsOnTheMessageOfTheOtherAnswer) {
    expectFailureOf(kAddresses + done());
    kernel.replies = {datagram(kLinks + done()), datagram(kLinks + done())};
    expectFailure();
}

TEST_F(NetInterf, LeavesErrnoAloneWhereNoCallFailed) {
    kernel.replies = {datagram(kLinks + message(NLMSG_ERROR, Bytes(20)))};
    errno = EDOM;
    expectFailureWith(EDOM);
}

TEST_F(NetInterf, LooksAtNoSequenceNumberAndNoSender) {
    Bytes links = kLinks;
    std::fill_n(links.begin() + 6, 10, 0xFF); // the first message's flags, number and port id
    EXPECT_EQ(listOf(links, kAddresses), kListed);
}

// Links

TEST_F(NetInterf, ListsInterfacesInReverse) {
    EXPECT_THAT(listOf(link(7, name("a")) + link(5, name("b")) + link(6, name("c"))),
                ElementsAre("6 c 1500", "5 b 1500", "7 a 1500"));
}

TEST_F(NetInterf, SkipsLoopbackInterfacesWhateverTheySay) {
    const Bytes loopback = link(1, name("lo") + attribute(IFLA_MTU, Bytes(3)), IFF_LOOPBACK);
    EXPECT_THAT(listOf(loopback + link(2, name("eth0"), IFF_UP | IFF_BROADCAST),
                       address(1, local(host(1)))),
                ElementsAre("2 eth0 1500"));
}

TEST_F(NetInterf, ListsInterfacesThatAreDown) {
    EXPECT_THAT(listOf(link(2, name("eth0"), 0)), ElementsAre("2 eth0 1500"));
}

TEST_F(NetInterf, TakesEveryBitOfAnIndex) {
    EXPECT_THAT(listOf(link(-2, name("x")), address(0xFFFFFFFEU, local(host(1)))),
                ElementsAre("4294967294 x 1500 a.10.0.0.1"));
}

TEST_F(NetInterf, TakesTheMtuBeforeAndBehindTheName) {
    EXPECT_THAT(listOf(link(2, mtu(1) + name("before")) + link(3, name("behind") + mtu(65536)) +
                       link(4, mtu(9) + name("both") + mtu(0xFFFFFFFFU)) + link(5, name("none")) +
                       link(6, mtu(8) + mtu(0) + name("twice"))),
                ElementsAre("6 twice 0", "5 none 1500", "4 both 4294967295", "3 behind 65536",
                            "2 before 1"));
}

TEST_F(NetInterf, FailsOnAnMtuOfAnotherSize) {
    for (const std::size_t size : {0U, 1U, 3U, 5U, 8U}) {
        const Bytes wrong = attribute(IFLA_MTU, Bytes(size));
        expectFailureOf(link(2, wrong + name("eth0")) + done());
        expectFailureOf(link(2, name("eth0") + wrong) + done());
        expectFailureOf(link(2, wrong) + done());
    }
}

TEST_F(NetInterf, CutsANameAtItsLabel) {
    EXPECT_THAT(listOf(link(2, name("eth0:1")) + link(3, name("eth1::"))),
                ElementsAre("3 eth1 1500", "2 eth0 1500"));
}

TEST_F(NetInterf, CutsANameAtItsTerminator) {
    EXPECT_THAT(listOf(link(2, attribute(IFLA_IFNAME, {'a', 0, 'b', 0}))), ElementsAre("2 a 1500"));
}

TEST_F(NetInterf, NameWithoutATerminatorEndsWithItsAttribute) {
    Bytes unterminated = attributeOfLength(7, IFLA_IFNAME, {'a', 'b', 'c', 'd'});
    EXPECT_THAT(
        listOf(link(2, unterminated) + link(3, attribute(IFLA_IFNAME, {'a', 'b', 'c', 'd'}))),
        ElementsAre("3 abcd 1500", "2 abc 1500"));
}

TEST_F(NetInterf, ListsANameThatIsEmpty) {
    EXPECT_THAT(listOf(link(2, attribute(IFLA_IFNAME, {}))), ElementsAre("2  1500"));
    EXPECT_THAT(listOf(link(2, name(""))), ElementsAre("2  1500"));
    EXPECT_THAT(listOf(link(2, name(":1")) + link(3, name(""))), ElementsAre("2  1500"));
}

TEST_F(NetInterf, TakesNamesOfAnyLength) {
    const std::string longName(3000, 'n');
    EXPECT_THAT(listOf(link(2, name(longName))), ElementsAre("2 " + longName + " 1500"));
}

TEST_F(NetInterf, FoundNameKeepsItsIndexAndMtu) {
    EXPECT_THAT(listOf(link(2, mtu(1400) + name("eth0:1")) + link(3, mtu(9) + name("eth0:2")) +
                       link(4, name("eth0"))),
                ElementsAre("2 eth0 1400"));
}

TEST_F(NetInterf, FoundNameTakesTheMtuThatFollowsIt) {
    EXPECT_THAT(listOf(link(2, name("eth0") + mtu(1400)) + link(3, name("eth0") + mtu(9))),
                ElementsAre("2 eth0 9"));
}

TEST_F(NetInterf, NamesMatchWhole) {
    EXPECT_THAT(listOf(link(2, name("eth1")) + link(3, name("eth10")) + link(4, name("eth")) +
                       link(5, name("Eth1"))),
                ElementsAre("5 Eth1 1500", "4 eth 1500", "3 eth10 1500", "2 eth1 1500"));
}

TEST_F(NetInterf, TakesOnlyTheFirstNameOfAMessage) {
    EXPECT_THAT(listOf(link(2, name("first") + name("second") + mtu(7))), ElementsAre("2 first 7"));
    EXPECT_THAT(listOf(link(2, name("old")) + link(3, name("old") + name("new"))),
                ElementsAre("2 old 1500"));
}

TEST_F(NetInterf, ListsNothingForALinkWithoutAName) {
    EXPECT_THAT(listOf(link(2, mtu(1400)) + link(3, {})), IsEmpty());
}

TEST_F(NetInterf, IgnoresOtherAttributesOfALink) {
    constexpr std::uint16_t nested = NLA_F_NESTED;
    const Bytes others = attribute(IFLA_ADDRESS, Bytes(6)) + attribute(IFLA_IFALIAS, text("x")) +
                         attribute(IFLA_MTU | nested, Bytes(3)) +
                         attribute(IFLA_IFNAME | nested, text("y")) + attribute(0, {});
    EXPECT_THAT(listOf(link(2, others + name("eth0") + others)), ElementsAre("2 eth0 1500"));
}

TEST_F(NetInterf, SkipsALinkWithoutRoomForItsHeader) {
    EXPECT_THAT(
        listOf(message(RTM_NEWLINK) + message(RTM_NEWLINK, Bytes(15)) + link(2, name("eth0"))),
        ElementsAre("2 eth0 1500"));
}

TEST_F(NetInterf, LeavesAttributesAtALengthThatMakesNoSense) {
    for (const std::uint16_t length :
         std::initializer_list<std::uint16_t>{0, 1, 3, 9, 0x7FFF, 0xFFFC, 0xFFFF}) {
        const Bytes strange = attributeOfLength(length, IFLA_MTU, Bytes(4)); // 8 bytes
        EXPECT_THAT(listOf(link(2, name("eth0") + strange) + link(3, name("eth1"))),
                    ElementsAre("3 eth1 1500", "2 eth0 1500"))
            << length;
    }
}

TEST_F(NetInterf, LeavesAttributesWhereLessThanAHeaderRemains) {
    Bytes cut = link(2, name("eth0") + mtu(9));
    cut[0] -= 5; // the message ends inside the header of its last attribute
    cut.resize(cut.size() - 4);
    EXPECT_THAT(listOf(cut), ElementsAre("2 eth0 1500"));
}

TEST_F(NetInterf, ReadsAttributesOnlyAsFarAsTheirMessageReaches) {
    Bytes cut = link(2, name("eth0") + mtu(9));
    cut[0] -= 1;
    EXPECT_THAT(listOf(cut), ElementsAre("2 eth0 1500"));
}

TEST_F(NetInterf, AllocatesARecordAndItsNameAsOneBlock) {
    answer(link(2, name("eth0")) + link(3, name("")));
    EXPECT_EQ(call(), 0);
    EXPECT_THAT(kernel.allocations, ElementsAre(40 + 4 + 1, 40 + 0 + 1));
    kernel.run([this] { sys_network_interfaces_destroy(&found); });
    EXPECT_THAT(kernel.blocks, IsEmpty());
}

// Addresses

TEST_F(NetInterf, GivesAddressesToTheirInterfaces) {
    EXPECT_EQ(listOf(kLinks, kAddresses), kListed);
}

TEST_F(NetInterf, KeepsAddressesInTheirOrderAndAsTheyCame) {
    EXPECT_THAT(listOf(link(2, name("a")), address(2, local(host(3)) + local(host(1))) +
                                               address(2, broadcast(0xFFFFFFFFU)) +
                                               address(2, local(host(1)) + broadcast(0))),
                ElementsAre("2 a 1500 a.10.0.0.3 a.10.0.0.1 a.10.0.0.1 b.255.255.255.255 "
                            "b.0.0.0.0"));
}

TEST_F(NetInterf, ArraysGrowByOneValue) {
    Bytes addresses;
    for (unsigned i = 0; i < 3; ++i)
        addresses = addresses + address(2, local(host(i)));
    answer(link(2, name("a")), addresses + address(2, broadcast(host(255))));
    EXPECT_EQ(call(), 0);
    EXPECT_THAT(kernel.allocations, ElementsAre(42, 8, 12, 16, 8));
    EXPECT_EQ(found.list->addresses->count, 3U);
    EXPECT_EQ(found.list->addresses->values[2], host(2));
    kernel.run([this] { sys_network_interfaces_destroy(&found); });
}

TEST_F(NetInterf, IgnoresAddressesOfUnknownInterfaces) {
    EXPECT_THAT(listOf(link(2, name("a")), address(3, local(host(1))) + address(0, local(host(2)))),
                ElementsAre("2 a 1500"));
    EXPECT_THAT(listOf({}, kAddresses), IsEmpty());
}

TEST_F(NetInterf, GivesAddressesToTheFirstInterfaceOfTheIndex) {
    EXPECT_THAT(listOf(link(2, name("a")) + link(2, name("b")), address(2, local(host(1)))),
                ElementsAre("2 b 1500 a.10.0.0.1", "2 a 1500"));
}

// A name and an index of each of many interfaces, of which every third shares its predecessor's
// index and every fifth is told twice.
Bytes manyLinks(int count) {
    Bytes links;
    for (int i = 0; i < count; ++i) {
        const Bytes one = link(i % 3 == 2 ? i - 1 : i, name("if" + std::to_string(i)));
        links = links + one + (i % 5 == 0 ? one : Bytes());
    }
    return links;
}

// The records that they become, each with an address that tells its index: the newest of an index
// has it.
Texts manyRecords(int count) {
    Texts texts;
    for (int i = count - 1; i >= 0; --i) {
        const int index = i % 3 == 2 ? i - 1 : i;
        const bool isNewest = i % 3 != 1 || i == count - 1;
        texts.push_back(std::to_string(index) + " if" + std::to_string(i) + " 1500" +
                        (isNewest ? " a.10.0.0." + std::to_string(index) : ""));
    }
    return texts;
}

Bytes manyAddresses(int count) {
    Bytes addresses;
    for (int i = 0; i < count; ++i) {
        if (i % 3 != 2)
            addresses = addresses + address(static_cast<std::uint32_t>(i),
                                            local(host(static_cast<unsigned>(i))));
    }
    return addresses;
}

TEST_F(NetInterf, FindsEachOfManyByNameAndIndex) {
    for (const int count : {62, 63, 64, 65, 66, 100, 200}) {
        const Bytes links = manyLinks(count) + done();
        const Bytes addresses = manyAddresses(count) + done();
        kernel.replies = {datagram(links), datagram(links), datagram(addresses)};
        if (links.size() <= kBuffer)
            kernel.replies.pop_front(); // that one is not cut
        if (addresses.size() > std::max(kBuffer, links.size()))
            FAIL() << "the second answer starts everything again";
        EXPECT_EQ(list(), manyRecords(count));
    }
}

// A walk looks at the length of each name that it passes, an index at a few of them.
TEST_F(NetInterf, FiveThousandTakeAFewAllocationsAndLooksAtNamesEach) {
    constexpr std::size_t kCount = 5000;
    const Bytes links = manyLinks(kCount) + done();
    const Bytes addresses = manyAddresses(kCount) + done();
    kernel.replies = {datagram(links), datagram(links), datagram(addresses)};
    std::size_t looksAtNames = 0;
    {
        const support::Replacement strlen(support::calls::strlen, [&](const char* text) {
            ++looksAtNames;
            return support::calls::strlen.original(text);
        });
        ASSERT_EQ(call(), 0);
    }
    EXPECT_EQ(describe(found.list).size(), kCount);
    EXPECT_LE(kernel.allocations.size(), 4 * kCount);
    EXPECT_LE(looksAtNames, 10 * kCount);
    kernel.run([this] { sys_network_interfaces_destroy(&found); });
}

// What fails for lack of memory is a record, a buffer or an array; the index can do without.
TEST_F(NetInterf, ManyAreFoundWithoutMemoryForAnIndex) {
    constexpr int kCount = 80;
    const Bytes links = manyLinks(kCount) + done();
    const Bytes addresses = manyAddresses(kCount) + done();
    unsigned survived = 0;
    for (std::size_t failing = 1; kernel.allocations.size() + 1 >= failing; ++failing) {
        kernel = Kernel();
        found = {};
        kernel.replies = {datagram(links), datagram(links), datagram(addresses)};
        kernel.failingAllocation = failing;
        if (call() == 0) {
            EXPECT_EQ(describe(found.list), manyRecords(kCount)) << failing;
            kernel.run([this] { sys_network_interfaces_destroy(&found); });
            ++survived;
        }
        EXPECT_THAT(kernel.blocks, IsEmpty()) << failing;
    }
    // One without a failure; an index of two nodes a record, and the tables of the nodes.
    EXPECT_GT(survived, 1U + 2 * kCount);
}

TEST_F(NetInterf, IgnoresOtherAttributesOfAnAddress) {
    const Bytes others = attribute(IFA_ADDRESS, bytesOf(host(7))) +
                         attribute(IFA_LABEL, text("a:1")) + attribute(IFA_ANYCAST, Bytes(4));
    EXPECT_THAT(listOf(link(2, name("a")), address(2, others + local(host(1)) + others)),
                ElementsAre("2 a 1500 a.10.0.0.1"));
}

TEST_F(NetInterf, IgnoresAddressesOfLessThanFourBytes) {
    for (const std::size_t size : {0U, 1U, 3U}) {
        const Bytes shorter =
            attribute(IFA_LOCAL, Bytes(size)) + attribute(IFA_BROADCAST, Bytes(size));
        EXPECT_THAT(listOf(link(2, name("a")), address(2, shorter + local(host(1)))),
                    ElementsAre("2 a 1500 a.10.0.0.1"));
    }
}

TEST_F(NetInterf, TakesTheFirstFourBytesOfALongerAddress) {
    EXPECT_THAT(listOf(link(2, name("a")), address(2, attribute(IFA_LOCAL, {1, 2, 3, 4, 5, 6}))),
                ElementsAre("2 a 1500 a.1.2.3.4"));
}

TEST_F(NetInterf, SkipsAnAddressWithoutRoomForItsHeader) {
    EXPECT_THAT(listOf(link(0, name("a")), message(RTM_NEWADDR) + message(RTM_NEWADDR, Bytes(7)) +
                                               address(0, local(host(1)))),
                ElementsAre("0 a 1500 a.10.0.0.1"));
}

TEST_F(NetInterf, LeavesAttributesOfAnAddressAtALengthThatMakesNoSense) {
    for (const std::uint16_t length : std::initializer_list<std::uint16_t>{0, 3, 9, 0xFFFF}) {
        const Bytes strange = attributeOfLength(length, IFA_LOCAL, Bytes(4));
        EXPECT_THAT(listOf(link(2, name("a")), address(2, local(host(1)) + strange)),
                    ElementsAre("2 a 1500 a.10.0.0.1"));
    }
}

// Starting again

class NetInterfRestart : public NetInterf {
protected:
    // A datagram of NLMSG_NOOP messages, then `content`, `size` bytes in all.
    static Bytes filled(std::size_t size, const Bytes& content) {
        Bytes bytes;
        while (bytes.size() + content.size() < size)
            bytes = bytes + message(NLMSG_NOOP);
        EXPECT_EQ(bytes.size() + content.size(), size);
        return bytes + content;
    }

    static std::string receiveInto(std::size_t size) {
        return "recvmsg 77 32 " + std::to_string(size);
    }

    const Bytes kLarger = filled(kBuffer + 16, link(9, Bytes(16)));
    const Bytes kLargest = filled(kBuffer + 48, link(9, Bytes(16)));
};

TEST_F(NetInterfRestart, DatagramThatFillsTheBufferIsNotCut) {
    kernel.replies = {datagram(filled(kBuffer, kLinks)), datagram(done()),
                      datagram(kAddresses + done())};
    EXPECT_EQ(list(), kListed);
}

TEST_F(NetInterfRestart, CutLinksStartEverythingAgainInALargerBuffer) {
    kernel.replies = {datagram(link(8, name("gone"))), datagram(kLarger)};
    answer(kLinks, kAddresses);
    EXPECT_EQ(call(), 0);
    EXPECT_THAT(kernel.calls, ElementsAre(kSocketCall, kBindCall, kSendCall, kReceiveCall,
                                          kReceiveCall, kSendCall, receiveInto(kLarger.size()),
                                          kSendCall, receiveInto(kLarger.size()), "close 77"));
    EXPECT_THAT(kernel.requests, ElementsAre(kLinkRequest, kLinkRequest, kAddressRequest));
    EXPECT_EQ(kernel.allocations[1], kLarger.size());
    EXPECT_EQ(describe(found.list), kListed);
    kernel.run([this] { sys_network_interfaces_destroy(&found); });
    EXPECT_THAT(kernel.blocks, IsEmpty());
}

TEST_F(NetInterfRestart, CutAddressesStartEverythingAgain) {
    kernel.replies = {datagram(kLinks + done()), datagram(kAddresses), datagram(kLarger)};
    answer(kLinks, kAddresses);
    EXPECT_EQ(call(), 0);
    EXPECT_THAT(kernel.requests,
                ElementsAre(kLinkRequest, kAddressRequest, kLinkRequest, kAddressRequest));
    EXPECT_EQ(describe(found.list), kListed);
    kernel.run([this] { sys_network_interfaces_destroy(&found); });
    EXPECT_THAT(kernel.blocks, IsEmpty());
}

TEST_F(NetInterfRestart, StartsAgainForEachDatagramThatIsLargerStill) {
    kernel.replies = {datagram(kLarger), datagram(kLargest)};
    answer(kLinks, kAddresses);
    EXPECT_EQ(call(), 0);
    EXPECT_THAT(kernel.requests,
                ElementsAre(kLinkRequest, kLinkRequest, kLinkRequest, kAddressRequest));
    EXPECT_EQ(kernel.allocations[0], kLarger.size());
    EXPECT_EQ(kernel.allocations[1], kLargest.size());
    EXPECT_EQ(kernel.calls.back(), "close 77");
    EXPECT_EQ(describe(found.list), kListed);
    kernel.run([this] { sys_network_interfaces_destroy(&found); });
    EXPECT_THAT(kernel.blocks, IsEmpty());
}

TEST_F(NetInterfRestart, ReadsALargeDatagramWhole) {
    const Bytes large = filled(kBuffer + 32, kLinks);
    kernel.replies = {datagram(large), datagram(large), datagram(done()),
                      datagram(kAddresses + done())};
    EXPECT_EQ(list(), kListed);
}

TEST_F(NetInterfRestart, FailsLaterWithTheLargerBufferFreed) {
    kernel.replies = {datagram(kLarger), datagram(kLinks), failure(EINTR)};
    expectFailureWith(EINTR);
}

TEST_F(NetInterfRestart, Deliberate_LeavesTheSocketOpenWithoutMemoryForALargerBuffer) {
    kernel.replies = {datagram(kLinks), datagram(kLarger)};
    kernel.failingAllocation = 3; // behind two records
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_THAT(kernel.calls, testing::Not(testing::Contains("close 77")));
    EXPECT_EQ(kernel.openSockets, 1U);
    EXPECT_THAT(kernel.blocks, IsEmpty());
}

TEST_F(NetInterfRestart, Deliberate_LeavesTheSocketOpenAtALaterRestartToo) {
    kernel.replies = {datagram(kLarger), datagram(kLargest)};
    kernel.failingAllocation = 2;
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(kernel.openSockets, 1U);
    EXPECT_THAT(kernel.blocks, IsEmpty());
}

// A datagram that is one message of 2^32 - 1 bytes, of which only the header is ever looked at.
TEST_F(NetInterfRestart, EndsBehindAMessageOfTheGreatestLength) {
#ifdef PELORIK_SANITIZED
    GTEST_SKIP() << "takes a block of four gigabytes, which a sanitizer keeps a record of";
#endif
    constexpr std::uint32_t greatest = 0xFFFFFFFFU;
    void* volatile block = std::malloc(greatest);
    if (block == nullptr)
        GTEST_SKIP() << "no such block is to be had here";
    std::free(block);
    const Bytes noop = messageOfLength(greatest, NLMSG_NOOP, {});
    kernel.replies = {result(greatest), {noop, greatest, 0}};
    answer(kLinks, kAddresses);
    EXPECT_EQ(list(), kListed);
}

TEST_F(NetInterfRestart, AsksForMemoryUpToALengthOf32Bits) {
    kernel.replies = {result(0xFFFFFFFFU)};
    kernel.failingAllocation = 1;
    EXPECT_EQ(call(), -1);
    EXPECT_THAT(kernel.allocations, ElementsAre(0xFFFFFFFFU));
}

// Failure and release

TEST_F(NetInterf, FailsAndLeavesNothingWhicheverAllocationFails) {
    const Bytes large(kBuffer + 1);
    for (const std::size_t failing :
         {1U, 2U, 4U, 5U, 6U, 7U, 8U, 9U}) { // the third is the larger buffer
        kernel.replies = {datagram(kLinks), datagram(large), datagram(kLinks + done()),
                          datagram(kAddresses + done())};
        kernel.failingAllocation = failing;
        EXPECT_EQ(call(), -1) << failing;
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_EQ(kernel.openSockets, 0U);
        EXPECT_THAT(kernel.blocks, IsEmpty());
        kernel = Kernel();
        found = {};
    }
}

net_interface_record* makeExtra() {
    auto* const extra =
        static_cast<net_interface_record*>(std::malloc(sizeof(net_interface_record)));
    extra->addresses = static_cast<net_addresses*>(std::malloc(sizeof(net_addresses)));
    extra->broadcasts = static_cast<net_addresses*>(std::malloc(sizeof(net_addresses)));
    extra->aux_text = static_cast<char*>(std::malloc(1));
    extra->name[0] = '\0';
    return extra;
}

TEST_F(NetInterf, FailureFreesEverythingButLeavesThePointers) {
    for (const bool withExtra : {false, true}) {
        kernel.replies = {datagram(kLinks), failure(EINTR)};
        found = {};
        kernel.run([&] { found.extra_interface = withExtra ? makeExtra() : nullptr; });
        const net_interface_record* const extra = found.extra_interface;
        EXPECT_EQ(call(), -1);
        EXPECT_EQ(errno, EINTR);
        EXPECT_THAT(kernel.blocks, IsEmpty());
        EXPECT_EQ(found.extra_interface, extra);
        EXPECT_NE(found.list, nullptr);
    }
}

TEST_F(NetInterf, SuccessLeavesTheExtraInterfaceAlone) {
    answer(kLinks, kAddresses);
    kernel.run([&] { found.extra_interface = makeExtra(); });
    const net_interface_record* const extra = found.extra_interface;
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(found.extra_interface, extra);
    kernel.run([this] { sys_network_interfaces_destroy(&found); });
    EXPECT_THAT(kernel.blocks, IsEmpty());
}

TEST_F(NetInterf, Deliberate_DestroyFreesEverythingButLeavesThePointers) {
    answer(kLinks, kAddresses);
    EXPECT_EQ(call(), 0);
    kernel.run([&] { found.list->aux_text = static_cast<char*>(std::malloc(1)); });
    const system_network_interfaces before = found;
    kernel.run([this] { sys_network_interfaces_destroy(&found); });
    EXPECT_THAT(kernel.blocks, IsEmpty());
    EXPECT_EQ(found.list, before.list);
    EXPECT_EQ(found.extra_interface, nullptr);
}

TEST_F(NetInterf, DestroyOfNothingDoesNothing) {
    kernel.run([this] { sys_network_interfaces_destroy(&found); });
    EXPECT_THAT(kernel.calls, IsEmpty());
}

TEST(NetInterfLayout, FieldsStandInTheirOrder) {
    static_assert(offsetof(net_addresses, count) == 0 && offsetof(net_addresses, values) == 4);
    static_assert(offsetof(lan_interface, next) == 0);
    static_assert(offsetof(lan_interface, addresses) == 8);
    static_assert(offsetof(lan_interface, broadcasts) == 16);
    static_assert(offsetof(lan_interface, mtu) == 24);
    static_assert(offsetof(lan_interface, ifindex) == 28);
    static_assert(offsetof(lan_interface, aux_text) == 32);
    static_assert(offsetof(lan_interface, name) == 40);
    static_assert(offsetof(net_interface_record, addresses) == 0);
    static_assert(offsetof(net_interface_record, broadcasts) == 8);
    static_assert(offsetof(net_interface_record, mtu) == 16);
    static_assert(offsetof(net_interface_record, ifindex) == 20);
    static_assert(offsetof(net_interface_record, aux_text) == 24);
    static_assert(offsetof(net_interface_record, name) == 32);
    static_assert(offsetof(system_network_interfaces, list) == 0);
    static_assert(offsetof(system_network_interfaces, extra_interface) == 8);
}

} // namespace
