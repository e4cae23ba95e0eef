// Bytes of a file, a pipe or standard input.

#ifndef PELORIK_CLI_FILES_FILE_SOURCE_H
#define PELORIK_CLI_FILES_FILE_SOURCE_H

#include "cli/files/descriptor.h"

#include <cstddef>
#include <string>
#include <sys/stat.h>

namespace cli {

// Everything here throws std::system_error, and `Interrupted` when SIGINT came.
class FileSource {
public:
    // Opens whatever `path` names. Waits for the writer of a FIFO.
    static FileSource open(const std::string& path);

    // Does not wait for a FIFO, for callers that expect a regular file and check what they got.
    static FileSource openWithoutWaiting(const std::string& path);

    // Reads from a descriptor of this process, which stays open.
    static FileSource copyOf(int descriptor);

    // Fills `data` as far as the source has bytes, and returns how many came.
    std::size_t read(unsigned char* data, std::size_t size);

    // Returns whether a regular file was read to its end and has not changed since it was opened;
    // true for anything else.
    bool isComplete() const;

    int descriptor() const { return descriptor_.get(); }

    // Both are as they were when the source was opened.
    bool isDirectory() const { return S_ISDIR(status_.st_mode); }
    bool isRegular() const { return S_ISREG(status_.st_mode); }

private:
    explicit FileSource(Descriptor opened);

    Descriptor descriptor_;
    struct stat status_ {};
};

} // namespace cli

#endif
