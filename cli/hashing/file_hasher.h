// The one reader of files: computes digests, and reports every way in which that can fail.

#ifndef PELORIK_CLI_HASHING_FILE_HASHER_H
#define PELORIK_CLI_HASHING_FILE_HASHER_H

#include "cli/files/descriptor.h"
#include "cli/hashing/algorithm.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace cli {

// Why a file has no digest.
struct HashError {
    int number = 0;      // the system's error number, or 0
    std::string reason;  // "Permission denied", "changed while it was read"
    bool opened = false; // the error came after the file was opened

    // Returns whether there is no such file.
    bool isMissing() const;
};

// Computes digests of files by the library's calculators.
//
// A file is looked at, opened, read to its end, looked at again and closed. It has a digest when
// both looks agree (device, inode, kind, size, times of modification and change) and as many bytes
// came as they say. A small file takes five system calls.
//
// One thread uses one object.
class FileHasher {
public:
    // Called after each block with the number of bytes in it, and regularly while the hasher waits.
    // It ends the reading by throwing.
    using OnBlock = std::function<void(std::size_t bytes)>;
    explicit FileHasher(OnBlock onBlock);

    using Result = std::optional<HashError>; // nothing: success
    using Algorithms = std::vector<const Algorithm*>;

    // Looks at what `path` leads to.
    Result look(const char* path);

    // Returns what the last `look` saw.
    const struct stat& status() const { return looked_; }

    // Hashes the regular file that `look` saw at `path`. Anything else is an error, and is not
    // opened.
    Result hash(const char* path, const Algorithms& algorithms);

    // Returns the error that opening the file would be, without reading it.
    Result tryToOpen(const char* path);

    // Hashes everything that a pipe, a device or standard input yields.
    Result hashStream(int descriptor, const Algorithms& algorithms);

    // Returns the digests of the last file, in the order of the algorithms.
    const std::vector<Digest>& digests() const { return digests_; }

private:
    // GOST R 34.11-94 pads every call with zeros: only the last block may be shorter.
    static constexpr std::size_t kBlock = 65536;

    struct Block {
        std::size_t size;
        int error; // 0, or the system's error number
    };

    Result open(const char* path, Descriptor& file);
    Result readToEnd(int file);
    Result compareLooks(int file) const;
    Block fill(int file, std::uint64_t enough);
    void begin(const Algorithms& algorithms);
    void add(std::size_t count);
    void finish(const Algorithms& algorithms);

    OnBlock onBlock_;
    std::unique_ptr<std::array<unsigned char, kBlock>> block_;
    std::array<std::unique_ptr<IHashFactory>, kAlgorithms.size()> factories_;
    std::vector<std::unique_ptr<IHash_Calc>> calculators_;
    std::vector<Digest> digests_;
    struct stat looked_ {};
    std::uint64_t total_ = 0; // bytes read of the present file
};

} // namespace cli

#endif
