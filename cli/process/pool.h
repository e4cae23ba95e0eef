// Work spread over threads, with results in order.

#ifndef PELORIK_CLI_PROCESS_POOL_H
#define PELORIK_CLI_PROCESS_POOL_H

#include "cli/process/signals.h"

#include <algorithm>
#include <array>
#include <atomic>
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

// Calls workers with the indices 0 to `count` - 1, and hands the results out in their order. A
// thread claims several indices at a time. It waits when it is too far ahead of `next`, which
// bounds the memory.
template<class Result>
class OrderedPool {
    static constexpr std::size_t kClaim = 32; // indices

public:
    // A result, or what the worker threw.
    struct Slot {
        std::optional<Result> result;
        std::exception_ptr error;
    };

    // The indices that a thread works on.
    class Claim {
    public:
        // Publishes the results so far, and leaves the indices after the present one to other
        // threads: for work that takes long.
        void endHere() { pool_.shorten(*this); }

    private:
        friend class OrderedPool;
        explicit Claim(OrderedPool& pool) : pool_(pool) {}

        OrderedPool& pool_;
        std::size_t published_ = 0; // indices before this one are published
        std::size_t present_ = 0;
        std::size_t end_ = 0;
        std::array<Slot, kClaim> done_; // from `published_` to `present_`
    };

    using Worker = std::function<Result(std::size_t index, Claim& claim)>;

    // Starts a thread for each of `workers`, or for as many as the system allows.
    OrderedPool(std::size_t count, std::vector<Worker> workers)
        : count_(count), workers_(std::move(workers)), slots_(kAhead * workers_.size()) {
        const SignalsBlocked blocked; // signals go to the thread that waits for results
        left_.reserve(workers_.size());
        threads_.reserve(workers_.size());
        try {
            for (const Worker& worker : workers_)
                threads_.emplace_back([this, &worker] { run(worker); });
        } catch (const std::system_error&) {
            if (threads_.empty())
                throw;
        } catch (...) {
            cancel();
            throw;
        }
    }

    // Waits for the work in hand.
    ~OrderedPool() { cancel(); }

    OrderedPool(const OrderedPool&) = delete;
    OrderedPool& operator=(const OrderedPool&) = delete;

    // Begins nothing more, and waits for the work in hand. `next` still returns what is done.
    void cancel() {
        {
            const std::lock_guard lock(mutex_);
            cancelled_ = true;
            slotFreed_.notify_all();
        }
        for (std::thread& thread : threads_)
            thread.join();
        threads_.clear();
    }

    // Returns the next results in order, at most `kClaim`; none when they are not there within
    // `timeout`.
    std::vector<Slot> next(std::chrono::milliseconds timeout) {
        std::vector<Slot> ready;
        std::unique_lock lock(mutex_);
        if (!isNextDone())
            resultsReady_.wait_for(lock, timeout, [this] { return isWorthWaking(); });
        while (ready.size() < kClaim && isNextDone()) {
            Slot& slot = slots_[taken_ % slots_.size()];
            ready.push_back(std::move(slot));
            slot.result.reset();
            slot.error = nullptr;
            ++taken_;
        }
        if (!ready.empty())
            slotFreed_.notify_all();
        return ready;
    }

private:
    static constexpr std::size_t kAhead = 1024; // results that a thread may be ahead

    bool isNextDone() const {
        const Slot& slot = slots_[taken_ % slots_.size()];
        return taken_ < count_ && (slot.result || slot.error);
    }

    // Small work is done faster than a sleeper wakes: `next` is woken for many results at a time.
    // It finds fewer by itself when its time is up.
    bool isWorthWaking() const {
        return isNextDone() && (done_ - taken_ >= slots_.size() / 2 || done_ == count_);
    }

    bool isWorkLeft() const {
        return !left_.empty() || (begun_ < count_ && begun_ < taken_ + slots_.size());
    }

    // The claims get smaller towards the end, so that the threads finish together.
    std::size_t claimSize() const {
        const std::size_t share = (count_ - begun_) / (2 * workers_.size());
        const std::size_t free = taken_ + slots_.size() - begun_;
        return std::min({std::max<std::size_t>(share, 1), kClaim, free});
    }

    // Waits for indices; false when there will be none. As long as a thread is at work, it may
    // leave some to others.
    bool claim(Claim& claim) {
        std::unique_lock lock(mutex_);
        publish(claim);
        slotFreed_.wait(lock, [this] { return cancelled_ || isWorkLeft() || done_ == count_; });
        if (cancelled_ || !isWorkLeft())
            return false;
        if (!left_.empty()) {
            claim.present_ = left_.back().first;
            claim.end_ = left_.back().second;
            left_.pop_back();
        } else {
            claim.present_ = begun_;
            begun_ += claimSize();
            claim.end_ = begun_;
        }
        claim.published_ = claim.present_;
        return true;
    }

    void shorten(Claim& claim) {
        const std::lock_guard lock(mutex_);
        publish(claim);
        if (claim.present_ + 1 >= claim.end_)
            return;
        left_.emplace_back(claim.present_ + 1, claim.end_);
        claim.end_ = claim.present_ + 1;
        slotFreed_.notify_all();
    }

    // Requires the lock.
    void publish(Claim& claim) {
        done_ += claim.present_ - claim.published_;
        for (std::size_t i = 0; claim.published_ < claim.present_; ++i)
            slots_[claim.published_++ % slots_.size()] = std::move(claim.done_[i]);
        if (isWorthWaking())
            resultsReady_.notify_one();
        if (done_ == count_)
            slotFreed_.notify_all();
    }

    // Allocates nothing: nobody would catch what that throws.
    void run(const Worker& worker) {
        Claim claim(*this);
        while (this->claim(claim)) {
            for (; claim.present_ < claim.end_ && !cancelled_; ++claim.present_) {
                Slot slot = resultOf(worker, claim); // may publish
                claim.done_[claim.present_ - claim.published_] = std::move(slot);
            }
        }
    }

    Slot resultOf(const Worker& worker, Claim& claim) {
        try {
            return {worker(claim.present_, claim), nullptr};
        } catch (...) {
            return {std::nullopt, std::current_exception()};
        }
    }

    const std::size_t count_;
    const std::vector<Worker> workers_;
    std::atomic<bool> cancelled_{false};
    std::mutex mutex_;
    std::condition_variable slotFreed_;
    std::condition_variable resultsReady_;
    std::vector<Slot> slots_;                               // of index i at i modulo their number
    std::vector<std::pair<std::size_t, std::size_t>> left_; // ranges left by at most each thread
    std::size_t begun_ = 0;                                 // indices that were claimed,
    std::size_t done_ = 0;                                  // have a result,
    std::size_t taken_ = 0;                                 // were returned by `next`
    std::vector<std::thread> threads_; // last: the threads use all of the above
};

} // namespace cli

#endif
