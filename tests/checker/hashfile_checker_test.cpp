#include "checker/hashfile_checker.h"
#include "tests/support/bytes.h"
#include "tests/support/fault_injection.h"
#include "tests/support/leak_check.h"
#include "tests/support/peer_digest.h"
#include "tests/support/scratch.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <list>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <typeinfo>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using HashFileChecker::CalcHash;
using HashFileChecker::CheckFiles;
using HashFileChecker::FileHashPair;
using HashFileChecker::FileIOException;
using HashFileChecker::GetFileHash;
using HashFileChecker::HashPair;
using HashFileChecker::LoadFileList;
using HashFileChecker::LoadHashList;
using HashFileChecker::PrintHashes;
using HashFileChecker::ProcessFiles;
using HashFileChecker::Statistics;
using support::pattern;
using support::Peer;
using support::peerDigest;
using support::upperCase;

using Names = std::list<std::string>;
using Records = std::list<FileHashPair>;
using Divided = std::vector<std::pair<std::string, std::string>>;

const std::string kGost2012Prefix = "#GOST3411_256_2012:";

std::string gost2012(const std::string& content) {
    return peerDigest(Peer::Gost2012Bits256, content);
}

// Expects that `action` throws exactly this exception.
void expectFailure(const std::function<void()>& action, int error, const std::string& fileName,
                   const std::string& message) {
    try {
        action();
        ADD_FAILURE() << "did not throw: " << message;
    } catch (const FileIOException& problem) {
        EXPECT_EQ(problem.error, error) << message;
        EXPECT_EQ(problem.fileName, fileName);
        EXPECT_EQ(problem.message, message);
        EXPECT_STREQ(problem.what(), message.c_str());
    }
}

class Checker : public testing::Test {
protected:
    const support::ScratchDirectory scratch_;
};

// FileIOException

TEST(FileIOExceptionClass, HoldsErrorNumberFileAndMessage) {
    const FileIOException problem(13, "file", "text");
    EXPECT_EQ(problem.error, 13);
    EXPECT_EQ(problem.fileName, "file");
    EXPECT_EQ(problem.message, "text");
    EXPECT_STREQ(problem.what(), "text");
}

TEST(FileIOExceptionClass, IsCaughtAsItselfAndAsAStandardException) {
    const FileIOException original(2, "file", "text");
    try {
        throw original;
    } catch (const std::exception& problem) {
        EXPECT_STREQ(problem.what(), "text");
        EXPECT_EQ(typeid(problem), typeid(FileIOException));
    }
    try {
        throw original;
    } catch (FileIOException& problem) { // of a copy that the throw has made
        EXPECT_EQ(problem.error, 2);
        EXPECT_EQ(problem.fileName, "file");
        problem.message = "changed";
    }
    EXPECT_EQ(original.message, "text");
}

TEST(FileIOExceptionClass, IsCopiedAndAssigned) {
    FileIOException one(2, "one", "first");
    const FileIOException copy = one;
    one = FileIOException(13, "two", "second");
    EXPECT_EQ(copy.error, 2);
    EXPECT_EQ(copy.fileName, "one");
    EXPECT_STREQ(copy.what(), "first");
    EXPECT_EQ(one.error, 13);
    EXPECT_EQ(one.fileName, "two");
    EXPECT_STREQ(one.what(), "second");
}

template<class Object, class Field>
std::ptrdiff_t offsetIn(const Object& object, const Field& field) {
    return reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&object);
}

TEST(CheckerRecords, KeepTheirFieldsInOrder) {
    const FileIOException problem(0, "", "");
    static_assert(std::is_same<decltype(problem.error), std::int32_t>::value);
    EXPECT_EQ(offsetIn(problem, problem.error), 8);
    EXPECT_EQ(offsetIn(problem, problem.fileName), 16);
    EXPECT_EQ(offsetIn(problem, problem.message), 48);
    EXPECT_EQ(sizeof problem, 80U);

    const HashPair written;
    EXPECT_EQ(offsetIn(written, written.name), 0);
    EXPECT_EQ(offsetIn(written, written.hash), 32);
    EXPECT_EQ(sizeof written, 64U);

    const FileHashPair read;
    EXPECT_EQ(offsetIn(read, read.name), 0);
    EXPECT_EQ(offsetIn(read, read.hash), 32);
    EXPECT_EQ(offsetIn(read, read.extra), 64);
    EXPECT_EQ(sizeof read, 96U);

    const Statistics counters{1, 2, 3, 4};
    std::uint32_t fields[4];
    static_assert(sizeof counters == sizeof fields);
    std::memcpy(fields, &counters, sizeof fields);
    EXPECT_EQ(counters.checked, fields[0]);
    EXPECT_EQ(counters.failed, fields[1]);
    EXPECT_EQ(counters.notFound, fields[2]);
    EXPECT_EQ(counters.accessDenied, fields[3]);
}

// LoadFileList

class FileList : public Checker {
protected:
    Names load(const std::string& content) const {
        Names names;
        LoadFileList(scratch_.write("list", content).c_str(), names);
        return names;
    }
};

TEST_F(FileList, KeepsEveryLineVerbatimButEmptyOnes) {
    EXPECT_EQ(load("a\n\n\n b \t\r\n#c\n;d\n[e]\n\"f\"\nname=path=more\n\xff\x01\n"),
              (Names{"a", " b \t\r", "#c", ";d", "[e]", "\"f\"", "name=path=more", "\xff\x01"}));
    EXPECT_EQ(load("\r\n"), Names{"\r"});
}

TEST_F(FileList, TakesTheLastLineWithoutLineFeed) {
    EXPECT_EQ(load("a\nb"), (Names{"a", "b"}));
    EXPECT_EQ(load("a\nb\n"), (Names{"a", "b"}));
    EXPECT_EQ(load("a"), Names{"a"});
}

TEST_F(FileList, OfEmptyLinesOrNothingIsEmpty) {
    EXPECT_EQ(load(""), Names());
    EXPECT_EQ(load("\n"), Names());
    EXPECT_EQ(load("\n\n\n"), Names());
}

TEST_F(FileList, AppendsToWhatIsThere) {
    Names names{"before"};
    LoadFileList(scratch_.write("list", "a\n").c_str(), names);
    EXPECT_EQ(names, (Names{"before", "a"}));
}

TEST_F(FileList, Deliberate_EndsWithoutAnErrorAtALineOfMoreThan8192Characters) {
    for (const std::size_t length : {4129U, 8191U, 8192U}) {
        const std::string line(length, 'x');
        EXPECT_EQ(load("a\n" + line + "\nb\n"), (Names{"a", line, "b"})) << length;
        EXPECT_EQ(load("a\n" + line + "\n"), (Names{"a", line})) << length;
        EXPECT_EQ(load("a\n" + line), (Names{"a", line})) << length;
    }
    for (const std::size_t length : {8193U, 8194U, 16384U, 100000U}) {
        const std::string line(length, 'x');
        EXPECT_EQ(load("a\n" + line + "\nb\n"), Names{"a"}) << length;
        EXPECT_EQ(load("a\n" + line + "\n"), Names{"a"}) << length;
        EXPECT_EQ(load("a\n" + line), Names{"a"}) << length;
    }
}

TEST_F(FileList, ThatIsADirectoryIsEmpty) {
    Names names;
    LoadFileList(scratch_.path().c_str(), names);
    EXPECT_EQ(names, Names());
}

TEST_F(FileList, ThatCannotBeOpenedIsAnError) {
    const std::string missing = scratch_.path("missing");
    const std::string denied = scratch_.write("denied", "a\n");
    chmod(denied.c_str(), 0);
    Names names;
    const char* const message = "Can`t open File List file for reading.";
    expectFailure([&] { LoadFileList(missing.c_str(), names); }, ENOENT, missing, message);
    expectFailure([&] { LoadFileList("", names); }, ENOENT, "", message);
    expectFailure([&] { LoadFileList(nullptr, names); }, ENOENT, "", message);
    const support::OrdinaryUser user;
    expectFailure([&] { LoadFileList(denied.c_str(), names); }, EACCES, denied, message);
}

// LoadHashList

class HashList : public Checker {
protected:
    Divided load(const std::string& content) const {
        Records records;
        LoadHashList(scratch_.write("list", content).c_str(), records);
        return divided(records);
    }

    static Divided divided(const Records& records) {
        Divided result;
        for (const FileHashPair& record : records) {
            result.emplace_back(record.name, record.hash);
            EXPECT_EQ(record.extra, "");
        }
        return result;
    }
};

TEST_F(HashList, DividesEachLineAtItsFirstEqualsSign) {
    EXPECT_EQ(load("a=b=c\n"), (Divided{{"a", "b=c"}}));
    EXPECT_EQ(load("a==\n=b\n=\nc="), (Divided{{"a", "="}, {"", "b"}, {"", ""}, {"c", ""}}));
}

TEST_F(HashList, TrimsNothing) {
    EXPECT_EQ(load(" a = b \r\n"), (Divided{{" a ", " b \r"}}));
    EXPECT_EQ(load("\t=\t"), (Divided{{"\t", "\t"}}));
}

TEST_F(HashList, SkipsEmptyLinesAndSections) {
    const std::string digits(32, '0');
    EXPECT_EQ(load("[head]\nconf=#MD5:" + digits + "\n"), (Divided{{"conf", "#MD5:" + digits}}));
    EXPECT_EQ(load("\n\n[a=b\n[\n\nx=y\n\n"), (Divided{{"x", "y"}}));
    EXPECT_EQ(load(" [a]=b"), (Divided{{" [a]", "b"}}));
    EXPECT_EQ(load("[only]"), Divided());
    EXPECT_EQ(load(""), Divided());
}

TEST_F(HashList, KnowsNoComments) {
    EXPECT_EQ(load(";a=b\n#c=d\n"), (Divided{{";a", "b"}, {"#c", "d"}}));
    EXPECT_THROW(load("; a comment\n"), FileIOException);
    EXPECT_THROW(load("# a comment\n"), FileIOException);
}

TEST_F(HashList, KeepsTheRecordsBeforeALineWithoutEqualsSign) {
    for (const std::string line : {"b", " ", "\r", "a [b]"}) {
        const std::string path = scratch_.write("list", "a=1\nb=2\n" + line + "\nc=3\n");
        Records records;
        errno = EXDEV; // which no call here gives
        try {
            LoadHashList(path.c_str(), records);
            ADD_FAILURE() << "did not throw";
        } catch (const FileIOException& problem) {
            EXPECT_EQ(problem.error, EXDEV);
            EXPECT_STREQ(problem.what(), "HashList format error");
            EXPECT_EQ(problem.fileName, path);
        }
        EXPECT_EQ(divided(records), (Divided{{"a", "1"}, {"b", "2"}}));
    }
}

TEST_F(HashList, AppendsToWhatIsThere) {
    Records records{{"before", "0", ""}};
    LoadHashList(scratch_.write("list", "a=1").c_str(), records);
    EXPECT_EQ(divided(records), (Divided{{"before", "0"}, {"a", "1"}}));
}

TEST_F(HashList, KeepsTheRecordsBeforeTheOneThatThereIsNoMemoryFor) {
    const std::string text(40, 'x'); // takes memory of its own
    const std::string path = scratch_.write("list", "a=" + text + "\nb=" + text + "\n");
    const Divided all = {{"before", "0"}, {"a", text}, {"b", text}};
    std::set<std::size_t> counts;
    for (long before = 0; before < 100; ++before) {
        Records records{{"before", "0", ""}};
        try {
            const support::FailingCall failing(support::CallKind::kMemory, before + 1);
            LoadHashList(path.c_str(), records);
        } catch (const std::bad_alloc&) {
            counts.insert(records.size());
        } catch (const FileIOException&) { // there was no memory for the stream
        }
        const auto end = all.begin() + static_cast<std::ptrdiff_t>(records.size());
        EXPECT_EQ(divided(records), Divided(all.begin(), end));
    }
    EXPECT_EQ(counts, (std::set<std::size_t>{1, 2}));
}

TEST_F(HashList, Deliberate_EndsWithoutAnErrorAtALineOfMoreThan4128Characters) {
    for (const std::size_t length : {4127U, 4128U}) {
        const std::string text(length - 2, 'x');
        EXPECT_EQ(load("a=1\nb=" + text + "\nc=3\n"),
                  (Divided{{"a", "1"}, {"b", text}, {"c", "3"}}));
        EXPECT_EQ(load("a=1\nb=" + text), (Divided{{"a", "1"}, {"b", text}}));
    }
    for (const std::size_t length : {4129U, 4130U, 8192U, 100000U}) {
        const std::string text(length - 2, 'x');
        EXPECT_EQ(load("a=1\nb=" + text + "\nc=3\n"), (Divided{{"a", "1"}})) << length;
        EXPECT_EQ(load("a=1\nb=" + text), (Divided{{"a", "1"}})) << length;
        EXPECT_EQ(load("a=1\n[]" + text + "\nc=3\n"), (Divided{{"a", "1"}})) << length;
        EXPECT_EQ(load("a=1\n--" + text + "\nc=3\n"), (Divided{{"a", "1"}})) << length;
    }
}

TEST_F(HashList, ThatIsADirectoryIsEmpty) {
    Records records;
    LoadHashList(scratch_.path().c_str(), records);
    EXPECT_EQ(records.size(), 0U);
}

TEST_F(HashList, ThatCannotBeOpenedIsAnError) {
    const std::string missing = scratch_.path("missing");
    const std::string denied = scratch_.write("denied", "a=1\n");
    chmod(denied.c_str(), 0);
    Records records;
    const char* const message = "Can`t open HashList file for reading.";
    expectFailure([&] { LoadHashList(missing.c_str(), records); }, ENOENT, missing, message);
    expectFailure([&] { LoadHashList(nullptr, records); }, ENOENT, "", message);
    const support::OrdinaryUser user;
    expectFailure([&] { LoadHashList(denied.c_str(), records); }, EACCES, denied, message);
}

// PrintHashes

std::string printed(const std::list<HashPair>& pairs) {
    std::ostringstream out;
    PrintHashes(pairs, out);
    return out.str();
}

TEST(PrintHashes, WritesALineARecord) {
    EXPECT_EQ(printed({{"a", "1"}, {"b c", "#MD5:2"}}), "a=1\nb c=#MD5:2\n");
    EXPECT_EQ(printed({{"", ""}}), "=\n");
    EXPECT_EQ(printed({}), "");
}

TEST(PrintHashes, CutsTheNameAtItsFirstEqualsSign) {
    EXPECT_EQ(printed({{"sys=/etc/sys.conf", "1"}, {"a=b=c", "2=3"}, {"=x", "4"}}),
              "sys=1\na=2=3\n=4\n");
}

// The name is copied as text, which ends at a zero byte.
TEST(PrintHashes, CutsTheNameAtItsFirstZeroByte) {
    EXPECT_EQ(printed({{std::string("a\0=b", 4), "1"}}), "a=1\n");
    EXPECT_EQ(printed({{"a" + std::string(9000, '\0'), "1"}}), "a=1\n");
}

TEST(PrintHashes, WritesANameOf8193Characters) {
    const std::string name(8193, 'n');
    EXPECT_EQ(printed({{name, "1"}}), name + "=1\n");
    const std::string entry = "a=" + std::string(8191, 'n');
    EXPECT_EQ(printed({{entry, "1"}}), "a=1\n");
}

// Counts how often it is flushed.
class FlushCounter : public std::stringbuf {
public:
    int flushes = 0;

private:
    int sync() override {
        ++flushes;
        return 0;
    }
};

TEST(PrintHashes, FlushesEachLine) {
    FlushCounter buffer;
    std::ostream out(&buffer);
    PrintHashes({{"a", "1"}, {"b", "2"}, {"c", "3"}}, out);
    EXPECT_EQ(buffer.flushes, 3);
}

using PrintHashesDeathTest = Checker;

TEST_F(PrintHashesDeathTest, Deliberate_ANameThatIsTooLongEndsTheProcessAfterTheLinesBeforeIt) {
    support::allowLeaks(); // what GoogleTest keeps of a death test
    const std::string path = scratch_.path("out");
    for (const std::string& name :
         {std::string(8194, 'n'), "a=" + std::string(8192, 'n'), std::string(1000000, 'n')}) {
        EXPECT_EXIT(
            {
                std::ofstream out(path);
                PrintHashes({{"first", "1"}, {"second", "2"}, {name, "3"}, {"last", "4"}}, out);
            },
            testing::KilledBySignal(SIGABRT), "^$");
        EXPECT_EQ(support::contentOf(path), "first=1\nsecond=2\n");
    }
}

// GetFileHash

// Keeps what it is fed, and may do something at each piece.
class RecordingCalc : public IHash_Calc {
public:
    std::vector<std::string> chunks;
    std::function<void()> atEachChunk = [] {};

    void Update(const void* data, std::size_t length) override {
        chunks.emplace_back(static_cast<const char*>(data), length);
        atEachChunk();
    }

    std::vector<std::size_t> sizes() const {
        std::vector<std::size_t> result;
        for (const std::string& chunk : chunks)
            result.push_back(chunk.size());
        return result;
    }

    std::string all() const {
        std::string result;
        for (const std::string& chunk : chunks)
            result += chunk;
        return result;
    }
};

using GetFileHashTest = Checker;
using Sizes = std::vector<std::size_t>;

TEST_F(GetFileHashTest, FeedsTheFileInChunksOf65536Bytes) {
    const struct {
        std::size_t size;
        Sizes chunks;
    } cases[] = {{0, {}},
                 {1, {1}},
                 {31, {31}},
                 {4096, {4096}},
                 {65535, {65535}},
                 {65536, {65536}},
                 {65537, {65536, 1}},
                 {131071, {65536, 65535}},
                 {131072, {65536, 65536}},
                 {131073, {65536, 65536, 1}},
                 {200000, {65536, 65536, 65536, 3392}}};
    for (const auto& c : cases) {
        const std::string content = pattern(c.size);
        RecordingCalc calc;
        GetFileHash(scratch_.write("file", content).c_str(), calc);
        EXPECT_EQ(calc.sizes(), c.chunks) << c.size;
        EXPECT_EQ(calc.all(), content) << c.size;
    }
}

TEST_F(GetFileHashTest, ReadsBytesOfEveryValue) {
    const std::string content("\r\n\x1a\0\xff\n\r", 7);
    RecordingCalc calc;
    GetFileHash(scratch_.write("file", content).c_str(), calc);
    EXPECT_EQ(calc.all(), content);
}

TEST_F(GetFileHashTest, GivesTheStandardsDigestOfEachAlgorithm) {
    const std::pair<const char*, Peer> algorithms[] = {
        {"#MD5:", Peer::Md5},
        {"#GOST3411_RFC4357:", Peer::Gost94},
        {"#GOST3411_256_2012:", Peer::Gost2012Bits256}};
    for (const auto& [prefix, peer] : algorithms) {
        for (const std::size_t size : {0U, 1U, 65535U, 65536U, 65537U, 131072U, 131073U}) {
            const std::string content = pattern(size);
            const std::unique_ptr<IHashFactory> factory(createHashFactory(prefix));
            const std::unique_ptr<IHash_Calc> calc(factory->createHashCalc());
            GetFileHash(scratch_.write("file", content).c_str(), *calc);
            const std::unique_ptr<IHash> digest(factory->createHash(*calc, true));
            EXPECT_EQ(digest->ToStr(false, false), peerDigest(peer, content)) << prefix << size;
        }
    }
}

TEST_F(GetFileHashTest, IgnoresWhatTheFileGrowsBy) {
    const std::string path = scratch_.write("file", pattern(65536 + 10));
    RecordingCalc calc;
    calc.atEachChunk = [&] { std::ofstream(path, std::ios::app) << pattern(1000); };
    GetFileHash(path.c_str(), calc);
    EXPECT_EQ(calc.all(), pattern(65536 + 10));
}

TEST_F(GetFileHashTest, Deliberate_FeedsTheFullChunkOfAFileThatShrinks) {
    const std::string content = pattern(65536 + 40000);
    const std::string path = scratch_.write("file", content);
    RecordingCalc calc;
    calc.atEachChunk = [&] { ASSERT_EQ(truncate(path.c_str(), 65536 + 100), 0); };
    GetFileHash(path.c_str(), calc);
    EXPECT_EQ(calc.sizes(), (Sizes{65536, 40000}));
    // What the chunk before left behind stands where nothing was read.
    EXPECT_EQ(calc.chunks[1], content.substr(65536, 100) + content.substr(100, 40000 - 100));
}

TEST_F(GetFileHashTest, FailsWithoutAnErrorNumberWhenTheFileEndedEarly) {
    const std::string path = scratch_.write("file", pattern(131072 + 5));
    for (const off_t left : {off_t{65536}, off_t{1}, off_t{0}}) {
        ASSERT_EQ(truncate(path.c_str(), 131072 + 5), 0);
        RecordingCalc calc;
        calc.atEachChunk = [&] { ASSERT_EQ(truncate(path.c_str(), left), 0); };
        errno = ENOENT; // an older error, which must not be taken for this one
        expectFailure([&] { GetFileHash(path.c_str(), calc); }, 0, path, "File read error");
        EXPECT_EQ(calc.sizes(), Sizes{65536});
    }
}

TEST_F(GetFileHashTest, FailsOnAFileThatCannotBeOpened) {
    const std::string missing = scratch_.path("missing");
    const std::string below = scratch_.write("file", "x") + "/below";
    const std::string denied = scratch_.write("denied", "x");
    chmod(denied.c_str(), 0);
    RecordingCalc calc;
    const char* const message = "Can`t open File for reading.";
    expectFailure([&] { GetFileHash(missing.c_str(), calc); }, ENOENT, missing, message);
    expectFailure([&] { GetFileHash(below.c_str(), calc); }, ENOTDIR, below, message);
    expectFailure([&] { GetFileHash("", calc); }, ENOENT, "", message);
    expectFailure([&] { GetFileHash(nullptr, calc); }, ENOENT, "", message);
    const support::OrdinaryUser user;
    expectFailure([&] { GetFileHash(denied.c_str(), calc); }, EACCES, denied, message);
    EXPECT_EQ(calc.chunks.size(), 0U);
}

TEST_F(GetFileHashTest, FailsOnADirectory) {
    RecordingCalc calc;
    try {
        GetFileHash(scratch_.path().c_str(), calc);
        ADD_FAILURE() << "did not throw";
    } catch (const FileIOException& problem) {
        EXPECT_STREQ(problem.what(), "File read error");
        // Some file systems refuse already to tell the end of a directory.
        EXPECT_TRUE(problem.error == EISDIR || problem.error == EINVAL) << problem.error;
        EXPECT_EQ(problem.fileName, scratch_.path());
    }
}

TEST_F(GetFileHashTest, FailsOnAPipeWithTheErrorOfTheSeek) {
    const std::string path = scratch_.path("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int writer = open(path.c_str(), O_RDWR); // opening a pipe waits for its other end
    ASSERT_GE(writer, 0);
    RecordingCalc calc;
    expectFailure([&] { GetFileHash(path.c_str(), calc); }, ESPIPE, path, "File read error");
    close(writer);
}

// The program's own count of descriptors tells when the file stays open.
TEST_F(GetFileHashTest, ClosesTheFileWhenTheCalculatorThrows) {
    const std::string path = scratch_.write("file", pattern(70000));
    RecordingCalc calc;
    calc.atEachChunk = [] { throw std::runtime_error("full"); };
    EXPECT_THROW(GetFileHash(path.c_str(), calc), std::runtime_error);
    EXPECT_EQ(calc.chunks.size(), 1U);
}

// CalcHash

using CalcHashTest = Checker;

TEST_F(CalcHashTest, GivesThePrefixAndUpperCaseDigits) {
    const std::string path = scratch_.write("file", "abc");
    const std::pair<const char*, std::string> cases[] = {
        {"#MD5:", "#MD5:" + upperCase(peerDigest(Peer::Md5, "abc"))},
        {"$MD5:whatever", "#MD5:" + upperCase(peerDigest(Peer::Md5, "abc"))},
        {"#GOST3411_RFC4357:", "#GOST3411_RFC4357:" + upperCase(peerDigest(Peer::Gost94, "abc"))},
        {"$GOST3411_256_2012:", kGost2012Prefix + upperCase(gost2012("abc"))}};
    for (const auto& [algorithm, expected] : cases) {
        std::string result = "before";
        EXPECT_TRUE(CalcHash(path, algorithm, result)) << algorithm;
        EXPECT_EQ(result, expected);
    }
    std::string result;
    EXPECT_TRUE(CalcHash(path, std::string(32, '?'), result));
    EXPECT_EQ(result, "#MD5:" + upperCase(peerDigest(Peer::Md5, "abc")));
}

TEST_F(CalcHashTest, FallsBackToGost2012ForAnUnknownAlgorithm) {
    const std::string path = scratch_.write("file", "");
    for (const std::string algorithm : {"", "MD5", "#SHA256:", "#", "$md5:"}) {
        std::string result;
        EXPECT_TRUE(CalcHash(path, algorithm, result)) << algorithm;
        EXPECT_EQ(result, kGost2012Prefix + upperCase(gost2012("")));
    }
}

TEST_F(CalcHashTest, LeavesTheResultWhenTheFileCannotBeRead) {
    const std::string denied = scratch_.write("denied", "x");
    chmod(denied.c_str(), 0);
    const support::OrdinaryUser user;
    for (const std::string& path :
         {scratch_.path("missing"), scratch_.path(), denied, std::string()}) {
        std::string result = "before";
        EXPECT_FALSE(CalcHash(path, "#MD5:", result)) << path;
        EXPECT_EQ(result, "before");
    }
}

// ProcessFiles

class ProcessFilesTest : public Checker {
protected:
    std::string listOf(const std::string& path) const {
        std::ostringstream out;
        ProcessFiles(path.c_str(), false, out);
        return out.str();
    }

    std::string listOfFileList(const std::string& content) const {
        std::ostringstream out;
        ProcessFiles(scratch_.write("list", content).c_str(), true, out);
        return out.str();
    }

    static std::string line(const std::string& name, const std::string& content) {
        return name + "=" + kGost2012Prefix + gost2012(content) + "\n";
    }

    const support::CurrentDirectory current_{scratch_.path()};
};

TEST_F(ProcessFilesTest, ListsOneFile) {
    scratch_.write("a.conf", "abc");
    scratch_.write("empty", "");
    EXPECT_EQ(listOf("a.conf"), line("a.conf", "abc"));
    EXPECT_EQ(listOf("empty"), line("empty", ""));
}

TEST_F(ProcessFilesTest, Deliberate_ReadsAnEntryWithoutEqualsSignByItsLastComponent) {
    scratch_.write("a.conf", "here");
    scratch_.write("dir/a.conf", "there");
    EXPECT_EQ(listOf("dir/a.conf"), line("dir/a.conf", "here"));
    EXPECT_EQ(listOf("/no/such/path//a.conf"), line("/no/such/path//a.conf", "here"));
    EXPECT_EQ(listOfFileList("dir/a.conf\na.conf\n"),
              line("dir/a.conf", "here") + line("a.conf", "here"));
}

TEST_F(ProcessFilesTest, ReadsAnEntryWithEqualsSignByThePathBehindTheFirst) {
    const std::string path = scratch_.write("dir/x.conf", "there");
    scratch_.write("y=z", "equals");
    EXPECT_EQ(listOf("cfg=" + path), line("cfg", "there"));
    EXPECT_EQ(listOf("cfg=dir/x.conf"), line("cfg", "there"));
    EXPECT_EQ(listOf("etc/cfg=y=z"), line("etc/cfg", "equals"));
    EXPECT_EQ(listOf("=dir/x.conf"), line("", "there"));
    EXPECT_EQ(listOfFileList("cfg=dir/x.conf\n"), line("cfg", "there"));
}

TEST_F(ProcessFilesTest, KeepsTheOrderOfTheList) {
    scratch_.write("b", "1");
    scratch_.write("a", "2");
    EXPECT_EQ(listOfFileList("b\na\n\nb"), line("b", "1") + line("a", "2") + line("b", "1"));
}

TEST_F(ProcessFilesTest, WritesNothingUnlessEveryFileCouldBeRead) {
    scratch_.write("a", "1");
    const std::string list = scratch_.write("list", "a\nmissing\na\n");
    std::ostringstream out;
    expectFailure([&] { ProcessFiles(list.c_str(), true, out); }, ENOENT, "missing",
                  "Can`t open File for reading.");
    expectFailure([&] { ProcessFiles("a=", false, out); }, ENOENT, "",
                  "Can`t open File for reading.");
    expectFailure([&] { ProcessFiles("a/", false, out); }, ENOENT, "",
                  "Can`t open File for reading.");
    EXPECT_EQ(out.str(), "");
}

TEST_F(ProcessFilesTest, RefusesAnEmptyPathAndAnEmptyList) {
    std::ostringstream out;
    for (const bool isFileList : {false, true}) {
        expectFailure([&] { ProcessFiles(nullptr, isFileList, out); }, 0, "", "File name is empty");
        expectFailure([&] { ProcessFiles("", isFileList, out); }, 0, "", "File name is empty");
    }
    for (const std::string content : {"", "\n\n"}) {
        const std::string list = scratch_.write("list", content);
        expectFailure([&] { ProcessFiles(list.c_str(), true, out); }, 0, "", "No files to process");
    }
    const std::string missing = scratch_.path("missing");
    expectFailure([&] { ProcessFiles(missing.c_str(), true, out); }, ENOENT, missing,
                  "Can`t open File List file for reading.");
}

TEST_F(ProcessFilesTest, WritesAListThatChecks) {
    scratch_.write("a", pattern(70000));
    scratch_.write("b", "");
    const std::string list = scratch_.write("hashes", listOfFileList("a\nb\n"));
    std::ostringstream out;
    Statistics counters{};
    EXPECT_EQ(CheckFiles(list.c_str(), out, &counters), 0);
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(counters.checked, 2U);
    EXPECT_EQ(counters.failed + counters.notFound + counters.accessDenied, 0U);
}

using ProcessFilesDeathTest = ProcessFilesTest;

TEST_F(ProcessFilesDeathTest, Compatibility_ASinglePathThatIsTooLongEndsTheProcess) {
    support::allowLeaks(); // what GoogleTest keeps of a death test
    scratch_.write("file", "abc");
    std::string path = "./file";
    path.insert(0, 8193 - path.size(), '/');
    EXPECT_EQ(listOf(path), line(path, "abc"));
    EXPECT_EXIT(listOf("/" + path), testing::KilledBySignal(SIGABRT), "^$");
    EXPECT_EXIT(listOf(std::string(8190, 'n') + "=file"), testing::KilledBySignal(SIGABRT), "^$");
}

// CheckFiles

class CheckFilesTest : public Checker {
protected:
    CheckFilesTest() { chmod(denied_.c_str(), 0); }

    FileHashPair record(const std::string& name, const std::string& hash) const {
        return {name, hash, ""};
    }

    int check(const Records& records, bool stopOnError = false) {
        const support::OrdinaryUser user;
        out_.str("");
        counters_ = {};
        return CheckFiles(records, out_, &counters_, stopOnError);
    }

    void expectCounters(unsigned checked, unsigned failed, unsigned notFound,
                        unsigned denied) const {
        EXPECT_EQ(counters_.checked, checked);
        EXPECT_EQ(counters_.failed, failed);
        EXPECT_EQ(counters_.notFound, notFound);
        EXPECT_EQ(counters_.accessDenied, denied);
    }

    const std::string file_ = scratch_.write("file", "abc");
    const std::string empty_ = scratch_.write("empty", "");
    const std::string denied_ = scratch_.write("denied", "abc");
    const std::string missing_ = scratch_.path("missing");
    const std::string digits_ = gost2012("abc");

    const FileHashPair good_ = record(file_, digits_);
    const FileHashPair changed_ = record(file_, std::string(64, '0'));
    const FileHashPair unknown_ = record(file_, std::string(40, '0'));
    const FileHashPair forbidden_ = record(denied_, digits_);
    const FileHashPair absent_ = record(missing_, digits_);

    const std::string changedLine_ =
        "File changed: " + file_ + " [" + kGost2012Prefix + digits_ + "].\n";
    const std::string unknownLine_ =
        "Can't create hash calculator for " + file_ + " [" + unknown_.hash + "].\n";
    const std::string forbiddenLine_ = "Warning: File access denied: " + denied_ + ".\n";
    const std::string absentLine_ = "Warning: File not found: " + missing_ + ".\n";

    std::ostringstream out_;
    Statistics counters_{};
};

TEST_F(CheckFilesTest, SaysNothingOfFilesThatMatch) {
    const std::string md5 = peerDigest(Peer::Md5, "abc");
    const std::string gost94 = peerDigest(Peer::Gost94, "abc");
    const Records records = {record(file_, digits_),
                             record(file_, upperCase(digits_)),
                             record(file_, "#GOST3411_256_2012:" + digits_),
                             record(file_, "$GOST3411_256_2012:" + upperCase(digits_)),
                             record(file_, md5),
                             record(file_, upperCase(md5)),
                             record(file_, "$MD5:" + md5),
                             record(file_, "#GOST3411_RFC4357:" + gost94),
                             record(file_, "$GOST3411_RFC4357:" + upperCase(gost94)),
                             record(empty_, gost2012("")),
                             record(empty_, "#MD5:" + peerDigest(Peer::Md5, ""))};
    EXPECT_EQ(check(records), 0);
    EXPECT_EQ(out_.str(), "");
    expectCounters(11, 0, 0, 0);
    EXPECT_EQ(check(records, true), 0);
    expectCounters(11, 0, 0, 0);
    EXPECT_EQ(check({}), 0);
    expectCounters(0, 0, 0, 0);
}

TEST_F(CheckFilesTest, ReportsAChangedFileWithTheDigestThatItHas) {
    EXPECT_EQ(check({changed_}), -1);
    EXPECT_EQ(out_.str(), changedLine_);
    expectCounters(1, 1, 0, 0);

    EXPECT_EQ(check({record(file_, "$MD5:" + std::string(32, 'F'))}), -1);
    EXPECT_EQ(out_.str(),
              "File changed: " + file_ + " [#MD5:" + peerDigest(Peer::Md5, "abc") + "].\n");
}

TEST_F(CheckFilesTest, TakesForChangedWhateverIsNotExactlyTheDigest) {
    std::string mixed = digits_;
    char& letter = mixed[mixed.find_first_of("abcdef")];
    letter = static_cast<char>(letter - 'a' + 'A');
    const std::string prefixed = "#GOST3411_256_2012:" + digits_;
    for (const std::string& hash :
         {mixed, prefixed + "\r", prefixed + " ", prefixed + '\0', prefixed.substr(0, 82),
          std::string("#GOST3411_256_2012:"), "#GOST3411_RFC4357:" + digits_}) {
        EXPECT_EQ(check({record(file_, hash)}), -1) << hash;
        EXPECT_EQ(out_.str().substr(0, 14), "File changed: ") << hash;
        expectCounters(1, 1, 0, 0);
    }
}

// The 64 bare digits of a GOST R 34.11-94 digest are read as GOST R 34.11-2012.
TEST_F(CheckFilesTest, Deliberate_BareGost94DigitsDoNotMatch) {
    EXPECT_EQ(check({record(file_, peerDigest(Peer::Gost94, "abc"))}), -1);
    EXPECT_EQ(out_.str(), changedLine_);
}

TEST_F(CheckFilesTest, ReportsAnUnknownAlgorithmWithoutLookingAtTheFile) {
    EXPECT_EQ(check({unknown_}), -1);
    EXPECT_EQ(out_.str(), unknownLine_);
    expectCounters(0, 1, 0, 0);
    EXPECT_EQ(check({record(missing_, ""), record("x", "#SHA1:"), record("", " " + digits_)}), -1);
    EXPECT_EQ(out_.str(), "Can't create hash calculator for " + missing_ +
                              " [].\n"
                              "Can't create hash calculator for x [#SHA1:].\n"
                              "Can't create hash calculator for  [ " +
                              digits_ + "].\n");
    expectCounters(0, 3, 0, 0);
}

TEST_F(CheckFilesTest, WarnsOfMissingAndForbiddenFilesAndGoesOn) {
    EXPECT_EQ(check({absent_, good_, forbidden_, good_}), 0);
    EXPECT_EQ(out_.str(), absentLine_ + forbiddenLine_);
    expectCounters(4, 0, 1, 1);
}

TEST_F(CheckFilesTest, KeepsMinus1OnceSet) {
    EXPECT_EQ(check({changed_, good_, absent_, forbidden_, good_}), -1);
    EXPECT_EQ(out_.str(), changedLine_ + absentLine_ + forbiddenLine_);
    expectCounters(5, 1, 1, 1);
    EXPECT_EQ(check({unknown_, absent_, good_}), -1);
    EXPECT_EQ(check({absent_, changed_, unknown_, good_}), -1);
    expectCounters(3, 2, 1, 0);
}

TEST_F(CheckFilesTest, StopModeStopsBehindTheFirstProblem) {
    const struct {
        FileHashPair problem;
        int code;
        std::string line;
        unsigned checked;
    } cases[] = {{changed_, -1, changedLine_, 2},
                 {unknown_, -1, unknownLine_, 1},
                 {forbidden_, -2, forbiddenLine_, 2},
                 {absent_, -3, absentLine_, 2}};
    for (const auto& c : cases) {
        EXPECT_EQ(check({good_, c.problem, changed_, unknown_, absent_}, true), c.code);
        EXPECT_EQ(out_.str(), c.line);
        EXPECT_EQ(counters_.checked, c.checked);
        EXPECT_EQ(counters_.failed + counters_.notFound + counters_.accessDenied, 1U);
        EXPECT_EQ(check({good_, c.problem}, true), c.code) << "as the last record";
    }
}

TEST_F(CheckFilesTest, OnlyIncrementsTheCounters) {
    Statistics counters{100, 200, 300, 400};
    const support::OrdinaryUser user;
    CheckFiles({good_, changed_, unknown_, absent_, forbidden_}, out_, &counters, false);
    EXPECT_EQ(counters.checked, 104U);
    EXPECT_EQ(counters.failed, 202U);
    EXPECT_EQ(counters.notFound, 301U);
    EXPECT_EQ(counters.accessDenied, 401U);
}

TEST_F(CheckFilesTest, DoesWithoutCounters) {
    const support::OrdinaryUser user;
    EXPECT_EQ(CheckFiles({good_, changed_, unknown_, absent_, forbidden_}, out_, nullptr, false),
              -1);
    EXPECT_EQ(out_.str(), changedLine_ + unknownLine_ + absentLine_ + forbiddenLine_);
    EXPECT_EQ(CheckFiles({absent_, good_}, out_, nullptr, true), -3);
    EXPECT_EQ(CheckFiles({forbidden_, good_}, out_, nullptr, true), -2);
}

TEST_F(CheckFilesTest, FlushesEachLine) {
    FlushCounter buffer;
    std::ostream out(&buffer);
    const support::OrdinaryUser user;
    CheckFiles({good_, changed_, unknown_, absent_, forbidden_}, out, nullptr, false);
    EXPECT_EQ(buffer.flushes, 4);
}

TEST_F(CheckFilesTest, ThrowsEveryOtherErrorOn) {
    const std::string below = file_ + "/below";
    for (const bool stop : {false, true}) {
        expectFailure(
            [&] {
                check({good_, absent_, record(below, digits_), good_}, false);
            },
            ENOTDIR, below, "Can`t open File for reading.");
        EXPECT_EQ(out_.str(), absentLine_);
        expectCounters(3, 0, 1, 0);
        expectFailure(
            [&] {
                check({good_, record(below, digits_)}, stop);
            },
            ENOTDIR, below, "Can`t open File for reading.");
    }
    EXPECT_THROW(check({record(scratch_.path(), digits_)}), FileIOException);
}

TEST_F(CheckFilesTest, ReadsAList) {
    const std::string list = scratch_.write("list", "[files]\n" + file_ + "=" + digits_ + "\n" +
                                                        missing_ + "=" + digits_ + "\n\n" + file_ +
                                                        "=#MD5:" + peerDigest(Peer::Md5, "other") +
                                                        "\n" + empty_ + "=" + gost2012(""));
    EXPECT_EQ(CheckFiles(list.c_str(), out_, &counters_), -1);
    EXPECT_EQ(out_.str(), absentLine_ + "File changed: " + file_ +
                              " [#MD5:" + peerDigest(Peer::Md5, "abc") + "].\n");
    expectCounters(4, 1, 1, 0);
    EXPECT_EQ(CheckFiles(list.c_str(), out_, nullptr), -1);
}

TEST_F(CheckFilesTest, TakesACarriageReturnForAPartOfTheDigestText) {
    const std::string md5 = peerDigest(Peer::Md5, "abc");
    const std::string list = scratch_.write("list", file_ + "=#MD5:" + md5 + "\r\n" + file_ + "=" +
                                                        md5 + "\r\n" + file_ + "=" + md5 + "\n");
    EXPECT_EQ(CheckFiles(list.c_str(), out_, &counters_), -1);
    EXPECT_EQ(out_.str(), "File changed: " + file_ + " [#MD5:" + md5 +
                              "].\n"
                              "Can't create hash calculator for " +
                              file_ + " [" + md5 + "\r].\n");
    expectCounters(2, 2, 0, 0);
}

TEST_F(CheckFilesTest, RefusesAPathThatIsEmptyOrCannotBeRead) {
    expectFailure([&] { CheckFiles(nullptr, out_, &counters_); }, 0, "", "File name is empty");
    expectFailure([&] { CheckFiles("", out_, &counters_); }, 0, "", "File name is empty");
    expectFailure([&] { CheckFiles(missing_.c_str(), out_, &counters_); }, ENOENT, missing_,
                  "Can`t open HashList file for reading.");
    const std::string list = scratch_.write("list", file_ + "=" + digits_ + "\nno divider\n");
    EXPECT_THROW(CheckFiles(list.c_str(), out_, &counters_), FileIOException);
    expectCounters(0, 0, 0, 0);
    EXPECT_EQ(out_.str(), "");
}

// A stream that was told to throw, over a buffer that takes nothing.
TEST_F(CheckFilesTest, LeaksNothingWhenTheStreamThrows) {
    for (const FileHashPair& record : {changed_, unknown_, absent_}) {
        std::ostringstream out;
        out.exceptions(std::ios::badbit);
        class Broken : public std::streambuf {
        } broken;
        static_cast<std::ostream&>(out).rdbuf(&broken);
        EXPECT_THROW(CheckFiles({record}, out, nullptr, false), std::ios_base::failure);
    }
}

TEST_F(CheckFilesTest, RunsOnSeveralThreadsAtOnce) {
    support::allowLeaks(); // what the system keeps of a finished thread
    std::vector<std::string> outputs(4);
    std::vector<std::thread> threads;
    for (std::string& output : outputs) {
        threads.emplace_back([&] {
            std::ostringstream out;
            Statistics counters{};
            for (int i = 0; i < 20; ++i)
                CheckFiles({good_, changed_, absent_}, out, &counters, false);
            EXPECT_EQ(counters.checked, 60U);
            output = out.str();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::string expected;
    for (int i = 0; i < 20; ++i)
        expected += changedLine_ + absentLine_;
    for (const std::string& output : outputs)
        EXPECT_EQ(output, expected);
}

} // namespace
