#include "cli/files/descriptor.h"

#include "cli/process/signals.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <fcntl.h>
#include <poll.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace cli {

namespace {

constexpr std::chrono::milliseconds kBetweenAttempts(20);

// Returns when reading or writing failed with `error` and may go on: at once after a signal, and
// when `descriptor` is ready where whoever shares it has made it one that does not wait.
bool mayGoOn(int error, int descriptor, short event) {
    if (error == EAGAIN) {
        pollfd ready{descriptor, event, 0};
        ::poll(&ready, 1, -1);
    }
    return error == EAGAIN || error == EINTR;
}

// How many of `size` bytes can be written without waiting for a reader.
std::size_t writableNow(int descriptor, std::size_t size) {
    pollfd ready{descriptor, POLLOUT, 0};
    return ::poll(&ready, 1, 0) > 0 ? std::min<std::size_t>(size, PIPE_BUF) : 0;
}

} // namespace

Descriptor::~Descriptor() {
    close();
}

int Descriptor::close() {
    const int number = std::exchange(number_, -1);
    return number < 0 || ::close(number) == 0 ? 0 : errno;
}

Descriptor openWithoutBlocking(const char* path, const std::function<void(std::size_t)>& poll) {
    for (;;) {
        Descriptor opened(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (opened || (errno != EAGAIN && errno != EINTR))
            return opened;
        if (errno == EAGAIN)
            std::this_thread::sleep_for(kBetweenAttempts);
        poll(0);
    }
}

std::size_t readFull(int descriptor, unsigned char* data, std::size_t size) {
    std::size_t filled = 0;
    while (filled < size) {
        stopIfInterrupted();
        const ssize_t count = ::read(descriptor, data + filled, size - filled);
        if (count == 0)
            break;
        if (count > 0)
            filled += static_cast<std::size_t>(count);
        else if (!mayGoOn(errno, descriptor, POLLIN))
            throw std::system_error(errno, std::generic_category());
    }
    return filled;
}

int writeAll(int descriptor, std::string_view data) {
    while (!data.empty()) {
        const std::size_t size =
            interruptRequested() ? writableNow(descriptor, data.size()) : data.size();
        if (size == 0)
            return EINTR;
        const ssize_t count = ::write(descriptor, data.data(), size);
        if (count >= 0)
            data.remove_prefix(static_cast<std::size_t>(count));
        else if (const int error = errno; !mayGoOn(error, descriptor, POLLOUT))
            return error;
    }
    return 0;
}

} // namespace cli
