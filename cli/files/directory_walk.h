// Finds the files under directories.

#ifndef PELORIK_CLI_FILES_DIRECTORY_WALK_H
#define PELORIK_CLI_FILES_DIRECTORY_WALK_H

#include "cli/files/file_identity.h"

#include <cstddef>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace cli {

class DirectoryWalk {
public:
    // What a walk returns from directories. Nothing but directories is opened.
    enum class Entries {
        kFiles, // regular files and links to them; links to directories and special files are noted
        kAll    // everything but the directories that were entered; links are not followed
    };

    struct Options {
        Entries entries = Entries::kFiles;
        bool recursive = false;
        std::vector<std::string> excludes; // globs, matched against the whole name
        std::vector<FileIdentity> leftOut; // files that are left out silently
        std::function<void(const std::string& name)> onEntry;
        // Gets the names that could not be looked at.
        std::function<void(const std::string& name, const std::string& why)> onUnreadable;
        // Gets a line on what was skipped.
        std::function<void(const std::string& line)> note;
    };

    explicit DirectoryWalk(Options options);

    // Visits the file `name`, or the entries under the directory `name` in the order of their
    // bytes. `name` itself may be a link to a directory. Throws `Interrupted`.
    void visit(const std::string& name);

    // Notes how many symbolic links to directories were met on the way, if any.
    void noteUnfollowedLinks() const;

    // Directories named while they are not walked; each has been noted.
    std::size_t refusedDirectories() const { return refusedDirectories_; }

private:
    struct Entry {
        std::string name;
        ino_t inode;
        unsigned char type; // DT_REG and so on
    };

    struct Directory {
        std::string path;           // with a slash at its end
        std::vector<Entry> entries; // last one first
    };

    static int readEntries(const std::string& path, bool followLink, std::vector<Entry>& entries);

    bool isExcluded(const std::string& name) const;
    bool isLeftOut(const std::string& name, const struct stat& status) const;
    bool mayBeLeftOut(ino_t inode) const;
    bool look(const std::string& name, struct stat& status, bool followLink);
    void walk(const std::string& path);
    void openDirectory(const std::string& path, bool followLink, std::vector<Directory>& open);
    void visitEntry(const std::string& name, const Entry& entry, std::vector<Directory>& open);
    void visitAny(const std::string& name, const Entry& entry, unsigned char type);
    void visitIfFile(const std::string& name, const Entry& entry, unsigned char type);
    void visitFile(const std::string& name, const struct stat& status);

    Options options_;
    std::size_t unfollowedLinks_ = 0;
    std::size_t refusedDirectories_ = 0;
};

} // namespace cli

#endif
