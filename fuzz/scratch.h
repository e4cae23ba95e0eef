// Files for fuzz targets: a directory that only the target uses, and files that are memory.

#ifndef PELORIK_FUZZ_SCRATCH_H
#define PELORIK_FUZZ_SCRATCH_H

#include "fuzz/target.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fuzz {

using Files = std::map<std::string, std::string>; // contents by name

// A directory with some files, which goes when the process ends by itself.
class Scratch {
public:
    explicit Scratch(const Files& files) : files_(files) {
        std::string name =
            (std::filesystem::temp_directory_path() / "pelorik-fuzz-XXXXXX").string();
        require(mkdtemp(name.data()) != nullptr, "there is a directory for files");
        path_ = name;
        restore();
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path& path() const { return path_; }

    // Takes away what was not there in the beginning, and gives the files their contents back.
    void restore() const {
        for (const auto& entry : std::filesystem::directory_iterator(path_)) {
            if (files_.count(entry.path().filename().string()) == 0)
                std::filesystem::remove_all(entry.path());
        }
        for (const auto& [name, content] : files_)
            std::ofstream(path_ / name, std::ios::binary) << content;
    }

private:
    Files files_;
    std::filesystem::path path_;
};

// Makes a scratch directory the current one for as long as it lives.
class Inside {
public:
    explicit Inside(const Scratch& scratch) : before_(open(".", O_PATH | O_CLOEXEC)) {
        require(before_ >= 0 && chdir(scratch.path().c_str()) == 0, "the directory can be entered");
    }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
    ~Inside() {
        require(fchdir(before_) == 0, "the directory can be left");
        close(before_);
    }

private:
    int before_;
};

// A file that is nowhere on a disk.
class Memory {
public:
    Memory()
        : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)),
          path_("/proc/self/fd/" + std::to_string(descriptor_)) {}
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;
    ~Memory() { close(descriptor_); }

    int descriptor() const { return descriptor_; }
    const char* path() const { return path_.c_str(); }

    // Makes `content` all that it holds, to be read from the beginning.
    void hold(const std::string& content) const {
        const bool held = ftruncate(descriptor_, 0) == 0 &&
                          pwrite(descriptor_, content.data(), content.size(), 0) ==
                              static_cast<ssize_t>(content.size()) &&
                          lseek(descriptor_, 0, SEEK_SET) == 0;
        require(held, "there is memory");
    }

    std::string content() const {
        struct stat status {};
        fstat(descriptor_, &status);
        std::string text(static_cast<std::size_t>(status.st_size), '\0');
        require(pread(descriptor_, text.data(), text.size(), 0) == status.st_size,
                "memory can be read");
        return text;
    }

private:
    int descriptor_;
    std::string path_;
};

} // namespace fuzz

#endif
