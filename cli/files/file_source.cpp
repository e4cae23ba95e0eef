#include "cli/files/file_source.h"

#include "cli/files/file_identity.h"
#include "cli/process/signals.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cli {

FileSource::FileSource(Descriptor opened) : descriptor_(std::move(opened)) {
    if (::fstat(descriptor_.get(), &status_) != 0)
        throw std::system_error(errno, std::generic_category());
}

FileSource FileSource::open(const std::string& path) {
    for (;;) {
        stopIfInterrupted();
        Descriptor opened(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
        if (opened)
            return FileSource(std::move(opened));
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category());
    }
}

FileSource FileSource::openWithoutWaiting(const std::string& path) {
    Descriptor opened = openWithoutBlocking(path.c_str(), [](std::size_t) { stopIfInterrupted(); });
    if (!opened)
        throw std::system_error(errno, std::generic_category());
    return FileSource(std::move(opened));
}

FileSource FileSource::copyOf(int descriptor) {
    Descriptor copy(::fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    if (!copy)
        throw std::system_error(errno, std::generic_category());
    return FileSource(std::move(copy));
}

bool FileSource::isComplete() const {
    if (!isRegular())
        return true;
    struct stat now {};
    if (::fstat(descriptor_.get(), &now) != 0)
        throw std::system_error(errno, std::generic_category());
    return isUnchanged(status_, now) && ::lseek(descriptor_.get(), 0, SEEK_CUR) >= now.st_size;
}

std::size_t FileSource::read(unsigned char* data, std::size_t size) {
    return readFull(descriptor_.get(), data, size);
}

} // namespace cli
