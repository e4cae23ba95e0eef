// The rtnetlink conversation: the input is what the kernel answers. Nothing is read behind a
// datagram, nothing is left behind, and the records are those that a second reader finds, which is
// made of the kernel headers' own macros.
//
// The first byte is the number of the allocation that fails (0: none). Then follow the answers,
// each two bytes, low one first, and the datagram of that many bytes; the numbers at the end of the
// range are answers of other kinds.

#include "fuzz/target.h"
#include "system/net_interf.h"
#include "tests/system/scripted_kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace {

using Input = std::span<const std::uint8_t>;
using Replies = std::deque<scripted::Reply>;

constexpr std::size_t kFirstBuffer = 4096;

std::size_t takeNumber(Input& input) {
    const std::size_t low = input.empty() ? 0 : input[0];
    const std::size_t high = input.size() < 2 ? 0 : input[1];
    input = input.subspan(std::min<std::size_t>(2, input.size()));
    return high * 256 + low;
}

scripted::Reply takeReply(Input& input) {
    const std::size_t number = takeNumber(input);
    switch (number) {
    case 0xFFFF:
        return scripted::failure(EINTR);
    case 0xFFFE:
        return scripted::result(0);
    case 0xFFFD:
        return scripted::result(ssize_t{1} << 32);
    case 0xFFFC:
        return scripted::datagram(scripted::Bytes(kFirstBuffer + takeNumber(input)));
    default:
        break;
    }
    const Input datagram = input.subspan(0, std::min(number, input.size()));
    input = input.subspan(datagram.size());
    return scripted::datagram({datagram.begin(), datagram.end()});
}

struct Interface {
    std::string name;
    std::uint32_t index = 0;
    std::uint32_t mtu = 1500;
    std::vector<std::uint32_t> addresses;
    std::vector<std::uint32_t> broadcasts;

    bool operator==(const Interface&) const = default;
};

// The kernel headers' macros are C.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wsign-compare"
#pragma GCC diagnostic ignored "-Wsign-conversion"

// The second reader.
class Reader {
public:
    // False when the enumeration fails.
    bool read(const Replies& replies) {
        std::size_t buffer = kFirstBuffer;
        for (const scripted::Reply& reply : replies) {
            if (reply.result < 0 || reply.result > 0xFFFFFFFF)
                return false;
            const auto size = static_cast<std::size_t>(reply.result);
            if (size > buffer) {
                buffer = size;
                *this = Reader();
                continue;
            }
            if (size == 0)
                ended_ = true;
            else
                readDatagram(reply.datagram);
            if (failed_)
                return false;
            if (std::exchange(ended_, false) && std::exchange(wantsAddresses_, true))
                return true;
        }
        return false;
    }

    const std::deque<Interface>& interfaces() const { return interfaces_; }

private:
    void readDatagram(const scripted::Bytes& datagram) {
        std::vector<std::uint32_t> aligned(datagram.size() / 4 + 1);
        std::memcpy(aligned.data(), datagram.data(), datagram.size());
        auto length = static_cast<unsigned>(datagram.size());
        for (auto* header = reinterpret_cast<nlmsghdr*>(aligned.data());
             !failed_ && !ended_ && NLMSG_OK(header, static_cast<int>(length));
             header = NLMSG_NEXT(header, length))
            readMessage(header);
    }

    void readMessage(nlmsghdr* header) {
        const std::uint16_t wanted = wantsAddresses_ ? RTM_NEWADDR : RTM_NEWLINK;
        const auto size = static_cast<int>(header->nlmsg_len - NLMSG_HDRLEN);
        if (header->nlmsg_type == NLMSG_DONE)
            ended_ = true;
        else if (header->nlmsg_type == NLMSG_NOOP)
            return;
        else if (header->nlmsg_type != wanted)
            failed_ = true;
        else if (wantsAddresses_)
            readAddress(static_cast<ifaddrmsg*>(NLMSG_DATA(header)), size);
        else
            readLink(static_cast<ifinfomsg*>(NLMSG_DATA(header)), size);
    }

    void readLink(ifinfomsg* info, int size) {
        if (size < static_cast<int>(sizeof *info) || (info->ifi_flags & IFF_LOOPBACK) != 0)
            return;
        size -= static_cast<int>(sizeof *info);
        Interface fresh;
        fresh.index = static_cast<std::uint32_t>(info->ifi_index);
        Interface* current = nullptr;
        for (auto* attribute = reinterpret_cast<rtattr*>(info + 1); RTA_OK(attribute, size);
             attribute = RTA_NEXT(attribute, size)) {
            if (attribute->rta_type == IFLA_MTU) {
                failed_ = failed_ || attribute->rta_len != 8;
                if (failed_)
                    return;
                std::memcpy(&fresh.mtu, RTA_DATA(attribute), 4);
                if (current != nullptr)
                    current->mtu = fresh.mtu;
            }
            if (attribute->rta_type == IFLA_IFNAME && current == nullptr) {
                fresh.name.assign(static_cast<const char*>(RTA_DATA(attribute)),
                                  RTA_PAYLOAD(attribute));
                fresh.name = fresh.name.substr(0, fresh.name.find(':')).c_str();
                current = recordNamedAs(fresh);
            }
        }
    }

    Interface* recordNamedAs(const Interface& fresh) {
        for (Interface& interface : interfaces_) {
            if (interface.name == fresh.name)
                return &interface;
        }
        interfaces_.push_front(fresh);
        return &interfaces_.front();
    }

    void readAddress(ifaddrmsg* info, int size) {
        if (size < static_cast<int>(sizeof *info))
            return;
        size -= static_cast<int>(sizeof *info);
        const auto owner =
            std::find_if(interfaces_.begin(), interfaces_.end(), [&](const Interface& candidate) {
                return candidate.index == info->ifa_index;
            });
        for (auto* attribute = reinterpret_cast<rtattr*>(info + 1);
             owner != interfaces_.end() && RTA_OK(attribute, size);
             attribute = RTA_NEXT(attribute, size)) {
            std::uint32_t value = 0;
            if (RTA_PAYLOAD(attribute) < sizeof value)
                continue;
            std::memcpy(&value, RTA_DATA(attribute), sizeof value);
            if (attribute->rta_type == IFA_LOCAL)
                owner->addresses.push_back(value);
            if (attribute->rta_type == IFA_BROADCAST)
                owner->broadcasts.push_back(value);
        }
    }

    std::deque<Interface> interfaces_; // the last one found first
    bool wantsAddresses_ = false;
    bool ended_ = false;
    bool failed_ = false;
};

#pragma GCC diagnostic pop

std::vector<std::uint32_t> valuesOf(const net_addresses* addresses) {
    if (addresses == nullptr)
        return {};
    return {addresses->values, addresses->values + addresses->count};
}

std::deque<Interface> interfacesOf(const lan_interface* list) {
    std::deque<Interface> interfaces;
    for (; list != nullptr; list = list->next) {
        interfaces.push_back({list->name, list->ifindex, list->mtu, valuesOf(list->addresses),
                              valuesOf(list->broadcasts)});
    }
    return interfaces;
}

// The deliberate exception: without memory for a larger buffer the socket stays open.
bool mayLeaveTheSocketOpen(const scripted::Kernel& kernel) {
    return kernel.failingAllocation != 0 && kernel.allocations.size() == kernel.failingAllocation &&
           kernel.allocations.back() > kFirstBuffer;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    scripted::Kernel kernel;
    if (!input.empty()) {
        kernel.failingAllocation = input[0];
        input = input.subspan(1);
    }
    while (!input.empty())
        kernel.replies.push_back(takeReply(input));
    const Replies script = kernel.replies;

    system_network_interfaces found{};
    const int result = kernel.run([&found] { return get_system_network_interfaces(&found); });
    fuzz::require(kernel.openSockets == 0 || mayLeaveTheSocketOpen(kernel), "the socket is closed");
    if (kernel.allocations.size() < kernel.failingAllocation || kernel.failingAllocation == 0) {
        Reader reader;
        fuzz::require(reader.read(script) == (result == 0), "both readers agree on success");
        fuzz::require(result != 0 || reader.interfaces() == interfacesOf(found.list),
                      "both readers find the same");
    }
    if (result == 0)
        kernel.run([&found] { sys_network_interfaces_destroy(&found); });
    fuzz::require(kernel.blocks.empty(), "everything is freed");
    return 0;
}
