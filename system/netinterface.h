/// The host's network interfaces, the loopback one excepted, and their IPv4 addresses, as a vector
/// of values.

#ifndef PELORIK_SYSTEM_NETINTERFACE_H
#define PELORIK_SYSTEM_NETINTERFACE_H

#include "pelorik/export.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vpnfc {

/// One interface.
struct NetInterfaceInfo {
    std::string name;                      ///< cut before its first `:`
    std::string auxText;                   ///< empty: nothing fills it yet
    std::vector<std::uint32_t> addresses;  ///< IPv4, each in network byte order
    std::vector<std::uint32_t> broadcasts; ///< IPv4, each in network byte order
    std::uint32_t mtu = 0;                 ///< in bytes
    std::uint32_t index = 0;               ///< the kernel's number of the interface
};

/// Appends the host's interfaces to `out`, those that are down included, in the reverse of the
/// kernel's order; what stands in `out` already stays.
///
/// The broadcast addresses are a list of their own: nothing says which address one belongs to.
///
/// Returns false, with `out` as it was, when the kernel cannot be asked; `errno` is then that of
/// the call that failed, or as it was before where no call failed: the kernel refused, or its
/// answer makes no sense. One call at a time: see net_interf.h for what makes a call fail.
///
/// Throws `std::bad_alloc` when there is no memory for `out`; what was appended before stays there.
/// A thread that is cancelled in the call appends nothing and frees everything else.
PELORIK_API bool CollectNetInterfaceInfo(std::vector<NetInterfaceInfo>& out);

} // namespace vpnfc

#endif
