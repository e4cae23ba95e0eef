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
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
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
    bool laterReadsFail = false;              // like that one
    int readError = 0;                        // what errno is set to by that call, if not 0
    int failingSystemRead = 0;                // the number of the call of read that fails with EIO
    int errorAfterEveryCall = 0;              // what succeeding calls leave in errno, as they may
    std::function<void()> atSeekBack = [] {}; // called before the second call of lseek

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
    const int call = ++script->reads;
    if (call != script->failingRead && !(script->laterReadsFail && call > script->failingRead))
        return next(buffer, size, count, file);
    const std::size_t taken = next(buffer, size, std::min(count, script->readCount), file);
    if (script->readError != 0)
        errno = script->readError;
    return taken;
}

off_t lseek(int descriptor, off_t offset, int origin) noexcept {
    static auto* const next = systems<off_t(int, off_t, int)>("lseek");
    if (script == nullptr)
        return next(descriptor, offset, origin);
    if (++script->seeks == script->failingSeek) {
        errno = script->seekError;
        return -1;
    }
    if (script->seeks == 2)
        script->atSeekBack();
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

// md5sum's.
const std::string kMd5OfAbcAndZeros = "f4f90f0deebc2956ffe6fadcd2302d83";
const std::string kMd5OfAbcAndA5 = "475d30a56f5935b496269272282a599e";
const std::string kMd5OfTwoChunksOfX = "3832e28c8feea48397f30d70b43d7987";

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

    // The code of a check of the file.
    int check(const std::string& digest) {
        std::ostringstream out;
        script = &script_;
        const int code = CheckFiles({{file_, digest, ""}}, out, nullptr, false);
        script = nullptr;
        return code;
    }

    // What is fed for bytes of the first chunk that could not be read.
    static std::string lost(std::size_t count) { return std::string(count, '\xa5'); }

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

// What follows a short read: the chunk as it was fed, and the read of the next one.

TEST_F(ScriptedFiles, AShortFirstReadIsFilledUpWithA5) {
    for (const int error : {0, EIO}) {
        for (const std::size_t taken : {1U, 100U, 65535U}) {
            script_ = {};
            script_.failingRead = 1;
            script_.readCount = taken;
            script_.readError = error;
            const Outcome outcome = read(file_);
            EXPECT_FALSE(outcome.failed);
            ASSERT_EQ(outcome.chunks.size(), 3U);
            EXPECT_EQ(outcome.chunks[0], content_.substr(0, taken) + lost(65536 - taken));
            EXPECT_EQ(outcome.chunks[1], content_.substr(taken, 65536));
        }
    }
}

TEST_F(ScriptedFiles, AShortReadOfAnOnlyChunkIsFilledUpToTheFilesSize) {
    scratch_.write("file", content_.substr(0, 1000));
    script_.failingRead = 1;
    script_.readCount = 999;
    const Outcome outcome = read(file_);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.chunks, std::vector<std::string>{content_.substr(0, 999) + lost(1)});
}

TEST_F(ScriptedFiles, AShortLaterReadKeepsTheBytesOfTheChunkBefore) {
    script_.failingRead = 2;
    script_.readCount = 1;
    const Outcome outcome = read(file_);
    EXPECT_FALSE(outcome.failed);
    ASSERT_EQ(outcome.chunks.size(), 3U);
    EXPECT_EQ(outcome.chunks[1], content_.substr(65536, 1) + content_.substr(1, 65535));
}

TEST_F(ScriptedFiles, AShortReadAfterAShortReadKeepsWhatWasFedBefore) {
    script_.failingRead = 1;
    script_.readCount = 10;
    script_.laterReadsFail = true;
    const Outcome outcome = read(file_);
    EXPECT_FALSE(outcome.failed);
    ASSERT_EQ(outcome.chunks.size(), 3U);
    EXPECT_EQ(outcome.chunks[1], content_.substr(10, 10) + lost(65536 - 10));
    EXPECT_EQ(outcome.chunks[2], content_.substr(20, 10) + lost(1000 - 10));
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

TEST_F(ScriptedFiles, AFileThatShrinksBeforeItsOnlyReadIsFedWithItsFirstSize) {
    scratch_.write("file", content_.substr(0, 1000));
    script_.atSeekBack = [&] { ASSERT_EQ(truncate(file_.c_str(), 100), 0); };
    const Outcome outcome = read(file_);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.chunks, std::vector<std::string>{content_.substr(0, 100) + lost(900)});
}

TEST_F(ScriptedFiles, AFileThatShrinksBeforeTheFirstOfItsReadsIsAReadErrorAtTheNext) {
    script_.atSeekBack = [&] { ASSERT_EQ(truncate(file_.c_str(), 100), 0); };
    expectReadError(0, 1);
    EXPECT_EQ(script_.reads, 2);
}

// Zeros are the likeliest end of a real file.
TEST_F(ScriptedFiles, AFileWhoseZerosCannotBeReadIsChanged) {
    scratch_.write("file", "abc" + std::string(97, '\0'));
    script_.failingRead = 1;
    script_.readCount = 3;
    script_.readError = EIO;
    EXPECT_EQ(check("#MD5:" + kMd5OfAbcAndZeros), -1);
}

// Nothing tells such files from whole ones.
TEST_F(ScriptedFiles, Compatibility_AFileWhoseLostBytesAreThoseOfTheBufferIsUnchanged) {
    scratch_.write("file", "abc" + lost(97));
    script_.failingRead = 1;
    script_.readCount = 3;
    EXPECT_EQ(check("#MD5:" + kMd5OfAbcAndA5), 0);

    scratch_.write("file", std::string(2 * 65536, 'x'));
    script_.failingRead = 4; // the second of this file
    EXPECT_EQ(check("#MD5:" + kMd5OfTwoChunksOfX), 0);
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

TEST_F(ScriptedFiles, AListThatCannotBeReadIsEmpty) {
    const std::string list = scratch_.write("list", file_ + "=" + std::string(64, '0') + "\n");
    const auto failing = [&](const auto& call) {
        script_ = {};
        script_.failingSystemRead = 1;
        script = &script_;
        call();
        script = nullptr;
        EXPECT_EQ(script_.systemReads, 1);
    };
    std::list<std::string> names;
    failing([&] { HashFileChecker::LoadFileList(list.c_str(), names); });
    EXPECT_EQ(names.size(), 0U);

    std::list<HashFileChecker::FileHashPair> records;
    failing([&] { HashFileChecker::LoadHashList(list.c_str(), records); });
    EXPECT_EQ(records.size(), 0U);

    std::ostringstream out;
    Statistics counters{};
    failing([&] { EXPECT_EQ(CheckFiles(list.c_str(), out, &counters), 0); });
    EXPECT_EQ(counters.checked, 0U);

    failing([&] {
        try {
            HashFileChecker::ProcessFiles(list.c_str(), true, out);
            ADD_FAILURE() << "did not throw";
        } catch (const FileIOException& problem) {
            EXPECT_STREQ(problem.what(), "No files to process");
        }
    });
    EXPECT_EQ(out.str(), "");
}

// What the headers tell callers to do who have to know.
TEST_F(ScriptedFiles, AListThatCannotBeReadShowsInAReadOfTheCallers) {
    const std::string list = scratch_.write("list", "a=1\n");
    script_.failingSystemRead = 1;
    script = &script_;
    std::ifstream in(list);
    in.ignore(std::numeric_limits<std::streamsize>::max());
    script = nullptr;
    EXPECT_TRUE(in.bad());
}

} // namespace
