#include "cli/hashing/parallel_hasher.h"

#include "cli/process/pool.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <sched.h>
#include <sys/resource.h>
#include <system_error>
#include <utility>
#include <vector>

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;
using Pool = OrderedPool<HashedFile>;

constexpr std::chrono::milliseconds kBetweenIdles(100);
constexpr std::chrono::milliseconds kAtOnce(0);
constexpr off_t kLargeFile = off_t{1} << 20;

// Counts the descriptors that the process may still open, from 1 up to `enough`.
unsigned freeDescriptors(unsigned enough) {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return enough;
    unsigned free = 0;
    for (rlim_t number = 0; number < limit.rlim_cur && free < enough; ++number) {
        if (::fcntl(static_cast<int>(number), F_GETFD) == -1)
            ++free;
    }
    return std::max(free, 1U);
}

class RaisedAtEnd {
public:
    explicit RaisedAtEnd(std::atomic<bool>& flag) : flag_(flag) {}
    RaisedAtEnd(const RaisedAtEnd&) = delete;
    RaisedAtEnd& operator=(const RaisedAtEnd&) = delete;
    ~RaisedAtEnd() { flag_ = true; }

private:
    std::atomic<bool>& flag_;
};

// Hashes single files of a task.
class TaskHasher {
public:
    TaskHasher(const HashTask& task, FileHasher::OnBlock onBlock)
        : task_(task), hasher_(std::move(onBlock)) {}

    // Calls `beforeLarge` before it reads a large file.
    template<class BeforeLarge>
    HashedFile hash(std::size_t index, BeforeLarge beforeLarge) {
        HashedFile file;
        const Algorithm* const algorithm = task_.isFile(index) ? task_.algorithm(index) : nullptr;
        if (algorithm == nullptr)
            return file;
        const char* const path = task_.path(index);
        file.error = hasher_.look(path);
        if (file.error)
            return file;
        file.status = hasher_.status();
        const HashDecision decision = task_.decide(index, file.status);
        file.action = decision.action;
        file.isSettled = decision.isSettled;
        if (file.action == HashDecision::kUseKnown)
            file.digest = decision.known;
        if (file.action == HashDecision::kRead)
            read(path, *algorithm, file, beforeLarge);
        return file;
    }

private:
    template<class BeforeLarge>
    void read(const char* path, const Algorithm& algorithm, HashedFile& file,
              BeforeLarge beforeLarge) {
        if (task_.opensOnly()) {
            file.error = hasher_.tryToOpen(path);
            return;
        }
        if (file.status.st_size >= kLargeFile)
            beforeLarge();
        algorithms_.assign(1, &algorithm);
        file.error = hasher_.hash(path, algorithms_);
        if (!file.error)
            file.digest = hasher_.digests().front();
    }

    const HashTask& task_;
    FileHasher hasher_;
    FileHasher::Algorithms algorithms_;
};

std::vector<Pool::Worker> makeWorkers(std::size_t count, const HashTask& task,
                                      const FileHasher::OnBlock& onBlock) {
    std::vector<Pool::Worker> workers;
    for (std::size_t i = 0; i < count; ++i) {
        // std::function holds only what can be copied.
        const auto hasher = std::make_shared<TaskHasher>(task, onBlock);
        workers.emplace_back([hasher](std::size_t index, Pool::Claim& claim) {
            return hasher->hash(index, [&] { claim.endHere(); });
        });
    }
    return workers;
}

} // namespace

HashDecision HashTask::decide(std::size_t, const struct stat&) const {
    return {};
}

unsigned usableProcessors() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (::sched_getaffinity(0, sizeof set, &set) != 0)
        return 1;
    return static_cast<unsigned>(std::max(1, CPU_COUNT(&set)));
}

ParallelHasher::ParallelHasher(unsigned jobs, Progress& progress)
    : jobs_(jobs), progress_(progress) {}

// The total is only found out when somebody sees it.
void ParallelHasher::expectAll(const HashTask& task) {
    if (!progress_.shown())
        return;
    Amount total;
    for (std::size_t i = 0; i < task.count(); ++i) {
        stopIfInterrupted();
        struct stat status {};
        if (!task.isFile(i))
            continue;
        ++total.files;
        if (::stat(task.path(i), &status) == 0 && S_ISREG(status.st_mode))
            total.addBytes(static_cast<std::uint64_t>(status.st_size));
    }
    progress_.expect(total);
}

ParallelHasher::End ParallelHasher::run(HashTask& task) {
    const auto jobs = static_cast<unsigned>(std::min<std::size_t>(jobs_, task.count()));
    // One descriptor is left for what the task itself may open.
    const unsigned threads = jobs < 2 ? jobs : freeDescriptors(jobs + 1) - 1;
    try {
        expectAll(task);
        return threads < 2 ? runAlone(task) : runThreads(task, threads);
    } catch (const Interrupted&) {
        return End::kInterrupted;
    }
}

void ParallelHasher::tick(HashTask& task) {
    progress_.reached({files_, bytes_});
    const Clock::time_point now = Clock::now();
    if (now - idled_ < kBetweenIdles)
        return;
    idled_ = now;
    task.idle(bytes_);
}

bool ParallelHasher::finish(HashTask& task, HashedFile& file) {
    if (file.action == HashDecision::kUseKnown)
        bytes_ += static_cast<std::uint64_t>(file.status.st_size);
    if (task.isFile(finished_))
        ++files_;
    const bool goOn = task.finish(finished_++, file);
    tick(task);
    return goOn;
}

ParallelHasher::End ParallelHasher::runAlone(HashTask& task) {
    TaskHasher hasher(task, [&](std::size_t bytes) {
        stopIfInterrupted();
        bytes_ += bytes;
        tick(task);
    });
    while (finished_ < task.count()) {
        stopIfInterrupted();
        HashedFile file = hasher.hash(finished_, [] {});
        if (!finish(task, file))
            return End::kStopped;
    }
    return End::kComplete;
}

// Called by the threads.
void ParallelHasher::onBlock(std::size_t bytes) {
    if (cancelled_ || interruptRequested())
        throw Interrupted();
    bytes_ += bytes;
}

ParallelHasher::End ParallelHasher::runThreads(HashTask& task, std::size_t threads) {
    std::optional<Pool> pool;
    try {
        pool.emplace(task.count(),
                     makeWorkers(threads, task, [this](std::size_t bytes) { onBlock(bytes); }));
    } catch (const std::system_error&) {
        return runAlone(task); // the system allows no thread
    }
    const RaisedAtEnd noMoreBlocks(cancelled_); // before the pool waits for its threads
    while (finished_ < task.count()) {
        const bool interrupted = interruptRequested();
        if (interrupted)
            pool->cancel(); // what is done is still handed out
        std::vector<Pool::Slot> ready = pool->next(interrupted ? kAtOnce : kBetweenIdles);
        if (interrupted && ready.empty())
            return End::kInterrupted;
        for (Pool::Slot& slot : ready) {
            if (slot.error)
                std::rethrow_exception(slot.error);
            if (!finish(task, *slot.result))
                return End::kStopped;
        }
        tick(task);
    }
    return End::kComplete;
}

} // namespace cli
