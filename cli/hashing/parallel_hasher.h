// Hashes many files with several threads, with results in order.

#ifndef PELORIK_CLI_HASHING_PARALLEL_HASHER_H
#define PELORIK_CLI_HASHING_PARALLEL_HASHER_H

#include "cli/hashing/algorithm.h"
#include "cli/hashing/file_hasher.h"
#include "cli/output/progress.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <sys/stat.h>

namespace cli {

// What to do with a file that was looked at.
struct HashDecision {
    enum Action { kRead, kUseKnown, kLeaveOut };

    Action action = kRead;
    Digest known;           // for `kUseKnown`
    bool isSettled = false; // a matter of the task
};

// What a `ParallelHasher` found out about a file.
struct HashedFile {
    std::optional<HashError> error;
    std::optional<Digest> digest; // none after an error, nor of what was only opened
    struct stat status {};        // before the file was opened
    HashDecision::Action action = HashDecision::kRead;
    bool isSettled = false; // as decided
};

// The files to be hashed. Several threads call the const functions at the same time.
class HashTask {
public:
    virtual ~HashTask() = default;

    virtual std::size_t count() const = 0;

    // Returns false for an index without a file, which is only handed to `finish`.
    virtual bool isFile(std::size_t) const { return true; }

    virtual const char* path(std::size_t index) const = 0;

    // Returns null for a file that needs no digest and is not looked at.
    virtual const Algorithm* algorithm(std::size_t index) const = 0;

    // Returns true when files are only opened, and their digests do not matter any more.
    virtual bool opensOnly() const { return false; }

    // Decides on a file after the look at it.
    virtual HashDecision decide(std::size_t index, const struct stat& status) const;

    // Handles the result of the file `index`, in order, on the thread that runs the task. Returns
    // false to stop.
    virtual bool finish(std::size_t index, HashedFile& file) = 0;

    // Called several times a second by the thread that runs the task. `bytes` were read so far.
    virtual void idle(std::uint64_t bytes) = 0;
};

// The number of processors that the process may use.
unsigned usableProcessors();

class ParallelHasher {
public:
    enum class End { kComplete, kStopped, kInterrupted };

    // Hashes `jobs` files at a time, or fewer when there are few descriptors. One job is done by
    // the calling thread.
    ParallelHasher(unsigned jobs, Progress& progress);

    // Hashes the files of `task`, once in the object's life. After an interruption it still hands
    // out what is done. Throws what the task throws, and turns `Interrupted` into its result.
    End run(HashTask& task);

private:
    void expectAll(const HashTask& task);
    End runAlone(HashTask& task);
    End runThreads(HashTask& task, std::size_t threads);
    void onBlock(std::size_t bytes);
    bool finish(HashTask& task, HashedFile& file);
    void tick(HashTask& task);

    unsigned jobs_;
    Progress& progress_;
    std::size_t finished_ = 0;            // indices so far
    std::uint64_t files_ = 0;             // of them
    std::atomic<std::uint64_t> bytes_{0}; // read so far
    std::chrono::steady_clock::time_point idled_ = std::chrono::steady_clock::now();
    std::atomic<bool> cancelled_{false};
};

} // namespace cli

#endif
