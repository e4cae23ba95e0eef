#include "cli/files/file_identity.h"

#include <cstdlib>
#include <memory>

namespace cli {

namespace {

struct Free {
    void operator()(char* text) const { std::free(text); }
};

bool areSame(const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

bool areSameFile(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

} // namespace

bool isUnchanged(const struct stat& before, const struct stat& after) {
    return areSameFile(before, after) && (before.st_mode & S_IFMT) == (after.st_mode & S_IFMT) &&
           before.st_size == after.st_size && areSame(before.st_mtim, after.st_mtim) &&
           areSame(before.st_ctim, after.st_ctim);
}

std::string resolved(const std::string& path) {
    const std::unique_ptr<char, Free> text(::realpath(path.c_str(), nullptr));
    return text ? std::string(text.get()) : std::string();
}

FileIdentity::FileIdentity(const std::string& path)
    : exists_(::stat(path.c_str(), &status_) == 0), place_(resolved(path)) {
    if (::lstat(path.c_str(), &link_) != 0)
        link_ = {};
}

FileIdentity::FileIdentity(int descriptor) : exists_(::fstat(descriptor, &status_) == 0) {}

bool FileIdentity::isAt(const std::string& name, const struct stat& status) const {
    if (S_ISLNK(status.st_mode))
        return areSameFile(status, link_);
    return hasInode(status.st_ino) && status.st_dev == status_.st_dev &&
           (!place_ || resolved(name) == *place_);
}

} // namespace cli
