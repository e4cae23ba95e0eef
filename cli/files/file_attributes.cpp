#include "cli/files/file_attributes.h"

#include "cli/process/error.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace cli {

namespace {

constexpr char kAccessList[] = "system.posix_acl_access";
constexpr char kCapability[] = "security.capability";
constexpr std::array<const char*, 2> kOfContent = {"security.ima", "security.evm"};
constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;

bool isUnsupported(int error) {
    return error == ENOTSUP || error == ENOSYS;
}

[[noreturn]] void failToKeep(const std::string& name, const std::string& path, int error) {
    throw Error(path + ": extended attribute '" + name + "' cannot be kept", error);
}

// Calls `read` with a buffer and its size until the buffer is large enough. Returns nothing, with
// errno set, when it fails.
template<class Read>
std::optional<std::string> readAll(Read read) {
    for (;;) {
        const ssize_t size = read(nullptr, 0);
        if (size < 0)
            return std::nullopt;
        std::string data(static_cast<std::size_t>(size), '\0');
        const ssize_t length = size == 0 ? 0 : read(data.data(), data.size());
        if (length >= 0) {
            data.resize(static_cast<std::size_t>(length));
            return data;
        }
        if (errno != ERANGE) // it has grown meanwhile
            return std::nullopt;
    }
}

std::vector<std::string> namesOf(int file, const std::string& path) {
    const auto list =
        readAll([&](char* data, std::size_t size) { return ::flistxattr(file, data, size); });
    if (!list && !isUnsupported(errno))
        throw Error(path, errno);
    std::vector<std::string> names;
    for (std::string_view rest = list ? *list : std::string_view(); !rest.empty();) {
        names.emplace_back(rest.substr(0, rest.find('\0')));
        rest.remove_prefix(names.back().size() + 1);
    }
    return names;
}

std::optional<std::string> valueOf(int file, const std::string& name) {
    return readAll(
        [&](char* data, std::size_t size) { return ::fgetxattr(file, name.c_str(), data, size); });
}

void copyAttribute(int from, int to, const std::string& name, const std::string& path) {
    const std::optional<std::string> value = valueOf(from, name);
    if (!value)
        failToKeep(name, path, errno);
    // The new file may have it already: labels of security modules are inherited.
    if (valueOf(to, name) != value &&
        ::fsetxattr(to, name.c_str(), value->data(), value->size(), 0) != 0)
        failToKeep(name, path, errno);
}

// Returns whether the group was kept.
bool copyOwner(const struct stat& from, int to, const std::string& path) {
    struct stat created {};
    if (::fstat(to, &created) != 0)
        throw Error(path, errno);
    if (created.st_uid == from.st_uid && created.st_gid == from.st_gid)
        return true;
    // Another owner must not open it before it has its permissions.
    if (::fchmod(to, 0) != 0)
        throw Error(path, errno);
    if (::fchown(to, from.st_uid, from.st_gid) == 0)
        return true;
    if (errno != EPERM)
        throw Error(path, errno);
    return created.st_gid == from.st_gid || ::fchown(to, static_cast<uid_t>(-1), from.st_gid) == 0;
}

void copyAccessList(int from, int to, bool keepsGroup, const std::string& path) {
    const std::optional<std::string> list = valueOf(from, kAccessList);
    if (list) {
        if (!keepsGroup)
            failToKeep(kAccessList, path, EPERM);
        if (::fsetxattr(to, kAccessList, list->data(), list->size(), 0) != 0)
            failToKeep(kAccessList, path, errno);
        return;
    }
    if (errno != ENODATA && !isUnsupported(errno))
        failToKeep(kAccessList, path, errno);
    // The directory's default list has given it one.
    if (::fremovexattr(to, kAccessList) != 0 && errno != ENODATA && !isUnsupported(errno))
        throw Error(path, errno);
}

// The permissions of a file whose group is another one now.
mode_t withoutGroup(mode_t mode) {
    const mode_t others = mode & S_IRWXO;
    return (mode & ~static_cast<mode_t>(S_IRWXG)) | (mode & (others << 3));
}

} // namespace

void requireReplaceable(int file, const std::string& path) {
    const std::vector<std::string> names = namesOf(file, path);
    for (const char* const name : kOfContent) {
        if (std::find(names.begin(), names.end(), name) != names.end())
            throw Error(path + ": extended attribute '" + name +
                        "' cannot be kept: it belongs to the present content");
    }
}

void copyAttributes(int from, int to, const std::string& path) {
    struct stat status {};
    if (::fstat(from, &status) != 0)
        throw Error(path, errno);
    requireReplaceable(from, path);
    for (const std::string& name : namesOf(from, path)) {
        if (name != kAccessList && name != kCapability)
            copyAttribute(from, to, name, path);
    }
    const bool keepsGroup = copyOwner(status, to, path);
    copyAccessList(from, to, keepsGroup, path);
    const mode_t permissions = status.st_mode & kPermissions;
    const mode_t mode = keepsGroup ? permissions : withoutGroup(permissions);
    struct stat now {};
    if (::fstat(to, &now) != 0)
        throw Error(path, errno);
    if ((now.st_mode & kPermissions) != mode && ::fchmod(to, mode) != 0)
        throw Error(path, errno);
}

} // namespace cli
