#include "tests/system/scripted_kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <linux/netlink.h>
#include <pthread.h>
#include <sanitizer/asan_interface.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

namespace calls = support::calls;
using scripted::Kernel;

int finish(int error, int result) {
    if (error == 0)
        return result;
    errno = error;
    return -1;
}

std::string join(const char* call, std::initializer_list<long> arguments) {
    std::string text = call;
    for (const long argument : arguments)
        text += " " + std::to_string(argument);
    return text;
}

std::string textOf(const void* address, socklen_t size) {
    sockaddr_nl netlink{};
    std::memcpy(&netlink, address, std::min<std::size_t>(size, sizeof netlink));
    return join(" to", {size, netlink.nl_family, netlink.nl_pid, netlink.nl_groups});
}

// The part of the receive buffer that the last datagram did not fill: under the address sanitizer,
// reading it is caught.
class Unfilled {
public:
    void set(void* begin, std::size_t size) {
        clear();
        begin_ = begin;
        size_ = size;
        ASAN_POISON_MEMORY_REGION(begin_, size_);
    }

    // Gives it back, before the buffer's memory serves another purpose.
    void clear() {
        ASAN_UNPOISON_MEMORY_REGION(begin_, size_);
        size_ = 0;
    }

private:
    void* begin_ = nullptr;
    std::size_t size_ = 0;
};

Unfilled unfilled;

void hand(const scripted::Reply& reply, const iovec& vector) {
    unfilled.clear();
    auto* const buffer = static_cast<unsigned char*>(vector.iov_base);
    const std::size_t given = std::min(vector.iov_len, reply.datagram.size());
    std::copy_n(reply.datagram.begin(), given, buffer);
    if (std::cmp_less_equal(reply.result, vector.iov_len))
        unfilled.set(buffer + given, vector.iov_len - given);
}

// What a cancellation point does in a thread that was cancelled.
void endIfCancelled(Kernel& kernel) {
    if (kernel.calls.size() != kernel.cancelledCall)
        return;
    pthread_cancel(pthread_self());
    pthread_testcancel();
}

// Whether the allocation of `size` bytes that is asked for is the one that fails.
bool failsNow(Kernel& kernel, std::size_t size) {
    kernel.allocations.push_back(size);
    if (kernel.allocations.size() != kernel.failingAllocation)
        return false;
    errno = ENOMEM;
    return true;
}

// Memory that nobody may take for zeros. Of a huge block only the beginning is ever used.
void* allocate(Kernel& kernel, std::size_t size) {
    if (failsNow(kernel, size))
        return nullptr;
    void* const block = calls::malloc.original(size);
    std::memset(block, 0xA5, std::min(size, std::size_t{1} << 20));
    kernel.blocks.insert(block);
    return block;
}

void* reallocate(Kernel& kernel, void* block, std::size_t size) {
    if (failsNow(kernel, size))
        return nullptr;
    kernel.blocks.erase(block);
    void* const grown = calls::realloc.original(block, size);
    kernel.blocks.insert(grown);
    return grown;
}

void release(Kernel& kernel, void* block) {
    unfilled.clear();
    kernel.blocks.erase(block);
    calls::free.original(block);
    errno = EIDRM; // what a cleanup may do to it
}

int openSocket(Kernel& kernel, int family, int type, int protocol) {
    kernel.calls.push_back(join("socket", {family, type, protocol}));
    kernel.openSockets += kernel.socketError == 0;
    return finish(kernel.socketError, scripted::kDescriptor);
}

int bindSocket(Kernel& kernel, int fd, const sockaddr* address, socklen_t size) {
    kernel.calls.push_back(join("bind", {fd}) + textOf(address, size));
    return finish(kernel.bindError, 0);
}

ssize_t send(Kernel& kernel, int fd, const msghdr* message, int flags) {
    kernel.calls.push_back(join("sendmsg", {fd, flags}) +
                           textOf(message->msg_name, message->msg_namelen) +
                           join(" vectors", {static_cast<long>(message->msg_iovlen)}));
    endIfCancelled(kernel);
    const auto* const bytes = static_cast<const unsigned char*>(message->msg_iov->iov_base);
    const std::size_t size = message->msg_iov->iov_len;
    kernel.requests.emplace_back(bytes, bytes + size);
    if (kernel.requests.size() != kernel.failingRequest)
        return static_cast<ssize_t>(size);
    if (kernel.requestResult < 0)
        errno = ENOBUFS;
    return kernel.requestResult;
}

ssize_t receive(Kernel& kernel, int fd, msghdr* message, int flags) {
    const iovec& vector = *message->msg_iov;
    kernel.calls.push_back(join("recvmsg", {fd, flags, static_cast<long>(vector.iov_len)}));
    endIfCancelled(kernel);
    if (kernel.replies.empty())
        return finish(ENODATA, 0);
    const scripted::Reply reply = std::move(kernel.replies.front());
    kernel.replies.pop_front();
    hand(reply, vector);
    if (reply.result < 0)
        errno = reply.error;
    return reply.result;
}

int closeSocket(Kernel& kernel, int fd) {
    unfilled.clear();
    kernel.calls.push_back(join("close", {fd}));
    endIfCancelled(kernel);
    --kernel.openSockets;
    return finish(kernel.closeError, 0);
}

// A replacement that passes the kernel to `function`. It is small enough to take no memory.
template<class Result, class... Arguments>
auto with(Kernel& kernel, Result (*function)(Kernel&, Arguments...)) {
    return [&kernel, function](Arguments... arguments) { return function(kernel, arguments...); };
}

} // namespace

namespace scripted {

Reply datagram(Bytes bytes) {
    const auto size = static_cast<ssize_t>(bytes.size());
    return {std::move(bytes), size, 0};
}

Reply result(ssize_t value) {
    return {{}, value, 0};
}

Reply failure(int error) {
    return {{}, -1, error};
}

Running::Running(Kernel& kernel)
    : malloc_(calls::malloc, with(kernel, allocate)),
      realloc_(calls::realloc, with(kernel, reallocate)), free_(calls::free, with(kernel, release)),
      socket_(calls::socket, with(kernel, openSocket)),
      bind_(calls::bind, with(kernel, bindSocket)), sendmsg_(calls::sendmsg, with(kernel, send)),
      recvmsg_(calls::recvmsg, with(kernel, receive)),
      close_(calls::close, with(kernel, closeSocket)),
      getpid_(calls::getpid, [] { return kProcess; }) {}

} // namespace scripted
