// The injector itself: calls fail by their number, move less than they were asked, run a test's
// function, and reads of one file fail from an offset on.

#include "tests/support/fault_injection.h"
#include "tests/support/scratch.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <unistd.h>

namespace {

using std::string;
using support::CallKind;
using support::FailingCall;
using support::FailingCalls;
using support::FailingReads;
using support::Replacement;
using support::ShortCounts;
using support::Uncounted;

constexpr std::size_t kSize = 100'000;

class FaultInjection : public testing::Test {
protected:
    ~FaultInjection() override { close(descriptor_); }

    // The result of read(2) of up to `size` bytes, or the negative error.
    ssize_t read(std::size_t size) const {
        string buffer(size, '?');
        const ssize_t result = ::read(descriptor_, buffer.data(), size);
        return result < 0 ? -errno : result;
    }

    const support::ScratchDirectory scratch_;
    const string content_ = string(kSize, 'x');
    const string path_ = scratch_.write("file", content_);
    const int descriptor_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
};

// Returns the numbers of the first five calls that fail.
template<class Fails>
string failuresOf(Fails fails) {
    string failures;
    for (int call = 1; call <= 5; ++call)
        failures += fails() ? std::to_string(call) : "";
    return failures;
}

TEST_F(FaultInjection, FailsTheCallOfThatNumberInItsWays) {
    const int errors[] = {EIO, EINTR};
    for (unsigned way = 0; way < 2; ++way) {
        const FailingCall failing(CallKind::kSystem, 3, way);
        EXPECT_FALSE(failing.reached());
        EXPECT_EQ(failuresOf([&] { return read(1) == -errors[way]; }), "3");
        EXPECT_TRUE(failing.failed());
        EXPECT_EQ(support::countedCalls(), 5);
    }
    EXPECT_EQ(support::failedCall(), "read, call 3, EINTR");
}

TEST_F(FaultInjection, CutsTheCallOfThatNumberShort) {
    const FailingCall failing(CallKind::kSystem, 2, 2);
    EXPECT_EQ(read(100), 100);
    EXPECT_EQ(read(100), 50);
    EXPECT_EQ(read(100), 100);
    EXPECT_EQ(support::failedCall(), "read, call 2, short");
}

TEST_F(FaultInjection, ReportsThatTheCallHasNoSuchWay) {
    const FailingCall failing(CallKind::kSystem, 1, 3);
    EXPECT_EQ(read(1), 1);
    EXPECT_TRUE(failing.reached());
    EXPECT_FALSE(failing.failed());
}

TEST_F(FaultInjection, CountsEachKindSeparately) {
    const FailingCall failing(CallKind::kSystem, 1, 0);
    std::free(std::malloc(1));
    EXPECT_FALSE(failing.reached());
    EXPECT_EQ(::read(descriptor_, nullptr, 0), -1);
}

TEST_F(FaultInjection, FailsEveryCallFromThatNumberOn) {
    const FailingCalls failing(CallKind::kMemory, 3);
    void* volatile block = nullptr; // or the compiler drops the pairs
    const string failures = failuresOf([&] {
        block = std::malloc(1);
        std::free(block);
        return block == nullptr;
    });
    EXPECT_EQ(failures, "345");
}

TEST_F(FaultInjection, FailsOperatorsNewByMalloc) {
    const FailingCalls none(CallKind::kMemory);
    EXPECT_THROW(std::make_unique<int>(), std::bad_alloc);
    EXPECT_THROW(std::make_unique<int[]>(5), std::bad_alloc);
    EXPECT_EQ(std::calloc(1, 1), nullptr);
    EXPECT_EQ(errno, ENOMEM);
}

TEST_F(FaultInjection, CountsTheBlocksThatAreAllocated) {
    const long before = support::liveBlocks();
    void* volatile block = std::malloc(1);
    EXPECT_EQ(support::liveBlocks(), before + 1);
    block = std::realloc(block, 1000);
    EXPECT_EQ(support::liveBlocks(), before + 1);
    std::free(block);
    EXPECT_EQ(support::liveBlocks(), before);
}

TEST_F(FaultInjection, LeavesUncountedCallsAlone) {
    const FailingCalls failing(CallKind::kSystem);
    {
        const Uncounted own;
        EXPECT_EQ(read(1), 1);
    }
    EXPECT_EQ(support::countedCalls(), 0);
    EXPECT_EQ(read(1), -EIO);
}

TEST_F(FaultInjection, LimitsEveryCount) {
    const ShortCounts limit(7);
    EXPECT_EQ(read(100), 7);
    EXPECT_EQ(read(3), 3);
    char buffer[100];
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path_.c_str(), "rb"),
                                                               std::fclose);
    EXPECT_EQ(std::fread(buffer, 1, sizeof buffer, file.get()), 7u);
    const int out = open(scratch_.path("out").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    EXPECT_EQ(write(out, content_.data(), 100), 7);
    close(out);
}

TEST_F(FaultInjection, StreamsReadWholeFilesByShortReads) {
    const ShortCounts limit(7);
    EXPECT_EQ(support::contentOf(path_), content_);
}

TEST_F(FaultInjection, RunsTheFunctionOfATest) {
    int calls = 0;
    {
        const Replacement read(support::calls::read, [&](int, void*, std::size_t size) {
            ++calls;
            char byte = '?';
            EXPECT_EQ(::read(descriptor_, &byte, 1), 1); // the C library's
            return static_cast<ssize_t>(size) + 1;
        });
        EXPECT_EQ(this->read(10), 11);
    }
    EXPECT_EQ(read(10), 10);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(lseek(descriptor_, 0, SEEK_CUR), 11);
}

TEST_F(FaultInjection, RestoresTheReplacementBefore) {
    const auto returning = [](int result) { return [result](auto...) { return result; }; };
    const Replacement outer(support::calls::access, returning(5));
    {
        const Replacement inner(support::calls::access, returning(6));
        EXPECT_EQ(access("/", F_OK), 6);
    }
    EXPECT_EQ(access("/", F_OK), 5);
}

TEST_F(FaultInjection, FailsReadsOfOneFileFromAnOffsetOn) {
    const string other = scratch_.write("other", content_);
    const FailingReads failing(path_, 1000, ENXIO);
    EXPECT_EQ(read(600), 600);
    EXPECT_EQ(read(600), 400);
    EXPECT_EQ(read(600), -ENXIO);
    EXPECT_EQ(read(600), -ENXIO);
    char byte = '?';
    EXPECT_EQ(pread(descriptor_, &byte, 1, 999), 1);
    EXPECT_EQ(pread(descriptor_, &byte, 1, 1000), -1);
    EXPECT_EQ(support::contentOf(other), content_);
}

TEST_F(FaultInjection, FailsReadsOfHardLinksToTheFile) {
    std::filesystem::create_hard_link(path_, scratch_.path("link"));
    const FailingReads failing(scratch_.path("link"), 0, EIO);
    EXPECT_EQ(read(1), -EIO);
}

TEST_F(FaultInjection, FailsReadsOfStdio) {
    const FailingReads failing(path_, 1000, ENXIO);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path_.c_str(), "rb"),
                                                               std::fclose);
    char buffer[600];
    EXPECT_EQ(std::fread(buffer, 1, sizeof buffer, file.get()), 600u);
    EXPECT_FALSE(std::ferror(file.get()));
    EXPECT_EQ(std::fread(buffer, 1, sizeof buffer, file.get()), 400u);
    EXPECT_TRUE(std::ferror(file.get()));
    EXPECT_EQ(errno, ENXIO);
    EXPECT_EQ(std::fread(buffer, 1, sizeof buffer, file.get()), 0u);
    EXPECT_EQ(std::fseek(file.get(), 0, SEEK_SET), 0);
    EXPECT_EQ(std::fread(buffer, 1, sizeof buffer, file.get()), 600u);
}

TEST_F(FaultInjection, FailsReadsOfFileStreams) {
    const FailingReads failing(path_, 1000, EIO);
    std::ifstream in(path_, std::ios::binary);
    int count = 0;
    while (in.get() != EOF)
        ++count;
    EXPECT_EQ(count, 1000);
    EXPECT_TRUE(in.bad());
}

TEST_F(FaultInjection, FailsReadsOfOneFileOnly) {
    EXPECT_THROW(FailingReads(scratch_.path("missing"), 0, EIO), std::runtime_error);
    { const FailingReads failing(path_, 0, EIO); }
    EXPECT_EQ(read(1), 1);
}

} // namespace
