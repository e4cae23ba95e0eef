#include "cli/files/directory_walk.h"

#include "cli/hashing/algorithm.h"
#include "cli/hashing/hash_list.h"
#include "cli/process/error.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fnmatch.h>
#include <memory>
#include <string_view>

namespace cli {

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

// Returns 0 or the error number.
int readEntries(const std::string& path, std::vector<std::string>& entries) {
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(path.c_str()));
    if (!directory)
        return errno;
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(directory.get());
        if (entry == nullptr)
            return errno;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            entries.emplace_back(name);
    }
}

} // namespace

Walk::Walk(Options options) : options_(std::move(options)) {}

void Walk::addUnreadable(const std::string& name, int error) {
    if (options_.onUnreadable)
        options_.onUnreadable(name, errorText(error));
    else
        options_.note(name + ": " + errorText(error));
    ++unreadable_;
}

bool Walk::isExcluded(const std::string& name) const {
    return std::any_of(
        options_.excludes.begin(), options_.excludes.end(),
        [&](const std::string& glob) { return fnmatch(glob.c_str(), name.c_str(), 0) == 0; });
}

bool Walk::look(const std::string& name, struct stat& status, bool followLink) {
    const int result = followLink ? ::stat(name.c_str(), &status) : ::lstat(name.c_str(), &status);
    if (result == 0)
        return true;
    addUnreadable(name, errno);
    return false;
}

void Walk::add(const std::string& name) {
    stopIfInterrupted();
    struct stat status {};
    if (isExcluded(name) || !look(name, status, true))
        return;
    if (!S_ISDIR(status.st_mode)) {
        addFile(name, status);
    } else if (options_.recursive) {
        walkDirectory(name);
    } else {
        options_.note(name + ": " + errorText(EISDIR) + " (-r lists the files in it)");
        ++refusedDirectories_;
    }
}

void Walk::addFile(const std::string& name, const struct stat& status) {
    if (!S_ISREG(status.st_mode))
        options_.note(name + ": skipped: not a regular file");
    else if (!options_.leaveOut(name, status))
        files_.push_back({name, static_cast<std::uint64_t>(status.st_size)});
}

void Walk::openDirectory(const std::string& path, std::vector<Directory>& open) {
    Directory directory{path.ends_with('/') ? path : path + '/', {}};
    const int error = readEntries(path, directory.entries);
    if (error != 0)
        addUnreadable(path, error);
    // std::string compares as unsigned bytes.
    std::sort(directory.entries.begin(), directory.entries.end(), std::greater<>());
    open.push_back(std::move(directory));
}

void Walk::addEntry(const std::string& name, std::vector<Directory>& open) {
    struct stat status {};
    if (isExcluded(name) || !look(name, status, false))
        return;
    const bool isLink = S_ISLNK(status.st_mode);
    if (isLink && !look(name, status, true))
        return;
    if (!S_ISDIR(status.st_mode))
        addFile(name, status);
    else if (isLink)
        ++unfollowedLinks_;
    else
        openDirectory(name, open);
}

// The directories that are being walked stand in a list of their own: depth costs no stack.
void Walk::walkDirectory(const std::string& path) {
    std::vector<Directory> open;
    openDirectory(path, open);
    while (!open.empty()) {
        stopIfInterrupted();
        if (open.back().entries.empty()) {
            open.pop_back();
            continue;
        }
        const std::string name = open.back().path + open.back().entries.back();
        open.back().entries.pop_back();
        addEntry(name, open);
    }
}

void Walk::noteUnfollowedLinks() const {
    if (unfollowedLinks_ > 0)
        options_.note(std::to_string(unfollowedLinks_) +
                      " symbolic links to directories not followed");
}

bool reportUnlistable(const std::vector<FoundFile>& files, HashFileChecker::Alg algorithm,
                      Console& console) {
    const std::size_t digestLength = sampleDigest(algorithm).size();
    bool refused = false;
    for (const FoundFile& file : files) {
        const std::string reason = validationError(file.name, digestLength);
        if (!reason.empty())
            console.error(file.name + ": " + reason + " cannot stand in a hash list");
        refused = refused || !reason.empty();
    }
    return refused;
}

} // namespace cli
