// The main function of every test program.
//
// Counts what a test leaves behind. Memory is counted around each test through the replaced
// operators new and delete, in builds where no sanitizer does that better; descriptors and child
// processes are counted around the whole program.

#include "tests/support/leaks.h"
#include "tests/support/remains.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>

namespace {

std::atomic<long> liveBlocks{0};
std::atomic<long> blocksUntilFailure{-1}; // negative: none fails
std::atomic<bool> allFail{false};
bool leaksAllowed = false;

} // namespace

#ifndef PELORIK_SANITIZED

void* operator new(std::size_t size) {
    if (allFail || (blocksUntilFailure >= 0 && blocksUntilFailure-- == 0))
        throw std::bad_alloc();
    void* const block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr)
        throw std::bad_alloc();
    ++liveBlocks;
    return block;
}

// Weak: array_new.cpp has others.
__attribute__((weak)) void* operator new[](std::size_t size) {
    return operator new(size);
}

void operator delete(void* block) noexcept {
    if (block != nullptr)
        --liveBlocks;
    std::free(block);
}

__attribute__((weak)) void operator delete[](void* block) noexcept {
    operator delete(block);
}
void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}
__attribute__((weak)) void operator delete[](void* block, std::size_t) noexcept {
    operator delete(block);
}

#endif

namespace {

class MemoryWatch : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override {
        leaksAllowed = false;
        before_ = liveBlocks;
    }

    void OnTestEnd(const testing::TestInfo& info) override {
        if (info.result()->Passed() && !leaksAllowed) {
            EXPECT_EQ(liveBlocks, before_) << "the test left memory allocated";
        }
    }

    long before_ = 0;
};

} // namespace

void support::allowLastingMemory() {
    leaksAllowed = true;
}

bool support::canFailAllocations() {
#ifdef PELORIK_SANITIZED
    return false;
#else
    return true;
#endif
}

support::NoMemory::NoMemory() {
    allFail = true;
}

support::NoMemory::~NoMemory() {
    allFail = false;
}

support::FailingAllocation::FailingAllocation(long before) {
    blocksUntilFailure = before;
}

support::FailingAllocation::~FailingAllocation() {
    blocksUntilFailure = -1;
}

bool support::FailingAllocation::failed() const {
    return blocksUntilFailure < 0;
}

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new MemoryWatch);
    const support::Remains remains;
    const int status = RUN_ALL_TESTS();
    if (testing::UnitTest::GetInstance()->test_to_run_count() == 0) {
        std::fputs("No test matches the filter.\n", stderr);
        return 1;
    }
    return remains.found() ? 1 : status;
}
