// What a list has come to before it was interrupted, kept beside its output as OUT.partial.

#ifndef PELORIK_CLI_HASHING_CHECKPOINT_H
#define PELORIK_CLI_HASHING_CHECKPOINT_H

#include "cli/files/descriptor.h"
#include "cli/files/file_identity.h"
#include "digest/hash.h"

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <sys/stat.h>
#include <unordered_map>

namespace cli {

// A text that is no hash list: its first line makes every reader refuse it. Each further line is a
// record behind a fingerprint of the file as it was when it was hashed. A record counts only as
// long as the file still has that fingerprint, so that what has changed since, or what the name
// leads to now, is hashed again; lines that are not whole count for nothing.
class Checkpoint {
public:
    // For the hash list `output` with digests of `algorithm`. Throws `Error` when there is
    // something else in its place.
    Checkpoint(const std::string& output, HashFileChecker::Alg algorithm);

    const std::string& path() const { return path_; }

    // True when `name`, whose status is given, is this file.
    bool isAt(const std::string& name, const struct stat& status) const {
        return identity_.isAt(name, status);
    }

    // Goes on from what is there, if anything. Throws `Error` when it cannot be read.
    void resume();
    bool isResumed() const { return resumed_; }

    // The digest that was found for the file, which has that status now; empty when it has to be
    // hashed (again).
    std::string digestOf(const std::string& name, const struct stat& status) const;

    // To be called before a file is hashed, with its size: saves what was added, when much work
    // would be lost otherwise. Without an effect once saving has failed.
    void expect(std::uint64_t size);

    // Adds a file that was opened with that status at the time `opened`, in seconds.
    void add(const std::string& name, const struct stat& status, std::time_t opened,
             const std::string& digest);

    // Saves everything that was added. Returns 0 or the error number.
    int save();

    // There is a whole list now.
    void remove();

private:
    struct Entry {
        std::string fingerprint;
        std::string digest;
    };

    bool isWhole(const std::string& digest) const;
    void readEntry(const std::string& line);
    int open();

    std::string path_;
    const std::string sample_; // a digest of the algorithm
    FileIdentity identity_;
    bool resumed_ = false;
    std::unordered_map<std::string, Entry> entries_;
    Descriptor file_;
    std::string unsaved_;
    std::uint64_t unsavedBytes_ = 0; // that were read for it
    int error_ = 0;                  // of saving
};

} // namespace cli

#endif
