// Whether two names lead to one file.

#ifndef PELORIK_CLI_FILES_FILE_IDENTITY_H
#define PELORIK_CLI_FILES_FILE_IDENTITY_H

#include <string>
#include <sys/stat.h>

namespace cli {

// The file that a path leads to when this is made; or none.
class FileIdentity {
public:
    explicit FileIdentity(const std::string& path);

    // True when `name`, whose status is given, leads to the same place: other hard links of the
    // file do not.
    bool isAt(const std::string& name, const struct stat& status) const;

private:
    struct stat status_ {};
    bool exists_;
    std::string place_;
};

// `path` without symbolic links; empty when it leads nowhere.
std::string resolved(const std::string& path);

} // namespace cli

#endif
