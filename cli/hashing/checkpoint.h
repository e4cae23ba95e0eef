// The results of an interrupted list, kept beside its output as OUT.partial.

#ifndef PELORIK_CLI_HASHING_CHECKPOINT_H
#define PELORIK_CLI_HASHING_CHECKPOINT_H

#include "cli/files/descriptor.h"
#include "cli/files/directory_entry.h"
#include "cli/files/line_reader.h"
#include "cli/hashing/algorithm.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace cli {

// What a file's status says about its content: it changes with every write but those through shared
// mappings, and those within the same tick of the file system's clock.
class Fingerprint {
public:
    Fingerprint() = default;
    explicit Fingerprint(const struct stat& status);

    // Returns nothing for a text that `text` does not return.
    static std::optional<Fingerprint> parse(std::string_view text);

    std::string text() const;
    bool operator==(const Fingerprint& other) const = default;

private:
    std::uint64_t device_ = 0;
    std::uint64_t inode_ = 0;
    std::int64_t size_ = 0;
    std::int64_t modified_ = 0; // seconds
    std::int64_t changed_ = 0;
    std::int32_t modifiedFraction_ = 0; // nanoseconds
    std::int32_t changedFraction_ = 0;
};

// Returns whether a file was neither modified nor changed within two seconds before `now`, so that
// its next change will show in its times.
bool isSettled(const struct stat& status, double now);

// A text that is no hash list: its first line makes every reader refuse it. Each further line is a
// record after the fingerprint of its file. A record counts only as long as the file has that
// fingerprint; incomplete lines are ignored.
class Checkpoint {
public:
    // For the hash list `output`. The file is created and locked at once, so that no other process
    // makes the same list; it is removed if nothing is saved. Throws `Error` when there is
    // something else in its place, or another process holds the lock.
    explicit Checkpoint(const DirectoryEntry& output);
    Checkpoint(const Checkpoint&) = delete;
    Checkpoint& operator=(const Checkpoint&) = delete;
    ~Checkpoint();

    const std::string& path() const { return entry_.path(); }

    // Returns the time in seconds since the epoch, by the clock from which the checkpoint's file
    // system takes the times of files. That is not always this machine's clock.
    double now() const;

    // Calls `visit` with the records of the checkpoint that is there, if one is. Throws `Error`
    // when it cannot be read.
    using Visit = std::function<void(std::string_view name, const Fingerprint& fingerprint,
                                     std::string_view digest)>;
    void resume(const Visit& visit);
    bool isResumed() const { return resumed_; }

    // Adds a file that was hashed with that status.
    void add(std::string_view name, const struct stat& status, const Digest& digest);

    // Saves what was added when much work would be lost otherwise: `bytes` were read so far.
    void saveIfDue(std::uint64_t bytes);

    // Saves everything that was added. Returns 0 or the error number, that of an earlier error too.
    int save();

    // Removes the file, since there is a complete list.
    void remove();

private:
    void readEntry(const std::string& line, const Visit& visit) const;
    void requireOwn() const;
    void removeIfEmpty() const;
    LineReader reader(std::size_t longest) const;
    int begin();

    DirectoryEntry entry_;
    Descriptor file_;
    bool resumed_ = false;
    bool isBegun_ = false;
    std::string unsaved_;
    std::uint64_t unsavedFiles_ = 0;
    std::uint64_t bytesWhenSaved_ = 0;
    int error_ = 0; // of saving
};

} // namespace cli

#endif
