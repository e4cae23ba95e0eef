// Digest texts of files: the three algorithms under the names that the command line gives them.

#ifndef PELORIK_CLI_HASHING_DIGESTER_H
#define PELORIK_CLI_HASHING_DIGESTER_H

#include "cli/files/file_source.h"
#include "cli/output/progress.h"
#include "digest/hash.h"

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace cli {

inline constexpr char kDefaultAlgorithm[] = "gost2012";
inline constexpr char kAlgorithmNames[] = "md5, gost94 or gost2012";

// Throws `UsageError` for a name that is none.
HashFileChecker::Alg algorithmNamed(const std::string& name);

// Computes the digests of several algorithms in one pass over each file.
class Digester {
public:
    explicit Digester(const std::vector<HashFileChecker::Alg>& algorithms);

    static constexpr std::uint64_t kToTheEnd = std::numeric_limits<std::uint64_t>::max();

    // Reads what `source` gives, up to `limit` bytes, and returns how many came. Throws what
    // reading throws.
    std::uint64_t read(FileSource& source, Progress& progress, std::uint64_t limit = kToTheEnd);

    // The digests of what was read last, in the order of the algorithms.
    std::vector<std::unique_ptr<IHash>> digests() const;

private:
    // GOST R 34.11-94 pads every call with zeros, so that no call but a file's last may be shorter.
    static constexpr std::size_t kBlock = 65536;

    std::vector<std::unique_ptr<IHashFactory>> factories_;
    std::vector<std::unique_ptr<IHash_Calc>> calculators_;
    std::unique_ptr<std::array<unsigned char, kBlock>> buffer_;
};

} // namespace cli

#endif
