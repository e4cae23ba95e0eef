// Netlink messages byte by byte, well-formed or not.

#ifndef PELORIK_TESTS_SYSTEM_NETLINK_BYTES_H
#define PELORIK_TESTS_SYSTEM_NETLINK_BYTES_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <string_view>
#include <vector>

namespace netlink {

using Bytes = std::vector<unsigned char>;

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// The bytes of a plain record.
template<class Record>
Bytes bytesOf(const Record& record) {
    Bytes bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

inline Bytes padded(Bytes bytes) {
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return bytes;
}

// A message that claims the length `length`, with its padding behind it.
inline Bytes messageOfLength(std::uint32_t length, std::uint16_t type, const Bytes& body) {
    nlmsghdr header{};
    header.nlmsg_len = length;
    header.nlmsg_type = type;
    return padded(bytesOf(header) + body);
}

inline Bytes message(std::uint16_t type, const Bytes& body = {}) {
    return messageOfLength(static_cast<std::uint32_t>(sizeof(nlmsghdr) + body.size()), type, body);
}

inline Bytes done() {
    return message(NLMSG_DONE, Bytes(4));
}

// An attribute that claims the length `length`, with its padding behind it.
inline Bytes attributeOfLength(std::uint16_t length, std::uint16_t type, const Bytes& payload) {
    const rtattr header{length, type};
    return padded(bytesOf(header) + payload);
}

inline Bytes attribute(std::uint16_t type, const Bytes& payload) {
    return attributeOfLength(static_cast<std::uint16_t>(sizeof(rtattr) + payload.size()), type,
                             payload);
}

// The bytes of a text, with a terminator.
inline Bytes text(std::string_view value) {
    return Bytes(value.begin(), value.end()) + Bytes{0};
}

inline Bytes name(std::string_view value) {
    return attribute(IFLA_IFNAME, text(value));
}

inline Bytes mtu(std::uint32_t value) {
    return attribute(IFLA_MTU, bytesOf(value));
}

inline Bytes link(int index, const Bytes& attributes, unsigned flags = IFF_UP) {
    ifinfomsg info{};
    info.ifi_index = index;
    info.ifi_flags = flags;
    return message(RTM_NEWLINK, bytesOf(info) + attributes);
}

inline Bytes local(std::uint32_t value) {
    return attribute(IFA_LOCAL, bytesOf(value));
}

inline Bytes broadcast(std::uint32_t value) {
    return attribute(IFA_BROADCAST, bytesOf(value));
}

inline Bytes address(std::uint32_t index, const Bytes& attributes) {
    ifaddrmsg info{};
    info.ifa_family = AF_INET;
    info.ifa_index = index;
    return message(RTM_NEWADDR, bytesOf(info) + attributes);
}

} // namespace netlink

#endif
