// A mock of the kernel and the allocator that follows a script. It replaces socket, bind, sendmsg,
// recvmsg, close, getpid, malloc, realloc and free while a `Kernel` runs the library.

#ifndef PELORIK_TESTS_SYSTEM_SCRIPTED_KERNEL_H
#define PELORIK_TESTS_SYSTEM_SCRIPTED_KERNEL_H

#include "tests/support/fault_injection.h"

#include <cstddef>
#include <deque>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

namespace scripted {

using Bytes = std::vector<unsigned char>;

// What one recvmsg does: it hands out as much of the datagram as there is room for, and returns the
// result, or -1 with an error.
struct Reply {
    Bytes datagram;
    ssize_t result;
    int error;
};

// A datagram, whose whole length is the result, as with MSG_TRUNC.
Reply datagram(Bytes bytes);

// A result without a datagram: 0, or a length that no datagram has.
Reply result(ssize_t value);

// A call that fails.
Reply failure(int error);

inline constexpr int kDescriptor = 77; // no descriptor of the test program
inline constexpr int kProcess = 0x01020304;

struct Kernel;

// While it lives, calls reach this kernel.
class Running {
public:
    explicit Running(Kernel& kernel);

private:
    support::Replacement<decltype(support::calls::malloc)> malloc_;
    support::Replacement<decltype(support::calls::realloc)> realloc_;
    support::Replacement<decltype(support::calls::free)> free_;
    support::Replacement<decltype(support::calls::socket)> socket_;
    support::Replacement<decltype(support::calls::bind)> bind_;
    support::Replacement<decltype(support::calls::sendmsg)> sendmsg_;
    support::Replacement<decltype(support::calls::recvmsg)> recvmsg_;
    support::Replacement<decltype(support::calls::close)> close_;
    support::Replacement<decltype(support::calls::getpid)> getpid_;
};

struct Kernel {
    // Runs the library with this kernel in place.
    template<class Body>
    auto run(Body body) {
        const Running running(*this);
        return body();
    }

    // The script. An error of 0 is none.
    std::deque<Reply> replies; // when there is none left, recvmsg fails with ENODATA
    int socketError = 0;
    int bindError = 0;
    int closeError = 0;
    std::size_t failingRequest = 0;    // the number, from 1, of the sendmsg that answers
    ssize_t requestResult = -1;        // this, and ENOBUFS when it is -1
    std::size_t failingAllocation = 0; // the number, from 1, of the malloc or realloc that fails
    std::size_t cancelledCall = 0;     // the number, from 1, of the call that cancels its thread

    // What happened.
    std::vector<std::string> calls; // of the system, with their arguments
    std::vector<Bytes> requests;
    std::size_t openSockets = 0;
    std::vector<std::size_t> allocations; // sizes, in bytes
    std::set<void*> blocks;               // allocated and not freed
};

} // namespace scripted

#endif
