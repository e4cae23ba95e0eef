#include "cli/files/file_source.h"

#include "cli/process/signals.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cli {

namespace {

Descriptor openForReading(const std::string& path, int flags) {
    for (;;) {
        stopIfInterrupted();
        Descriptor opened(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | flags));
        if (opened)
            return opened;
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category());
    }
}

} // namespace

FileSource::FileSource(Descriptor opened) : descriptor_(std::move(opened)) {
    if (::fstat(descriptor_.get(), &status_) != 0)
        throw std::system_error(errno, std::generic_category());
}

FileSource FileSource::open(const std::string& path) {
    return FileSource(openForReading(path, 0));
}

FileSource FileSource::openWithoutWaiting(const std::string& path) {
    return FileSource(openForReading(path, O_NONBLOCK));
}

FileSource FileSource::standardInput() {
    Descriptor copy(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    if (!copy)
        throw std::system_error(errno, std::generic_category());
    return FileSource(std::move(copy));
}

std::size_t FileSource::read(unsigned char* data, std::size_t size) {
    return readFull(descriptor_.get(), data, size);
}

} // namespace cli
