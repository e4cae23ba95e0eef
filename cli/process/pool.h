// Work spread over threads, results in order.

#ifndef PELORIK_CLI_PROCESS_POOL_H
#define PELORIK_CLI_PROCESS_POOL_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace cli {

// Calls `work` with 0 to `count` - 1 on several threads; `next` hands the results out in order. A
// thread waits when it is too far ahead of `next`, so that memory stays bounded.
template<class Result>
class OrderedPool {
public:
    OrderedPool(std::size_t count, std::size_t threads, std::function<Result(std::size_t)> work)
        : count_(count), work_(std::move(work)), slots_(kAhead * threads) {
        try {
            for (std::size_t i = 0; i < threads; ++i)
                threads_.emplace_back([this] { run(); });
        } catch (const std::system_error&) {
            // The system gives no more threads: fewer do the same work.
            if (threads_.empty())
                throw;
        }
    }

    // Waits for the work in hand.
    ~OrderedPool() {
        cancel();
        for (std::thread& thread : threads_)
            thread.join();
    }

    OrderedPool(const OrderedPool&) = delete;
    OrderedPool& operator=(const OrderedPool&) = delete;

    void cancel() {
        const std::lock_guard lock(mutex_);
        begun_ = count_;
        slotFreed_.notify_all();
    }

    // The next result, of which there are `count`; nothing when it is not there within `timeout`.
    // Throws what `work` threw.
    std::optional<Result> next(std::chrono::milliseconds timeout) {
        std::unique_lock lock(mutex_);
        if (!nextIsDone())
            resultsReady_.wait_for(lock, timeout, [this] { return isWorthWaking(); });
        if (!nextIsDone())
            return std::nullopt;
        Slot& slot = slots_[taken_ % slots_.size()];
        ++taken_;
        slotFreed_.notify_one();
        if (slot.error)
            std::rethrow_exception(std::exchange(slot.error, nullptr));
        return std::exchange(slot.result, std::nullopt);
    }

private:
    static constexpr std::size_t kAhead = 64; // results that a thread may be ahead

    struct Slot {
        std::optional<Result> result;
        std::exception_ptr error;
    };

    bool nextIsDone() const {
        const Slot& slot = slots_[taken_ % slots_.size()];
        return slot.result || slot.error;
    }

    // Small work is done faster than a sleeper wakes: `next` is woken for many results at a time.
    // It finds fewer by itself when its timeout ends.
    bool isWorthWaking() const {
        return nextIsDone() && (done_ - taken_ >= slots_.size() / 2 || done_ == count_);
    }

    Slot workOn(std::size_t index) {
        try {
            return {work_(index), nullptr};
        } catch (...) {
            return {std::nullopt, std::current_exception()};
        }
    }

    void run() {
        std::unique_lock lock(mutex_);
        for (;;) {
            slotFreed_.wait(lock,
                            [&] { return begun_ == count_ || begun_ < taken_ + slots_.size(); });
            if (begun_ == count_)
                return;
            const std::size_t index = begun_++;
            lock.unlock();
            Slot done = workOn(index);
            lock.lock();
            slots_[index % slots_.size()] = std::move(done);
            ++done_;
            if (isWorthWaking())
                resultsReady_.notify_one();
        }
    }

    const std::size_t count_;
    const std::function<Result(std::size_t)> work_;
    std::mutex mutex_;
    std::condition_variable slotFreed_;
    std::condition_variable resultsReady_;
    std::vector<Slot> slots_;          // of index i at i modulo their number
    std::size_t begun_ = 0;            // how many were given to a thread,
    std::size_t done_ = 0;             // have a result,
    std::size_t taken_ = 0;            // were handed out by `next`
    std::vector<std::thread> threads_; // last: the threads use all of the above
};

} // namespace cli

#endif
