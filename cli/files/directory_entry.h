// A name in an open directory: what a path of an output leads to.

#ifndef PELORIK_CLI_FILES_DIRECTORY_ENTRY_H
#define PELORIK_CLI_FILES_DIRECTORY_ENTRY_H

#include "cli/files/descriptor.h"

#include <chrono>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace cli {

// The directory stays open, so that nobody can put another one in its place. Links are followed one
// by one when the entry is made, and never afterwards.
//
// In a sticky directory that others may write to, links and files count only when they belong to
// the user or to the directory's owner: anybody could have put them there.
class DirectoryEntry {
public:
    // Finds where `path` leads. The last name need not exist. Throws `Error`.
    static DirectoryEntry find(const std::string& path);

    // Returns the entry in the same directory whose name has `suffix` appended.
    DirectoryEntry withSuffix(const std::string& suffix) const;

    // The path as it was given, or an absolute one when links were followed.
    const std::string& path() const { return path_; }

    int directory() const { return directory_.get(); }

    // Returns the status of the file; nothing when there is none. Throws `Error`, also for a file
    // that does not count.
    std::optional<struct stat> status() const;

    // Returns whether the user may do that (W_OK and so on) with the file, or with the directory.
    bool isAccessible(int mode) const;
    bool isDirectoryAccessible(int mode) const;

    // Opens the file, but does not follow a link. Without a descriptor, errno tells why.
    Descriptor open(int flags, mode_t mode = 0) const;

    // Opens a regular file and locks it against other processes of this tool. Waits for at most ten
    // seconds. Without a descriptor, errno tells why the file cannot be opened. Throws `Error` when
    // it is not a regular file, does not count or is still locked, and `Interrupted`.
    Descriptor openLocked(int flags, mode_t mode = 0) const;

    // Renames the file `name` of the directory to this name, with the flags of renameat2. Returns 0
    // or the error number.
    int rename(const std::string& name, unsigned flags) const;

    // Removes the file if it is the one that is open. Errors do not matter to callers.
    void removeIfSame(int descriptor) const;

private:
    friend class EntryFinder;

    DirectoryEntry(Descriptor directory, std::string name, std::string path, bool isMagic);

    void requireTrustedFile(int file) const;
    int lock(int file, std::chrono::steady_clock::time_point end) const;
    bool isSame(int descriptor) const;
    void requireTrusted(const struct stat& status) const;

    Descriptor directory_;
    std::string name_;
    std::string path_;
    bool isMagic_; // a link in /proc to something without a path, such as a pipe
};

} // namespace cli

#endif
