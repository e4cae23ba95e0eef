#include "cli/hashing/file_hasher.h"

#include "cli/process/error.h"

#include <cerrno>
#include <system_error>

namespace cli {

namespace {

[[noreturn]] void refuse(const std::system_error& error) {
    const int number = error.code().value();
    throw NotHashable{errorText(number), number == ENOENT || number == ENOTDIR};
}

FileSource opened(const std::string& name) {
    try {
        return FileSource::openWithoutWaiting(name);
    } catch (const std::system_error& error) {
        refuse(error);
    }
}

} // namespace

ListedFile::ListedFile(const std::string& name) : source_(opened(name)) {
    if (!source_.isRegular())
        throw NotHashable{"is no regular file any more", false};
}

std::string ListedFile::digest(Digester& digester, Progress& progress) {
    try {
        const std::uint64_t count = digester.read(source_, progress, source_.size());
        unsigned char more = 0;
        if (count < source_.size() || (count == 0 && source_.read(&more, 1) > 0))
            throw NotHashable{"its size is not what it gives", false};
    } catch (const std::system_error& error) {
        refuse(error);
    }
    return digester.digests().front()->ToStr(false, true);
}

} // namespace cli
