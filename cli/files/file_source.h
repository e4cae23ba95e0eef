// Bytes of a file, a pipe or standard input.

#ifndef PELORIK_CLI_FILES_FILE_SOURCE_H
#define PELORIK_CLI_FILES_FILE_SOURCE_H

#include "cli/files/descriptor.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/stat.h>

namespace cli {

// Everything here throws std::system_error, and `Interrupted` when SIGINT came.
class FileSource {
public:
    // Opens whatever `path` names; at a named pipe it waits for the writer.
    static FileSource open(const std::string& path);

    // The same without waiting, for callers that want ordinary files and look before they read.
    static FileSource openWithoutWaiting(const std::string& path);

    static FileSource standardInput();

    // Fills `data` as far as the source gives bytes, and returns how many came.
    std::size_t read(unsigned char* data, std::size_t size);

    // As it was when it was opened.
    const struct stat& status() const { return status_; }

    bool isDirectory() const { return S_ISDIR(status_.st_mode); }
    bool isRegular() const { return S_ISREG(status_.st_mode); }

    // Of a regular file.
    std::uint64_t size() const { return static_cast<std::uint64_t>(status_.st_size); }

private:
    explicit FileSource(Descriptor opened);

    Descriptor descriptor_;
    struct stat status_ {};
};

} // namespace cli

#endif
