// Finds the files that a hash list is made of.

#ifndef PELORIK_CLI_FILES_DIRECTORY_WALK_H
#define PELORIK_CLI_FILES_DIRECTORY_WALK_H

#include "cli/output/console.h"
#include "digest/hash.h"

#include <cstdint>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace cli {

struct FoundFile {
    std::string name; // as the list shows it
    std::uint64_t size;
};

class Walk {
public:
    struct Options {
        bool recursive = false;
        std::vector<std::string> excludes; // globs, matched against the whole name
        // True for a file that is to be left out without a word.
        std::function<bool(const std::string& name, const struct stat& status)> leaveOut;
        // Gets a line on what was skipped; by default nobody does.
        std::function<void(const std::string& line)> note = [](const std::string&) {};
        // Gets the names that could not be looked at; by default they are noted.
        std::function<void(const std::string& name, const std::string& why)> onUnreadable;
    };

    explicit Walk(Options options);

    // Adds the file `name`, or the files under the directory `name`: entries in the order of their
    // bytes, symbolic links to files followed, those to directories not (but `name` itself is).
    // Special files are skipped with a note. Throws `Interrupted`.
    void add(const std::string& name);

    const std::vector<FoundFile>& files() const { return files_; }

    // Names that could not be looked at.
    std::size_t unreadable() const { return unreadable_; }

    // Notes how many symbolic links to directories were met on the way, if any.
    void noteUnfollowedLinks() const;

    // Directories named while they are not walked; each has been noted.
    std::size_t refusedDirectories() const { return refusedDirectories_; }

private:
    struct Directory {
        std::string path;                 // with a slash at its end
        std::vector<std::string> entries; // last one first
    };

    bool isExcluded(const std::string& name) const;
    void walkDirectory(const std::string& path);
    void addEntry(const std::string& name, std::vector<Directory>& open);
    void addFile(const std::string& name, const struct stat& status);
    bool look(const std::string& name, struct stat& status, bool followLink);
    void addUnreadable(const std::string& name, int error);
    void openDirectory(const std::string& path, std::vector<Directory>& open);

    Options options_;
    std::vector<FoundFile> files_;
    std::size_t unreadable_ = 0;
    std::size_t unfollowedLinks_ = 0;
    std::size_t refusedDirectories_ = 0;
};

// Notes every file whose name a list with digests of `algorithm` cannot hold. Returns whether there
// is one.
bool reportUnlistable(const std::vector<FoundFile>& files, HashFileChecker::Alg algorithm,
                      Console& console);

} // namespace cli

#endif
