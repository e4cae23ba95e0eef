#include "cli/hashing/record_check.h"

#include "cli/files/descriptor.h"
#include "cli/files/file_source.h"
#include "cli/process/error.h"

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sstream>
#include <system_error>
#include <unistd.h>

namespace cli {

namespace {

using HashFileChecker::FileHashPair;
using HashFileChecker::FileIOException;

constexpr char kSizeIsWrong[] = "Its size is not what it gives";

bool isKnown(const std::string& digest) {
    return std::unique_ptr<IHashFactory>(createHashFactory(digest)) != nullptr;
}

// Why a file that is there is not for the library to read; empty when it is. A pipe would wait for
// ever; and a file of no size that gives bytes all the same, as in /proc, would pass as empty.
std::string validationError(const std::string& name, std::uint64_t& size) {
    struct stat status {};
    if (::stat(name.c_str(), &status) != 0)
        return ""; // the library says why
    if (S_ISDIR(status.st_mode))
        return errorText(EISDIR);
    if (!S_ISREG(status.st_mode))
        return "Not a regular file";
    size = static_cast<std::uint64_t>(status.st_size);
    if (size > 0)
        return "";
    try {
        FileSource source = FileSource::openWithoutWaiting(name);
        unsigned char byte = 0;
        return source.read(&byte, 1) > 0 ? kSizeIsWrong : "";
    } catch (const std::system_error&) {
        return ""; // the library says why
    }
}

// True for a file that ends before its size, as in /sys. The library takes zeros for the rest, so
// that the digest it finds is not that of the file.
bool givesFewerBytes(const std::string& name) {
    const Descriptor file(::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || status.st_size == 0)
        return false;
    char last = 0;
    return ::pread(file.get(), &last, 1, status.st_size - 1) == 0;
}

Status statusOf(const HashFileChecker::Statistics& counted) {
    if (counted.notFound > 0)
        return Status::kMissing;
    if (counted.accessDenied > 0)
        return Status::kDenied;
    if (counted.checked == 0)
        return Status::kUnknown;
    return counted.failed > 0 ? Status::kChanged : Status::kOk;
}

std::string errorOf(Status status) {
    switch (status) {
    case Status::kMissing:
        return errorText(ENOENT);
    case Status::kDenied:
        return errorText(EACCES);
    case Status::kUnknown:
        return "The digest text names no known algorithm";
    default:
        return "";
    }
}

} // namespace

CheckResult unreadable(const std::string& name, const std::string& why) {
    return {Status::kError, "Error: File cannot be read: " + name + " [" + why + "].", why, 0};
}

CheckResult verify(const FileHashPair& record, bool stop) {
    std::uint64_t size = 0;
    const std::string unfit = validationError(record.name, size);
    if (!unfit.empty() && isKnown(record.hash))
        return unreadable(record.name, unfit);
    std::ostringstream report;
    report.exceptions(std::ios::badbit); // passes on that memory has ended
    HashFileChecker::Statistics counted{};
    try {
        HashFileChecker::CheckFiles({record}, report, &counted, stop);
    } catch (const FileIOException& problem) {
        return unreadable(record.name, problem.error == 0 ? "It ended while it was read"
                                                          : errorText(problem.error));
    }
    std::string line = report.str();
    if (!line.empty())
        line.pop_back();
    const Status status = statusOf(counted);
    if (status == Status::kChanged && givesFewerBytes(record.name))
        return unreadable(record.name, kSizeIsWrong);
    return {status, line, errorOf(status), size};
}

std::string digestFound(const FileHashPair& record, const CheckResult& result) {
    if (result.status == Status::kOk)
        return record.hash;
    if (result.status != Status::kChanged)
        return "";
    // "File changed: NAME [DIGEST]."
    const std::size_t begin = result.report.rfind('[') + 1;
    return result.report.substr(begin, result.report.rfind(']') - begin);
}

} // namespace cli
