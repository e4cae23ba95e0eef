// Whether a name leads to a certain file.

#ifndef PELORIK_CLI_FILES_FILE_IDENTITY_H
#define PELORIK_CLI_FILES_FILE_IDENTITY_H

#include <optional>
#include <string>
#include <sys/stat.h>

namespace cli {

// The file that a path or a descriptor leads to when this is made; or none.
class FileIdentity {
public:
    explicit FileIdentity(const std::string& path);
    explicit FileIdentity(int descriptor);

    // Returns whether the file has this inode number; several file systems use the same ones.
    bool hasInode(ino_t number) const { return exists_ && status_.st_ino == number; }

    // Returns whether `name`, whose status is given, leads to the same place. Other hard links of a
    // file that was given by its path do not, nor do links to it: the status of a link is that of
    // the path only when the path is this link.
    bool isAt(const std::string& name, const struct stat& status) const;

private:
    struct stat status_ {};
    struct stat link_ {}; // of the path without following it
    bool exists_;
    std::optional<std::string> place_; // only of a path
};

// Returns whether two looks at a file agree: in device, inode, kind, size, and the times of
// modification and change.
bool isUnchanged(const struct stat& before, const struct stat& after);

// Returns `path` without symbolic links; empty when it leads nowhere.
std::string resolved(const std::string& path);

} // namespace cli

#endif
