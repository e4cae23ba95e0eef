// The main function of every test program.
//
// Checks for leaks: of memory after each test, by operators new and delete that count, unless a
// sanitizer does that better; of descriptors and child processes at the end of the program.

#include "tests/support/leak_check.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>

namespace {

std::atomic<long> liveBlocks{0};
bool leaksAllowed = false;

} // namespace

#ifndef PELORIK_SANITIZED

void* operator new(std::size_t size) {
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

class MemoryLeakCheck : public testing::EmptyTestEventListener {
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

void support::allowLeaks() {
    leaksAllowed = true;
}

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new MemoryLeakCheck);
    const support::LeakCheck leaks;
    const int status = RUN_ALL_TESTS();
    if (testing::UnitTest::GetInstance()->test_to_run_count() == 0) {
        std::fputs("No test matches the filter.\n", stderr);
        return 1;
    }
    return leaks.found() ? 1 : status;
}
