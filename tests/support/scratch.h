// Files for a test to play with.

#ifndef PELORIK_TESTS_SUPPORT_SCRATCH_H
#define PELORIK_TESTS_SUPPORT_SCRATCH_H

#include <filesystem>
#include <string>
#include <sys/types.h>

namespace support {

// A directory of its own, which everybody may enter and which goes with the object.
class ScratchDirectory {
public:
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    std::string path() const { return path_.string(); }
    std::string path(const std::string& name) const { return (path_ / name).string(); }

    // Writes a file, with the directories above it, and returns its path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::filesystem::path path_;
};

std::string contentOf(const std::string& path);

// Makes `path` the current directory for as long as it lives.
class CurrentDirectory {
public:
    explicit CurrentDirectory(const std::string& path);
    ~CurrentDirectory();
    CurrentDirectory(const CurrentDirectory&) = delete;
    CurrentDirectory& operator=(const CurrentDirectory&) = delete;

private:
    std::filesystem::path before_;
};

// The rights of an ordinary user for as long as it lives, when the test runs as root.
class OrdinaryUser {
public:
    OrdinaryUser();
    ~OrdinaryUser();
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;

private:
    uid_t before_;
};

} // namespace support

#endif
