// Files under a directory that a hash list does not name.

#ifndef PELORIK_CLI_HASHING_UNLISTED_H
#define PELORIK_CLI_HASHING_UNLISTED_H

#include "checker/hashfile_checker.h"
#include "cli/files/file_identity.h"

#include <functional>
#include <string>
#include <vector>

namespace cli {

struct Unlisted {
    struct Unsearched {
        std::string name;
        std::string why;
    };

    std::vector<std::string> names;
    std::vector<Unsearched> unsearched; // directories, and links that lead nowhere
};

struct UnlistedOptions {
    std::vector<std::string> directories;
    std::vector<std::string> excludes; // globs, as a walk takes them
    std::function<void(const std::string& line)> note;
};

// Throws `Error` for what is no directory.
void requireDirectories(const std::vector<std::string>& directories);

// Looks for files that a walk would list and that no record names, each once. `list` is none of
// them. Names are compared as paths from the root, "." and empty parts left out, ".." and links
// left alone. Throws `Interrupted`.
Unlisted findUnlisted(const std::vector<HashFileChecker::FileHashPair>& records,
                      const FileIdentity& list, const UnlistedOptions& options);

} // namespace cli

#endif
