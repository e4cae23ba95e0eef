#include "cli/files/file_identity.h"

#include <cstdlib>
#include <memory>

namespace cli {

namespace {

struct Free {
    void operator()(char* text) const { std::free(text); }
};

} // namespace

std::string resolved(const std::string& path) {
    const std::unique_ptr<char, Free> text(::realpath(path.c_str(), nullptr));
    return text ? std::string(text.get()) : std::string();
}

FileIdentity::FileIdentity(const std::string& path)
    : exists_(::stat(path.c_str(), &status_) == 0), place_(resolved(path)) {}

FileIdentity::FileIdentity(int descriptor) : exists_(::fstat(descriptor, &status_) == 0) {}

bool FileIdentity::isAt(const std::string& name, const struct stat& status) const {
    return hasInode(status.st_ino) && status.st_dev == status_.st_dev &&
           (!place_ || resolved(name) == *place_);
}

} // namespace cli
