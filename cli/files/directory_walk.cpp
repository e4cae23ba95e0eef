#include "cli/files/directory_walk.h"

#include "cli/files/descriptor.h"
#include "cli/process/error.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <memory>
#include <string_view>
#include <utility>

namespace cli {

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using OpenDirectory = std::unique_ptr<DIR, CloseDirectory>;

// Without a directory, errno tells why.
OpenDirectory openDirectoryAt(const std::string& path, bool followLink) {
    const int flags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;
    Descriptor opened(::open(path.c_str(), followLink ? flags : flags | O_NOFOLLOW));
    OpenDirectory directory(opened ? ::fdopendir(opened.get()) : nullptr);
    if (directory)
        opened.release();
    return directory;
}

} // namespace

DirectoryWalk::DirectoryWalk(Options options) : options_(std::move(options)) {}

// Returns 0 or the error number.
int DirectoryWalk::readEntries(const std::string& path, bool followLink,
                               std::vector<Entry>& entries) {
    const OpenDirectory directory = openDirectoryAt(path, followLink);
    if (!directory)
        return errno;
    for (;;) {
        errno = 0;
        const dirent* const entry = ::readdir(directory.get());
        if (entry == nullptr)
            return errno;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            entries.push_back({std::string(name), entry->d_ino, entry->d_type});
    }
}

bool DirectoryWalk::isExcluded(const std::string& name) const {
    return std::any_of(
        options_.excludes.begin(), options_.excludes.end(),
        [&](const std::string& glob) { return fnmatch(glob.c_str(), name.c_str(), 0) == 0; });
}

bool DirectoryWalk::isLeftOut(const std::string& name, const struct stat& status) const {
    return std::any_of(options_.leftOut.begin(), options_.leftOut.end(),
                       [&](const FileIdentity& file) { return file.isAt(name, status); });
}

bool DirectoryWalk::mayBeLeftOut(ino_t inode) const {
    return std::any_of(options_.leftOut.begin(), options_.leftOut.end(),
                       [&](const FileIdentity& file) { return file.hasInode(inode); });
}

bool DirectoryWalk::look(const std::string& name, struct stat& status, bool followLink) {
    const int result = followLink ? ::stat(name.c_str(), &status) : ::lstat(name.c_str(), &status);
    if (result == 0)
        return true;
    options_.onUnreadable(name, errorText(errno));
    return false;
}

void DirectoryWalk::visit(const std::string& name) {
    stopIfInterrupted();
    struct stat status {};
    if (isExcluded(name) || !look(name, status, true))
        return;
    if (!S_ISDIR(status.st_mode)) {
        visitFile(name, status);
    } else if (options_.recursive) {
        walk(name);
    } else {
        options_.note(name + ": " + errorText(EISDIR) + " (-r lists the files in it)");
        ++refusedDirectories_;
    }
}

void DirectoryWalk::visitFile(const std::string& name, const struct stat& status) {
    if (!S_ISREG(status.st_mode))
        options_.note(name + ": skipped: not a regular file");
    else if (!isLeftOut(name, status))
        options_.onEntry(name);
}

// The directories that are being walked stand in a list of their own: depth costs no stack.
void DirectoryWalk::walk(const std::string& path) {
    std::vector<Directory> open;
    openDirectory(path, true, open);
    while (!open.empty()) {
        stopIfInterrupted();
        if (open.back().entries.empty()) {
            open.pop_back();
            continue;
        }
        const Entry entry = std::move(open.back().entries.back());
        open.back().entries.pop_back();
        visitEntry(open.back().path + entry.name, entry, open);
    }
}

void DirectoryWalk::openDirectory(const std::string& path, bool followLink,
                                  std::vector<Directory>& open) {
    Directory directory{path.ends_with('/') ? path : path + '/', {}};
    const int error = readEntries(path, followLink, directory.entries);
    if (error != 0)
        options_.onUnreadable(path, errorText(error));
    // std::string compares as unsigned bytes.
    std::sort(directory.entries.begin(), directory.entries.end(),
              [](const Entry& left, const Entry& right) { return left.name > right.name; });
    open.push_back(std::move(directory));
}

void DirectoryWalk::visitEntry(const std::string& name, const Entry& entry,
                               std::vector<Directory>& open) {
    if (isExcluded(name))
        return;
    unsigned char type = entry.type;
    struct stat status {};
    if (type == DT_UNKNOWN) {
        if (!look(name, status, false))
            return;
        type = static_cast<unsigned char>(IFTODT(status.st_mode));
    }
    if (type == DT_DIR)
        openDirectory(name, false, open);
    else if (options_.entries == Entries::kAll)
        visitAny(name, entry, type);
    else
        visitIfFile(name, entry, type);
}

void DirectoryWalk::visitAny(const std::string& name, const Entry& entry, unsigned char type) {
    struct stat status {};
    const bool needsLook = type == DT_LNK || mayBeLeftOut(entry.inode);
    if (!needsLook || ::lstat(name.c_str(), &status) != 0 || !isLeftOut(name, status))
        options_.onEntry(name);
}

void DirectoryWalk::visitIfFile(const std::string& name, const Entry& entry, unsigned char type) {
    if (type == DT_REG && !mayBeLeftOut(entry.inode)) {
        options_.onEntry(name);
        return;
    }
    struct stat status {};
    if (!look(name, status, true))
        return;
    if (S_ISDIR(status.st_mode))
        ++unfollowedLinks_;
    else
        visitFile(name, status);
}

void DirectoryWalk::noteUnfollowedLinks() const {
    if (unfollowedLinks_ > 0)
        options_.note(std::to_string(unfollowedLinks_) +
                      " symbolic links to directories not followed");
}

} // namespace cli
