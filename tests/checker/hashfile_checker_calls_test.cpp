// The checker over a C library that fails when told to: this program's own fopen, fread, lseek,
// read, fclose, access, stat and malloc stand before the system's.

#include "checker/hashfile_checker.h"
#include "tests/support/bytes.h"
#include "tests/support/scratch.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <functional>
#include <gtest/gtest.h>
#include <list>
#include <new>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// What the stand-ins do.
struct Script {
    int failingSeek = 0; // 1 for the first call of lseek, 2 for the second
    int seekError = EOVERFLOW;
    int failingRead = 0; // the number of the call of fread that is cut down to `readCount` items
    std::size_t readCount = 0;
    int readError = 0;           // what errno is set to by that call, if not 0
    int failingSystemRead = 0;   // the number of the call of read that fails with EIO
    int errorAfterEveryCall = 0; // what succeeding calls leave in errno, as they may

    int seeks = 0;
    int reads = 0;
    int systemReads = 0;
    int questions = 0; // asked of a file by its name
    int opened = 0;    // streams open
    std::vector<std::string> modes;
    std::vector<std::size_t> itemSizes;
};

Script* script = nullptr; // null: everything as usual

template<class Function>
Function* systems(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void disturbErrno() {
    if (script != nullptr && script->errorAfterEveryCall != 0)
        errno = script->errorAfterEveryCall;
}

} // namespace

// Visible, so that the C++ library finds them too.
#pragma GCC visibility push(default)
extern "C" {

std::FILE* fopen(const char* path, const char* mode) {
    static auto* const next = systems<std::FILE*(const char*, const char*)>("fopen");
    if (script != nullptr)
        script->modes.emplace_back(mode);
    std::FILE* const file = next(path, mode);
    if (script != nullptr && file != nullptr)
        ++script->opened;
    return file;
}

int fclose(std::FILE* file) {
    static auto* const next = systems<int(std::FILE*)>("fclose");
    if (script != nullptr)
        --script->opened;
    const int result = next(file);
    disturbErrno();
    return result;
}

std::size_t fread(void* buffer, std::size_t size, std::size_t count, std::FILE* file) {
    static auto* const next =
        systems<std::size_t(void*, std::size_t, std::size_t, std::FILE*)>("fread");
    if (script == nullptr)
        return next(buffer, size, count, file);
    script->itemSizes.push_back(size);
    if (++script->reads != script->failingRead)
        return next(buffer, size, count, file);
    const std::size_t taken = next(buffer, size, std::min(count, script->readCount), file);
    if (script->readError != 0)
        errno = script->readError;
    return taken;
}

off_t lseek(int descriptor, off_t offset, int origin) noexcept {
    static auto* const next = systems<off_t(int, off_t, int)>("lseek");
    if (script != nullptr && ++script->seeks == script->failingSeek) {
        errno = script->seekError;
        return -1;
    }
    return next(descriptor, offset, origin);
}

ssize_t read(int descriptor, void* buffer, std::size_t size) {
    static auto* const next = systems<ssize_t(int, void*, std::size_t)>("read");
    if (script != nullptr && ++script->systemReads == script->failingSystemRead) {
        errno = EIO;
        return -1;
    }
    return next(descriptor, buffer, size);
}

int access(const char* path, int mode) noexcept {
    static auto* const next = systems<int(const char*, int)>("access");
    if (script != nullptr)
        ++script->questions;
    return next(path, mode);
}

int stat(const char* path, struct stat* out) noexcept {
    static auto* const next = systems<int(const char*, struct stat*)>("stat");
    if (script != nullptr)
        ++script->questions;
    return next(path, out);
}

#ifndef PELORIK_SANITIZED
void* __libc_malloc(std::size_t size);

void* malloc(std::size_t size) {
    void* const block = __libc_malloc(size);
    disturbErrno();
    return block;
}
#endif
}
#pragma GCC visibility pop

namespace {

using HashFileChecker::CheckFiles;
using HashFileChecker::FileIOException;
using HashFileChecker::GetFileHash;
using HashFileChecker::Statistics;
using support::pattern;

class RecordingCalc : public IHash_Calc {
public:
    std::vector<std::string> chunks;
    bool throws = false;

    void Update(const void* data, std::size_t length) override {
        chunks.emplace_back(static_cast<const char*>(data), length);
        if (throws)
            throw std::bad_alloc();
    }
};

// What one try of reading a file came to.
struct Outcome {
    std::vector<std::string> chunks;
    bool failed = false;
    int error = 0;
    std::string fileName;
    std::string message;
};

class ScriptedFiles : public testing::Test {
protected:
    ~ScriptedFiles() override { script = nullptr; }

    Outcome read(const std::string& path) {
        RecordingCalc calc;
        Outcome outcome;
        errno = ENOENT; // an older error, which must not be taken for one of these
        script = &script_;
        try {
            GetFileHash(path.c_str(), calc);
        } catch (const FileIOException& problem) {
            script = nullptr;
            outcome = {{}, true, problem.error, problem.fileName, problem.what()};
        }
        script = nullptr;
        outcome.chunks = calc.chunks;
        EXPECT_EQ(script_.opened, 0) << "the file stayed open";
        return outcome;
    }

    // Expects "File read error" with this number after so many chunks.
    void expectReadError(int error, std::size_t chunks) {
        const Outcome outcome = read(file_);
        EXPECT_TRUE(outcome.failed);
        EXPECT_EQ(outcome.error, error);
        EXPECT_EQ(outcome.fileName, file_);
        EXPECT_EQ(outcome.message, "File read error");
        EXPECT_EQ(outcome.chunks.size(), chunks);
    }

    const support::ScratchDirectory scratch_;
    const std::string content_ = pattern(65536 + 65536 + 1000);
    const std::string file_ = scratch_.write("file", content_);
    Script script_;
};

TEST_F(ScriptedFiles, OpensInBinaryModeAndCountsBytes) {
    const Outcome outcome = read(file_);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(script_.questions, 0);
    EXPECT_EQ(script_.modes, std::vector<std::string>{"rb"});
    EXPECT_EQ(script_.itemSizes, (std::vector<std::size_t>{1, 1, 1}));
    EXPECT_EQ(script_.seeks, 2);
}

TEST_F(ScriptedFiles, AnEmptyFileIsClosedUnread) {
    scratch_.write("file", "");
    const Outcome outcome = read(file_);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.chunks.size(), 0U);
    EXPECT_EQ(script_.reads, 0);
}

TEST_F(ScriptedFiles, ASizeThatCannotBeTakenIsAReadErrorWithTheSeeksNumber) {
    script_.failingSeek = 1;
    expectReadError(EOVERFLOW, 0);
    EXPECT_EQ(script_.reads, 0);
}

TEST_F(ScriptedFiles, ASeekBackThatFailsIsAReadErrorWithItsNumber) {
    script_.failingSeek = 2;
    script_.seekError = EINVAL;
    expectReadError(EINVAL, 0);
    EXPECT_EQ(script_.reads, 0);
}

TEST_F(ScriptedFiles, AReadThatFailsCarriesItsOwnNumber) {
    script_.readError = EIO;
    for (int call = 1; call <= 3; ++call) {
        script_.reads = 0;
        script_.failingRead = call;
        expectReadError(EIO, static_cast<std::size_t>(call - 1));
    }
}

// Number 2 left from an older call would be mistaken for a missing file.
TEST_F(ScriptedFiles, AFileThatEndedEarlyCarriesNoNumber) {
    for (int call = 1; call <= 3; ++call) {
        script_.reads = 0;
        script_.failingRead = call;
        expectReadError(0, static_cast<std::size_t>(call - 1));
    }
}

TEST_F(ScriptedFiles, Deliberate_AShortFirstReadIsFilledUpWithZeros) {
    script_.failingRead = 1;
    script_.readCount = 100;
    const Outcome outcome = read(file_);
    EXPECT_FALSE(outcome.failed);
    ASSERT_EQ(outcome.chunks.size(), 3U);
    EXPECT_EQ(outcome.chunks[0], content_.substr(0, 100) + std::string(65536 - 100, '\0'));
    EXPECT_EQ(outcome.chunks[1], content_.substr(100, 65536));
}

TEST_F(ScriptedFiles, Deliberate_AShortLaterReadKeepsWhatTheChunkBeforeLeft) {
    script_.failingRead = 2;
    script_.readCount = 1;
    const Outcome outcome = read(file_);
    EXPECT_FALSE(outcome.failed);
    ASSERT_EQ(outcome.chunks.size(), 3U);
    EXPECT_EQ(outcome.chunks[1], content_.substr(65536, 1) + content_.substr(1, 65535));
}

// An error that comes with some bytes is seen by the next read.
TEST_F(ScriptedFiles, AShortReadIsNoErrorUnlessItIsEmpty) {
    script_.failingRead = 3;
    script_.readCount = 1;
    script_.readError = EIO;
    const Outcome outcome = read(file_);
    EXPECT_FALSE(outcome.failed);
    ASSERT_EQ(outcome.chunks.size(), 3U);
    EXPECT_EQ(outcome.chunks[2], content_.substr(131072, 1) + content_.substr(65537, 999));
}

TEST_F(ScriptedFiles, ClosesTheFileWhenTheCalculatorThrows) {
    RecordingCalc calc;
    calc.throws = true;
    script = &script_;
    EXPECT_THROW(GetFileHash(file_.c_str(), calc), std::bad_alloc);
    script = nullptr;
    EXPECT_EQ(script_.opened, 0);
}

// Calls that succeed may change errno too: closing the file, or getting memory for the exception.
TEST_F(ScriptedFiles, ErrorNumbersAreTakenBeforeAnythingElseCanChangeThem) {
    script_.errorAfterEveryCall = ECHILD;
    script_.failingSeek = 1;
    expectReadError(EOVERFLOW, 0);
    script_.failingSeek = 0;
    script_.failingRead = 1;
    script_.readError = EIO;
    expectReadError(EIO, 0);

    const std::string missing = scratch_.path("a name that is too long to be kept without memory");
    const Outcome outcome = read(missing);
    EXPECT_EQ(outcome.error, ENOENT);
    EXPECT_EQ(outcome.message, "Can`t open File for reading.");
}

TEST_F(ScriptedFiles, ErrorNumbersOfListsAreTakenBeforeAnythingElseCanChangeThem) {
    const std::string missing = scratch_.path("a name that is too long to be kept without memory");
    script_.errorAfterEveryCall = ECHILD;
    std::list<std::string> names;
    std::list<HashFileChecker::FileHashPair> records;
    const std::function<void()> loads[] = {
        [&] { HashFileChecker::LoadFileList(missing.c_str(), names); },
        [&] { HashFileChecker::LoadHashList(missing.c_str(), records); }};
    for (const auto& load : loads) {
        script = &script_;
        try {
            load();
            script = nullptr;
            ADD_FAILURE() << "did not throw";
        } catch (const FileIOException& problem) {
            script = nullptr;
            EXPECT_EQ(problem.error, ENOENT);
        }
    }
}

TEST_F(ScriptedFiles, CheckFilesThrowsReadErrorsOn) {
    const std::string digits(64, '0');
    for (const int error : {0, EIO, EISDIR, EINTR}) {
        script_.reads = 0;
        script_.failingRead = 1;
        script_.readError = error;
        std::ostringstream out;
        Statistics counters{};
        script = &script_;
        try {
            CheckFiles({{file_, digits, ""}}, out, &counters, false);
            script = nullptr;
            ADD_FAILURE() << "did not throw";
        } catch (const FileIOException& problem) {
            script = nullptr;
            EXPECT_EQ(problem.error, error);
            EXPECT_EQ(problem.fileName, file_);
            EXPECT_STREQ(problem.what(), "File read error");
        }
        EXPECT_EQ(out.str(), "");
        EXPECT_EQ(counters.checked, 1U);
        EXPECT_EQ(script_.opened, 0);
    }
}

// The number alone decides, wherever it came from.
TEST_F(ScriptedFiles, CheckFilesWarnsOfAReadThatIsNotAllowed) {
    script_.failingRead = 1;
    script_.readError = EACCES;
    std::ostringstream out;
    script = &script_;
    const int code = CheckFiles({{file_, std::string(64, '0'), ""}}, out, nullptr, false);
    script = nullptr;
    EXPECT_EQ(code, 0);
    EXPECT_EQ(out.str(), "Warning: File access denied: " + file_ + ".\n");
}

TEST_F(ScriptedFiles, CalcHashLeavesTheResultOnAReadError) {
    script_.failingRead = 2;
    script_.readError = EIO;
    std::string result = "before";
    script = &script_;
    const bool done = HashFileChecker::CalcHash(file_, "#MD5:", result);
    script = nullptr;
    EXPECT_FALSE(done);
    EXPECT_EQ(result, "before");
    EXPECT_EQ(script_.opened, 0);
}

// The entries of the list's first buffers stay; the rest is not read, and nothing is thrown.
TEST_F(ScriptedFiles, AListThatFailsInTheMiddleEndsWithoutAnError) {
    std::string text;
    for (int i = 0; i < 10000; ++i)
        text += std::to_string(i) + "=x\n";
    const std::string list = scratch_.write("list", text);

    std::list<std::string> names;
    script_.failingSystemRead = 2;
    script = &script_;
    HashFileChecker::LoadFileList(list.c_str(), names);
    script = nullptr;
    EXPECT_GT(names.size(), 0U);
    EXPECT_LT(names.size(), 10000U);
    EXPECT_EQ(names.front(), "0=x");

    std::list<HashFileChecker::FileHashPair> records;
    script_.systemReads = 0;
    script = &script_;
    HashFileChecker::LoadHashList(list.c_str(), records);
    script = nullptr;
    EXPECT_EQ(records.size(), names.size());
}

} // namespace
