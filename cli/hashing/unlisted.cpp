#include "cli/hashing/unlisted.h"

#include "cli/files/directory_walk.h"
#include "cli/process/error.h"

#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <unordered_set>

namespace cli {

namespace {

// Names, as paths from the root.
class KnownNames {
public:
    explicit KnownNames(const std::vector<HashFileChecker::FileHashPair>& records)
        : current_(resolved(".")) {
        for (const HashFileChecker::FileHashPair& record : records)
            add(record.name);
    }

    // Returns whether it is a new one.
    bool add(const std::string& name) { return paths_.insert(fromRoot(name)).second; }

private:
    std::string fromRoot(const std::string& name) const {
        std::string path = name.starts_with('/') ? "" : current_;
        for (const std::filesystem::path& part : std::filesystem::path(name)) {
            if (!part.empty() && part != "." && part != "/")
                path += "/" + part.native();
        }
        return path;
    }

    std::string current_;
    std::unordered_set<std::string> paths_;
};

} // namespace

void requireDirectories(const std::vector<std::string>& directories) {
    for (const std::string& directory : directories) {
        struct stat status {};
        if (::stat(directory.c_str(), &status) != 0)
            throw Error(directory, errno);
        if (!S_ISDIR(status.st_mode))
            throw Error(directory, ENOTDIR);
    }
}

Unlisted findUnlisted(const std::vector<HashFileChecker::FileHashPair>& records,
                      const FileIdentity& list, const UnlistedOptions& options) {
    Unlisted found;
    KnownNames known(records); // and those found: directories may overlap
    const auto leaveOut = [&](const std::string& name, const struct stat& status) {
        return list.isAt(name, status) || !known.add(name);
    };
    const auto onUnreadable = [&](const std::string& name, const std::string& why) {
        if (known.add(name))
            found.unsearched.push_back({name, why});
    };
    Walk walk({true, options.excludes, leaveOut, options.note, onUnreadable});
    for (const std::string& directory : options.directories)
        walk.add(directory);
    walk.noteUnfollowedLinks();
    for (const FoundFile& file : walk.files())
        found.names.push_back(file.name);
    return found;
}

} // namespace cli
