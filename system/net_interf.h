/// The host's network interfaces, the loopback one excepted, and their IPv4 addresses, asked of the
/// kernel over rtnetlink: the layer of plain records. netinterface.h gives the same as a vector of
/// values.
///
/// All records and arrays come from `malloc` and are given back with
/// `sys_network_interfaces_destroy`. Nothing here throws or prints.
///
/// One call at a time: a call binds its socket to the process id as netlink port id. A second call
/// on another thread makes `bind` fail with EADDRINUSE, and with it the call. So does any other
/// socket of the family NETLINK_ROUTE that holds this port id. Every process of the network
/// namespace, of any user, can hold it, and can thus make the call fail for as long as it likes.

#ifndef PELORIK_SYSTEM_NET_INTERF_H
#define PELORIK_SYSTEM_NET_INTERF_H

#include "pelorik/export.h"

#include <cstdint>

/// A counted array of IPv4 addresses. The block is as long as `count` values need.
struct net_addresses {
    std::uint32_t count;     ///< how many there are
    std::uint32_t values[1]; ///< `count` of them, each in network byte order as the kernel sent it
};

/// One interface, as a record of its own. The block is as long as the name needs.
struct net_interface_record {
    net_addresses* addresses;  ///< its own addresses; null when there is none
    net_addresses* broadcasts; ///< broadcast addresses; null when there is none
    std::uint32_t mtu;         ///< in bytes; 1500 when the kernel tells none
    std::uint32_t ifindex;     ///< the kernel's number of the interface
    char* aux_text;            ///< a text from `malloc`, or null; enumeration leaves it null
    char name[1];              ///< NUL-terminated, cut before its first `:`
};

/// One interface, as a node of a list. The block is as long as the name needs.
struct lan_interface {
    lan_interface* next;       ///< null at the end
    net_addresses* addresses;  ///< its own addresses; null when there is none
    net_addresses* broadcasts; ///< broadcast addresses; null when there is none
    std::uint32_t mtu;         ///< in bytes; 1500 when the kernel tells none
    std::uint32_t ifindex;     ///< the kernel's number of the interface
    char* aux_text;            ///< a text from `malloc`, or null; enumeration leaves it null
    char name[1];              ///< NUL-terminated, cut before its first `:`
};

/// All interfaces. The caller owns it and fills it with zeros before the call.
struct system_network_interfaces {
    lan_interface* list; ///< the first record; null when there is none

    /// One further interface, or null. Enumeration never sets it; one that the caller sets (from
    /// `malloc`, like all it points to) is freed with the rest.
    net_interface_record* extra_interface;
};

/// Fills `c->list` with the host's interfaces, those that are down included, in the reverse of the
/// kernel's order. `c` must not be null.
///
/// Returns 0, or -1 on any failure, with `errno` as the failing call left it (a refusal by the
/// kernel and an answer that makes no sense have no call that fails, and set none). A signal that
/// interrupts the wait fails the call; call again.
///
/// After a failure everything in `c` has been freed already, an `extra_interface` of the caller's
/// included, but its pointers still hold their old values: neither use nor destroy it, fill it with
/// zeros again.
///
/// The list may be partial without a failure when the kernel ends its answer early. A thread that
/// is cancelled in the call closes its socket and leaves the records so far in `c`.
///
/// Deliberate: when the answer outgrows the buffer and there is no memory for a larger one, the
/// call fails and leaves its socket open.
PELORIK_API int get_system_network_interfaces(system_network_interfaces* c);

/// Frees all records of `c`, `extra_interface` included. `c` must not be null.
///
/// Deliberate: the pointers in `c` are left as they were. Call it once.
PELORIK_API void sys_network_interfaces_destroy(system_network_interfaces* c);

#endif
