// Conversion of the records of net_interf.h, whose functions are mocked here. netinterface_test.cpp
// has the tests with the real kernel.

#include "system/net_interf.h"
#include "system/netinterface.h"
#include "tests/support/fault_injection.h"
#include "tests/support/leak_check.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <pthread.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vpnfc::CollectNetInterfaceInfo;
using vpnfc::NetInterfaceInfo;

struct LayerBelow {
    int result = 0;
    lan_interface* list = nullptr;
    net_interface_record* extra = nullptr;
    int destroyed = 0;
    bool endsThread = false;            // in the middle, as a cancellation does
    system_network_interfaces before{}; // what the container held before the call
};

LayerBelow* mock = nullptr;

net_addresses* makeAddresses(const std::vector<std::uint32_t>& values) {
    const auto count = static_cast<std::uint32_t>(values.size());
    auto* const block = static_cast<char*>(std::malloc(sizeof(net_addresses) + 4 * values.size()));
    std::memcpy(block, &count, sizeof count);
    if (count != 0)
        std::memcpy(block + sizeof count, values.data(), sizeof(std::uint32_t) * values.size());
    return reinterpret_cast<net_addresses*>(block);
}

template<class Record>
Record* makeRecord(const char* name, std::uint32_t mtu, std::uint32_t index) {
    auto* const record = static_cast<Record*>(std::calloc(1, sizeof(Record) + std::strlen(name)));
    record->mtu = mtu;
    record->ifindex = index;
    std::memcpy(reinterpret_cast<char*>(record) + offsetof(Record, name), name, std::strlen(name));
    return record;
}

std::string describe(const char* label, const std::vector<std::uint32_t>& values) {
    std::string text;
    for (const std::uint32_t value : values)
        text += label + std::to_string(value);
    return text;
}

std::vector<std::string> describe(const std::vector<NetInterfaceInfo>& all) {
    std::vector<std::string> texts;
    for (const NetInterfaceInfo& info : all) {
        texts.push_back(std::to_string(info.index) + " " + info.name + " " +
                        std::to_string(info.mtu) + " \"" + info.auxText + "\"" +
                        describe(" a", info.addresses) + describe(" b", info.broadcasts));
    }
    return texts;
}

class NetInterfaceRecords : public testing::Test {
protected:
    NetInterfaceRecords() { mock = &below; }
    ~NetInterfaceRecords() override { mock = nullptr; }

    void makeTwoAndAnExtra() {
        below.list = makeRecord<lan_interface>("second", 1400, 7);
        below.list->addresses = makeAddresses({3, 1, 2});
        below.list->broadcasts = makeAddresses({9});
        below.list->next = makeRecord<lan_interface>("first", 65536, 4);
        below.list->next->aux_text = strdup("about it");
        below.list->next->addresses = makeAddresses({});
        below.extra = makeRecord<net_interface_record>("extra", 9000, 5);
        below.extra->addresses = makeAddresses({8});
        below.extra->aux_text = strdup("more");
    }

    LayerBelow below;
    std::vector<NetInterfaceInfo> out;
};

template<class Record>
void destroy(Record* record) {
    if (record == nullptr)
        return;
    std::free(record->addresses);
    std::free(record->broadcasts);
    std::free(record->aux_text);
    std::free(record);
}

} // namespace

int get_system_network_interfaces(system_network_interfaces* c) {
    mock->before = *c;
    c->list = mock->list;
    c->extra_interface = mock->extra;
    if (mock->endsThread)
        pthread_exit(nullptr);
    return mock->result;
}

void sys_network_interfaces_destroy(system_network_interfaces* c) {
    ++mock->destroyed;
    while (c->list != nullptr)
        destroy(std::exchange(c->list, c->list->next));
    destroy(std::exchange(c->extra_interface, nullptr));
}

namespace {

TEST_F(NetInterfaceRecords, BecomeValuesInTheirOrder) {
    makeTwoAndAnExtra();
    EXPECT_TRUE(CollectNetInterfaceInfo(out));
    EXPECT_THAT(describe(out),
                ElementsAre("7 second 1400 \"\" a3 a1 a2 b9", "4 first 65536 \"about it\"",
                            "0 extra 9000 \"more\" a8"));
    EXPECT_EQ(below.destroyed, 1);
}

TEST_F(NetInterfaceRecords, AreAskedForWithAnEmptyContainer) {
    EXPECT_TRUE(CollectNetInterfaceInfo(out));
    EXPECT_EQ(below.before.list, nullptr);
    EXPECT_EQ(below.before.extra_interface, nullptr);
    EXPECT_THAT(out, IsEmpty());
    EXPECT_EQ(below.destroyed, 1);
}

TEST_F(NetInterfaceRecords, MayBeAnExtraInterfaceAlone) {
    below.extra = makeRecord<net_interface_record>("", 0, 5);
    EXPECT_TRUE(CollectNetInterfaceInfo(out));
    EXPECT_THAT(describe(out), ElementsAre("0  0 \"\""));
}

TEST_F(NetInterfaceRecords, AreAppended) {
    out.resize(1);
    out[0].name = "there before";
    makeTwoAndAnExtra();
    EXPECT_TRUE(CollectNetInterfaceInfo(out));
    ASSERT_EQ(out.size(), 4U);
    EXPECT_EQ(out[0].name, "there before");
    EXPECT_EQ(out[3].name, "extra");
}

TEST_F(NetInterfaceRecords, FailureLeavesEverythingAlone) {
    below.result = -1;
    below.list = reinterpret_cast<lan_interface*>(1); // freed already, so never to be looked at
    out.resize(1);
    errno = EDOM;
    EXPECT_FALSE(CollectNetInterfaceInfo(out));
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(out.size(), 1U);
    EXPECT_EQ(below.destroyed, 0);
}

// In turn: room for one, the first one's addresses and broadcasts, room for two, for a third, and
// the addresses of that.
TEST_F(NetInterfaceRecords, AreFreedWhicheverAllocationFailsAndWhatWasAppendedStays) {
    const std::vector<std::size_t> appended = {0, 1, 1, 1, 2, 3};
    for (long failing = 1; failing <= std::ssize(appended); ++failing) {
        below = LayerBelow();
        makeTwoAndAnExtra();
        std::vector<NetInterfaceInfo> some;
        {
            const support::FailingCall allocation(support::CallKind::kMemory, failing);
            EXPECT_THROW(CollectNetInterfaceInfo(some), std::bad_alloc) << failing;
        }
        EXPECT_EQ(below.destroyed, 1);
        EXPECT_EQ(some.size(), appended[static_cast<std::size_t>(failing - 1)]) << failing;
    }
}

TEST_F(NetInterfaceRecords, AreFreedWhenTheThreadEndsBeforeTheyAreComplete) {
#ifdef PELORIK_SANITIZED
    GTEST_SKIP() << "the address sanitizer takes the stack of a cancelled thread for misused";
#endif
    support::allowLeaks(); // what the system keeps of a finished thread
    makeTwoAndAnExtra();
    below.endsThread = true;
    pthread_t thread;
    const auto collect = [](void* vector) -> void* {
        CollectNetInterfaceInfo(*static_cast<std::vector<NetInterfaceInfo>*>(vector));
        return vector;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, collect, &out), 0);
    void* result = &out;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(below.destroyed, 1);
    EXPECT_THAT(out, IsEmpty());
}

TEST(NetInterfaceLayout, FieldsStandInTheirOrder) {
    constexpr std::size_t texts = 2 * sizeof(std::string);
    constexpr std::size_t vectors = 2 * sizeof(std::vector<std::uint32_t>);
    static_assert(offsetof(NetInterfaceInfo, name) == 0);
    static_assert(offsetof(NetInterfaceInfo, auxText) == sizeof(std::string));
    static_assert(offsetof(NetInterfaceInfo, addresses) == texts);
    static_assert(offsetof(NetInterfaceInfo, broadcasts) == texts + vectors / 2);
    static_assert(offsetof(NetInterfaceInfo, mtu) == texts + vectors);
    static_assert(offsetof(NetInterfaceInfo, index) == texts + vectors + 4);
}

} // namespace
