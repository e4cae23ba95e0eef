// What the tool reports on a record beside what the library reports: the same, wherever the library
// is right. Where it is not, the test says what it does.

#include "checker/hashfile_checker.h"
#include "cli/hashing/parallel_hasher.h"
#include "cli/hashing/record_check.h"
#include "tests/support/scratch.h"

#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace cli;
using std::string;

const string kAbcMd5 = "900150983cd24fb0d6963f7d28e17f72"; // RFC 1321
const string kEmptyMd5 = "d41d8cd98f00b204e9800998ecf8427e";

// The report of the library with its line feed, and what it counted as.
struct Answer {
    string report;
    Status status;

    bool operator==(const Answer& other) const = default;
};

std::ostream& operator<<(std::ostream& out, const Answer& answer) {
    return out << answer.report << " (" << static_cast<int>(answer.status) << ")";
}

Status statusOf(const HashFileChecker::Statistics& counted) {
    if (counted.notFound > 0)
        return Status::kMissing;
    if (counted.accessDenied > 0)
        return Status::kDenied;
    if (counted.checked == 0)
        return Status::kUnknown;
    return counted.failed > 0 ? Status::kChanged : Status::kOk;
}

Answer answerOfLibrary(const string& name, const string& digest) {
    std::ostringstream report;
    HashFileChecker::Statistics counted{};
    try {
        HashFileChecker::CheckFiles({{name, digest, ""}}, report, &counted, false);
    } catch (const HashFileChecker::FileIOException& problem) {
        return {problem.message, Status::kError};
    }
    return {report.str(), statusOf(counted)};
}

// One record as the task of a hasher.
class OneRecord : public HashTask {
public:
    OneRecord(const string& name, const string& digest) : name_(name), digest_(digest) {}

    std::size_t count() const override { return 1; }
    const char* path(std::size_t) const override { return name_.c_str(); }
    const Algorithm* algorithm(std::size_t) const override { return algorithmOf(digest_); }
    bool finish(std::size_t, HashedFile& file) override {
        result = checkRecord(name_, digest_, file);
        return true;
    }
    void idle(std::uint64_t) override {}

    CheckResult result;

private:
    const string& name_;
    const string& digest_;
};

Answer answerOfTool(const string& name, const string& digest) {
    Progress progress(-1);
    OneRecord record(name, digest);
    EXPECT_EQ(ParallelHasher(1, progress).run(record), ParallelHasher::End::kComplete);
    const string& report = record.result.report;
    return {report.empty() ? "" : report + "\n", record.result.status};
}

Answer error(const string& name, const string& reason) {
    return {"Error: File cannot be read: " + name + " [" + reason + "].\n", Status::kError};
}

class RecordCheck : public testing::Test {
protected:
    void expectSame(const string& name, const string& digest) const {
        EXPECT_EQ(answerOfTool(name, digest), answerOfLibrary(name, digest))
            << name << "=" << digest;
    }

    support::ScratchDirectory scratch_;
    const support::CurrentDirectory current_{scratch_.path()};
};

TEST_F(RecordCheck, AnswersLikeTheLibraryForEveryFormOfDigest) {
    scratch_.write("abc", "abc");
    string upper = kAbcMd5;
    for (char& digit : upper)
        digit = static_cast<char>(std::toupper(digit));
    const string mixed = kAbcMd5.substr(0, 16) + upper.substr(16);
    const string nothing;
    const string zeros(64, '0');
    for (const string& prefix :
         {nothing, string("#MD5:"), string("$MD5:"), string("#GOST3411_RFC4357:"),
          string("$GOST3411_RFC4357:"), string("#GOST3411_256_2012:"),
          string("$GOST3411_256_2012:"), string("#SHA1:"), string("$"), string("#"),
          string("#md5:"), string(" ")})
        for (const string& digits : {kAbcMd5, upper, mixed, kEmptyMd5, nothing, zeros, string("x"),
                                     kAbcMd5 + "0", kAbcMd5 + " ", string(32, 'g'), string(64, 'z'),
                                     kAbcMd5.substr(1), string("#MD5:") + kAbcMd5})
            expectSame("abc", prefix + digits);
}

TEST_F(RecordCheck, AnswersLikeTheLibraryForFilesOfEverySize) {
    for (const std::size_t size :
         {0UL, 1UL, 31UL, 32UL, 33UL, 65535UL, 65536UL, 65537UL, 131072UL, 200000UL}) {
        scratch_.write("f", string(size, 'x'));
        for (const Algorithm& algorithm : kAlgorithms) {
            string digest;
            ASSERT_TRUE(HashFileChecker::CalcHash("f", string(algorithm.prefix), digest));
            EXPECT_EQ(answerOfTool("f", digest), (Answer{"", Status::kOk}));
            expectSame("f", digest);
            expectSame("f", string(algorithm.prefix) + string(2 * algorithm.size, '0'));
        }
    }
}

TEST_F(RecordCheck, AnswersLikeTheLibraryWhereThereIsNoFile) {
    ASSERT_EQ(symlink("nowhere", "broken"), 0);
    for (const string name : {"missing", "broken", "", "missing/below"})
        expectSame(name, kAbcMd5);
}

TEST_F(RecordCheck, AnswersLikeTheLibraryForLinks) {
    scratch_.write("abc", "abc");
    ASSERT_EQ(symlink("abc", "symbolic"), 0);
    ASSERT_EQ(link("abc", "hard"), 0);
    for (const string name : {"symbolic", "hard", "./abc", ".//symbolic"}) {
        expectSame(name, kAbcMd5);
        expectSame(name, kEmptyMd5);
    }
}

TEST_F(RecordCheck, AnswersLikeTheLibraryForForbiddenFiles) {
    scratch_.write("secret", "abc");
    scratch_.write("closed/abc", "abc");
    ASSERT_EQ(chmod("secret", 0), 0);
    ASSERT_EQ(chmod("closed", 0), 0);
    {
        const support::OrdinaryUser user;
        for (const string name : {"secret", "closed/abc"})
            expectSame(name, kAbcMd5);
    }
    ASSERT_EQ(chmod("closed", 0700), 0);
}

// The library throws with one message for all of these; the tool reports the system's.
TEST_F(RecordCheck, NamesTheReasonWhereTheLibraryThrows) {
    scratch_.write("abc", "abc");
    ASSERT_EQ(symlink("loop", "loop"), 0);
    ASSERT_EQ(mkdir("directory", 0700), 0);
    const string longName(300, 'x');
    for (const auto& [name, reason] :
         std::vector<std::pair<string, string>>{{"loop", "Too many levels of symbolic links"},
                                                {"abc/below", "Not a directory"},
                                                {"directory", "Is a directory"},
                                                {longName, "File name too long"}}) {
        EXPECT_EQ(answerOfLibrary(name, kAbcMd5).status, Status::kError);
        EXPECT_EQ(answerOfTool(name, kAbcMd5), error(name, reason));
    }
}

// The library takes a device for an empty file, and opens it.
TEST_F(RecordCheck, DoesNotPassADevice) {
    EXPECT_EQ(answerOfLibrary("/dev/null", kEmptyMd5).status, Status::kOk);
    EXPECT_EQ(answerOfTool("/dev/null", kEmptyMd5), error("/dev/null", "not a regular file"));
}

// The library would wait for a writer for ever.
TEST_F(RecordCheck, DoesNotWaitForAFifo) {
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    EXPECT_EQ(answerOfTool("fifo", kEmptyMd5), error("fifo", "not a regular file"));
}

TEST_F(RecordCheck, DoesNotOpenASocket) {
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, "socket"};
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    close(listener);
    EXPECT_EQ(answerOfLibrary("socket", kEmptyMd5).status, Status::kError);
    EXPECT_EQ(answerOfTool("socket", kEmptyMd5), error("socket", "not a regular file"));
}

// The library believes the size, and reads nothing.
TEST_F(RecordCheck, DoesNotPassAFileThatCannotBeReadAsEmpty) {
    const string name = "/proc/self/clear_refs";
    if (access(name.c_str(), R_OK) != 0)
        GTEST_SKIP() << "needs root";
    EXPECT_EQ(answerOfLibrary(name, kEmptyMd5).status, Status::kOk);
    EXPECT_EQ(answerOfTool(name, kEmptyMd5), error(name, "Invalid argument"));
}

// The library fills up what is missing.
TEST_F(RecordCheck, DoesNotReportAFileThatIsShorterThanItsSizeAsChanged) {
    const string name = "/sys/kernel/mm/transparent_hugepage/enabled";
    struct stat status {};
    if (stat(name.c_str(), &status) != 0)
        GTEST_SKIP() << "needs " << name;
    const string reason = "size mismatch: stat reports " + std::to_string(status.st_size) +
                          " bytes, read returned " +
                          std::to_string(support::contentOf(name).size());
    EXPECT_EQ(answerOfLibrary(name, kEmptyMd5).status, Status::kChanged);
    EXPECT_EQ(answerOfTool(name, kEmptyMd5), error(name, reason));
}

} // namespace
