// Logs who may access the tool's temporary files, after every call that writes to one or changes
// its attributes, when this is loaded before everything else.
//
// PELORIK_WATCH is the file for the log. A line is "MODE USER GROUP LIST": the first three in
// decimal digits, LIST the access control list in hexadecimal digits.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

bool isTemporary(int descriptor) {
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    std::array<char, 4096> text;
    const ssize_t length = ::readlink(link.c_str(), text.data(), text.size());
    return length > 0 &&
           std::string_view(text.data(), static_cast<std::size_t>(length)).find("/.pelorik-") !=
               std::string_view::npos;
}

void log(int descriptor) {
    const char* const path = std::getenv("PELORIK_WATCH");
    struct stat status {};
    if (path == nullptr || !isTemporary(descriptor) || ::fstat(descriptor, &status) != 0)
        return;
    std::array<unsigned char, 4096> list;
    const ssize_t length =
        ::fgetxattr(descriptor, "system.posix_acl_access", list.data(), list.size());
    std::FILE* const out = std::fopen(path, "a");
    std::fprintf(out, "%u %u %u ", status.st_mode & 07777U, status.st_uid, status.st_gid);
    for (ssize_t i = 0; i < length; ++i)
        std::fprintf(out, "%02x", list[static_cast<std::size_t>(i)]);
    std::fputc('\n', out);
    std::fclose(out);
}

template<class Result, class... Arguments>
Result callAndLog(const char* name, int descriptor, Arguments... arguments) {
    auto* const next = reinterpret_cast<Result (*)(int, Arguments...)>(dlsym(RTLD_NEXT, name));
    const Result result = next(descriptor, arguments...);
    log(descriptor);
    return result;
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

ssize_t write(int descriptor, const void* data, std::size_t size) {
    return callAndLog<ssize_t>("write", descriptor, data, size);
}

int fsync(int descriptor) {
    return callAndLog<int>("fsync", descriptor);
}

int fchmod(int descriptor, mode_t mode) noexcept {
    return callAndLog<int>("fchmod", descriptor, mode);
}

int fchown(int descriptor, uid_t user, gid_t group) noexcept {
    return callAndLog<int>("fchown", descriptor, user, group);
}

int fsetxattr(int descriptor, const char* name, const void* value, std::size_t size,
              int flags) noexcept {
    return callAndLog<int>("fsetxattr", descriptor, name, value, size, flags);
}

int fremovexattr(int descriptor, const char* name) noexcept {
    return callAndLog<int>("fremovexattr", descriptor, name);
}
}
#pragma GCC visibility pop
