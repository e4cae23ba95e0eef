// Time against the number of interfaces, each with an address, with a kernel that answers at once.
// The program is linked with --wrap for the calls of the system.

#include "system/net_interf.h"
#include "tests/system/netlink_bytes.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace {

using netlink::operator+;

constexpr std::size_t kMostInADatagram = 4096; // what the first buffer takes

using Datagrams = std::vector<netlink::Bytes>;

// Adds messages one by one to datagrams such as the kernel sends.
void add(Datagrams& datagrams, const netlink::Bytes& message) {
    if (datagrams.empty() || datagrams.back().size() + message.size() > kMostInADatagram)
        datagrams.emplace_back();
    datagrams.back().insert(datagrams.back().end(), message.begin(), message.end());
}

Datagrams answersAbout(std::uint32_t count) {
    Datagrams links;
    Datagrams addresses;
    for (std::uint32_t i = 0; i < count; ++i) {
        add(links,
            netlink::link(static_cast<int>(i),
                          netlink::name("interface" + std::to_string(i)) + netlink::mtu(1400)));
        add(addresses, netlink::address(i, netlink::local(i) + netlink::broadcast(~i)));
    }
    add(links, netlink::done());
    add(addresses, netlink::done());
    links.insert(links.end(), addresses.begin(), addresses.end());
    return links;
}

const Datagrams* answers = nullptr;
std::size_t answered = 0;

void enumerate() {
    answered = 0;
    system_network_interfaces found{};
    if (get_system_network_interfaces(&found) != 0)
        throw std::runtime_error("the enumeration failed");
    sys_network_interfaces_destroy(&found);
}

const bool registered = [] {
    for (const std::uint32_t count : {10U, 100U, 1000U, 5000U}) {
        const std::string name = "interfaces/" + std::to_string(count) + "/pelorik";
        benchmark::RegisterBenchmark(name.c_str(), [count](benchmark::State& state) {
            const Datagrams prepared = answersAbout(count);
            answers = &prepared;
            for (auto _ : state)
                enumerate();
        });
    }
    return true;
}();

} // namespace

extern "C" {

int __wrap_socket(int, int, int);
int __wrap_bind(int, const sockaddr*, socklen_t);
ssize_t __wrap_sendmsg(int, const msghdr* message, int);
ssize_t __wrap_recvmsg(int, msghdr* message, int);
int __wrap_close(int);

int __wrap_socket(int, int, int) {
    return 0;
}

int __wrap_bind(int, const sockaddr*, socklen_t) {
    return 0;
}

ssize_t __wrap_sendmsg(int, const msghdr* message, int) {
    return static_cast<ssize_t>(message->msg_iov->iov_len);
}

ssize_t __wrap_recvmsg(int, msghdr* message, int) {
    const netlink::Bytes& datagram = answers->at(answered++);
    std::copy(datagram.begin(), datagram.end(),
              static_cast<unsigned char*>(message->msg_iov->iov_base));
    return static_cast<ssize_t>(datagram.size());
}

int __wrap_close(int) {
    return 0;
}
}
