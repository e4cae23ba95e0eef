#include "cli/hashing/record_check.h"

#include "cli/process/error.h"

#include <cerrno>

namespace cli {

namespace {

std::string sentence(const char* begin, std::string_view name) {
    return begin + std::string(name) + ".";
}

std::string sentence(const char* begin, std::string_view name, std::string_view detail) {
    return begin + std::string(name) + " [" + std::string(detail) + "].";
}

CheckResult failed(std::string_view name, const HashError& error) {
    switch (error.number) {
    case ENOENT:
        return {Status::kMissing, sentence("Warning: File not found: ", name), "", error.reason};
    case EACCES:
        return {Status::kDenied, sentence("Warning: File access denied: ", name), "", error.reason};
    default:
        return {Status::kError, unreadableReport(name, error.reason), "", error.reason};
    }
}

} // namespace

std::string unreadableReport(std::string_view name, const std::string& why) {
    return sentence("Error: File cannot be read: ", name, why);
}

CheckResult checkRecord(std::string_view name, std::string_view listed, const HashedFile& file) {
    if (algorithmOf(listed) == nullptr)
        return {Status::kUnknown, sentence("Can't create hash calculator for ", name, listed), "",
                "The digest text names no known algorithm"};
    if (file.error)
        return failed(name, *file.error);
    if (file.digest->matches(listed))
        return {Status::kOk, "", std::string(listed), ""};
    const std::string digest = file.digest->text();
    return {Status::kChanged, sentence("File changed: ", name, digest), digest, ""};
}

} // namespace cli
