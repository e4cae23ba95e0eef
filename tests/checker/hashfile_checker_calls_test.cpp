// The checker when fopen, fread, lseek, read, fclose and malloc follow a script.

#include "checker/hashfile_checker.h"
#include "tests/support/bytes.h"
#include "tests/support/fault_injection.h"
#include "tests/support/scratch.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
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

namespace calls = support::calls;
using support::Replacement;

// What the replaced functions do.
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

// While it lives, calls follow the script.
class Running {
public:
    explicit Running(Script& script) : script_(script) {}

private:
    void disturbErrno() {
        if (script_.errorAfterEveryCall != 0)
            errno = script_.errorAfterEveryCall;
    }

    std::FILE* open(const char* path, const char* mode) {
        script_.modes.emplace_back(mode);
        std::FILE* const file = calls::fopen.original(path, mode);
        script_.opened += file != nullptr ? 1 : 0;
        return file;
    }

    int close(std::FILE* file) {
        --script_.opened;
        const int result = calls::fclose.original(file);
        disturbErrno();
        return result;
    }

    std::size_t readItems(void* buffer, std::size_t size, std::size_t count, std::FILE* file) {
        script_.itemSizes.push_back(size);
        const int call = ++script_.reads;
        if (call != script_.failingRead && !(script_.laterReadsFail && call > script_.failingRead))
            return calls::fread.original(buffer, size, count, file);
        const std::size_t taken =
            calls::fread.original(buffer, size, std::min(count, script_.readCount), file);
        if (script_.readError != 0)
            errno = script_.readError;
        return taken;
    }

    off_t seek(int descriptor, off_t offset, int origin) {
        if (++script_.seeks == script_.failingSeek) {
            errno = script_.seekError;
            return -1;
        }
        if (script_.seeks == 2)
            script_.atSeekBack();
        return calls::lseek.original(descriptor, offset, origin);
    }

    ssize_t readBytes(int descriptor, void* buffer, std::size_t size) {
        if (++script_.systemReads == script_.failingSystemRead) {
            errno = EIO;
            return -1;
        }
        return calls::read.original(descriptor, buffer, size);
    }

    int access(const char* path, int mode) {
        ++script_.questions;
        return calls::access.original(path, mode);
    }

    int stat(const char* path, struct stat* out) {
        ++script_.questions;
        return calls::stat.original(path, out);
    }

    void* allocate(std::size_t size) {
        void* const block = calls::malloc.original(size);
        disturbErrno();
        return block;
    }

    Script& script_;
    const Replacement<decltype(calls::fopen)> fopen_{
        calls::fopen, [this](auto... arguments) { return open(arguments...); }};
    const Replacement<decltype(calls::fclose)> fclose_{
        calls::fclose, [this](auto... arguments) { return close(arguments...); }};
    const Replacement<decltype(calls::fread)> fread_{
        calls::fread, [this](auto... arguments) { return readItems(arguments...); }};
    const Replacement<decltype(calls::lseek)> lseek_{
        calls::lseek, [this](auto... arguments) { return seek(arguments...); }};
    const Replacement<decltype(calls::read)> read_{
        calls::read, [this](auto... arguments) { return readBytes(arguments...); }};
    const Replacement<decltype(calls::access)> access_{
        calls::access, [this](auto... arguments) { return access(arguments...); }};
    const Replacement<decltype(calls::stat)> stat_{
        calls::stat, [this](auto... arguments) { return stat(arguments...); }};
    const Replacement<decltype(calls::malloc)> malloc_{
        calls::malloc, [this](auto... arguments) { return allocate(arguments...); }};
};

} // namespace

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
    Outcome read(const std::string& path) {
        RecordingCalc calc;
        Outcome outcome;
        errno = ENOENT; // an older error, which must not be taken for one of these
        try {
            const Running running(script_);
            GetFileHash(path.c_str(), calc);
        } catch (const FileIOException& problem) {
            outcome = {{}, true, problem.error, problem.fileName, problem.what()};
        }
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
        const Running running(script_);
        return CheckFiles({{file_, digest, ""}}, out, nullptr, false);
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
    {
        const Running running(script_);
        EXPECT_THROW(GetFileHash(file_.c_str(), calc), std::bad_alloc);
    }
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
        try {
            {
                const Running running(script_);
                load();
            }
            ADD_FAILURE() << "did not throw";
        } catch (const FileIOException& problem) {
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
        try {
            {
                const Running running(script_);
                CheckFiles({{file_, digits, ""}}, out, &counters, false);
            }
            ADD_FAILURE() << "did not throw";
        } catch (const FileIOException& problem) {
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
    {
        const Running running(script_);
        EXPECT_EQ(CheckFiles({{file_, std::string(64, '0'), ""}}, out, nullptr, false), 0);
    }
    EXPECT_EQ(out.str(), "Warning: File access denied: " + file_ + ".\n");
}

TEST_F(ScriptedFiles, CalcHashLeavesTheResultOnAReadError) {
    script_.failingRead = 2;
    script_.readError = EIO;
    std::string result = "before";
    {
        const Running running(script_);
        EXPECT_FALSE(HashFileChecker::CalcHash(file_, "#MD5:", result));
    }
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
    {
        const Running running(script_);
        HashFileChecker::LoadFileList(list.c_str(), names);
    }
    EXPECT_GT(names.size(), 0U);
    EXPECT_LT(names.size(), 10000U);
    EXPECT_EQ(names.front(), "0=x");

    std::list<HashFileChecker::FileHashPair> records;
    script_.systemReads = 0;
    {
        const Running running(script_);
        HashFileChecker::LoadHashList(list.c_str(), records);
    }
    EXPECT_EQ(records.size(), names.size());
}

TEST_F(ScriptedFiles, AListThatCannotBeReadIsEmpty) {
    const std::string list = scratch_.write("list", file_ + "=" + std::string(64, '0') + "\n");
    const auto failing = [&](const auto& call) {
        script_ = {};
        script_.failingSystemRead = 1;
        {
            const Running running(script_);
            call();
        }
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
    std::ifstream in(list);
    {
        const Running running(script_);
        in.ignore(std::numeric_limits<std::streamsize>::max());
    }
    EXPECT_TRUE(in.bad());
}

} // namespace
