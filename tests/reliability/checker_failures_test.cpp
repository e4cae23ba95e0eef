// The checker where memory ends and where the system fails, on files that are there, changed,
// missing and forbidden.

#include "checker/hashfile_checker.h"
#include "tests/support/every_fault.h"
#include "tests/support/scratch.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <list>
#include <memory>
#include <sstream>
#include <string>

namespace {

using namespace HashFileChecker;
using std::string;
using support::CallKind;
using support::failEveryCall;
using support::failEverything;
using support::kNoMemory;
using support::Outcomes;

// RFC 1321, of "abc"; and md5sum's of "a" and two bytes 0xA5, what is fed after a short read.
const string kMd5OfAbc = "#MD5:900150983cd24fb0d6963f7d28e17f72";
const string kMd5OfCutAbc = "#MD5:ea3b0b2124dd5a6696abe1f233c03b6b";

// What the checker's exception says, with the error's name where there is one.
string described(const FileIOException& problem) {
    const char* const name = strerrorname_np(problem.error);
    return problem.message + " " + (name == nullptr ? "?" : name);
}

template<class Action>
support::Scenario described(Action action) {
    return [action]() -> string {
        try {
            return action();
        } catch (const FileIOException& problem) {
            return described(problem);
        }
    };
}

// Appended to every open error: the ways in which fopen fails, and the lack of memory for the
// stream.
Outcomes openErrors(const string& text) {
    return {text + " EACCES", text + " EMFILE", text + " EINTR", text + " ENOENT"};
}

Outcomes with(Outcomes outcomes, const Outcomes& more) {
    outcomes.insert(more.begin(), more.end());
    return outcomes;
}

class CheckerFailures : public testing::Test {
protected:
    // A check's result and counters, and what it wrote, unless the stream for that has failed.
    string check(const std::list<FileHashPair>& records, bool stop) const {
        std::ostringstream out;
        Statistics stats{};
        const int code = CheckFiles(records, out, &stats, stop);
        string outcome = std::to_string(code);
        for (const unsigned count :
             {stats.checked, stats.failed, stats.notFound, stats.accessDenied})
            outcome += " " + std::to_string(count);
        return outcome + (out ? " " + out.str() : " (nothing can be written)");
    }

    support::Scenario checking(const std::list<FileHashPair>& records, bool stop = false) const {
        return described([=, this] { return check(records, stop); });
    }

    support::ScratchDirectory folder_;
    const string file_ = folder_.write("file", "abc");
    const string missing_ = folder_.path("missing");
    const string openError_ = "Can`t open File for reading.";
};

const string kReadError = "File read error";

TEST_F(CheckerFailures, FileListsAreReadAsFarAsTheyGo) {
    const string list =
        folder_.write("list", "first\nsecond=a name that needs memory of its own\n");
    failEverything(described([&] {
                       std::list<string> entries;
                       LoadFileList(list.c_str(), entries);
                       return std::to_string(entries.size()) + " entries";
                   }),
                   {kNoMemory, "Can`t open File List file for reading. ENOMEM"},
                   with(openErrors("Can`t open File List file for reading."), {"0 entries"}));
}

TEST_F(CheckerFailures, HashListsAreReadAsFarAsTheyGo) {
    const string list =
        folder_.write("list", "[section]\na=" + kMd5OfAbc + "\nb=" + kMd5OfAbc + "\n");
    failEverything(described([&] {
                       std::list<FileHashPair> records;
                       LoadHashList(list.c_str(), records);
                       return std::to_string(records.size()) + " records";
                   }),
                   {kNoMemory, "Can`t open HashList file for reading. ENOMEM"},
                   with(openErrors("Can`t open HashList file for reading."), {"0 records"}));
}

TEST_F(CheckerFailures, MalformedHashListsAreRefused) {
    const string list = folder_.write("list", "a=" + kMd5OfAbc + "\nno divider\n");
    const auto scenario = [&]() -> string {
        std::list<FileHashPair> records;
        try {
            LoadHashList(list.c_str(), records);
        } catch (const FileIOException& problem) {
            return problem.message;
        }
        return std::to_string(records.size()) + " records";
    };
    const string openError = "Can`t open HashList file for reading.";
    failEverything(scenario, {kNoMemory, openError}, {openError, "0 records"});
}

TEST_F(CheckerFailures, MissingListsAreRefused) {
    failEverything(described([&] {
                       std::list<FileHashPair> records;
                       LoadHashList(missing_.c_str(), records);
                       return "loaded";
                   }),
                   {kNoMemory, "Can`t open HashList file for reading. ENOMEM"},
                   openErrors("Can`t open HashList file for reading."));
}

TEST_F(CheckerFailures, HashListsAreWrittenOrTheStreamFails) {
    const std::list<HashPair> pairs = {{"name", kMd5OfAbc}, {"other=path", kMd5OfAbc}};
    failEverything(
        [&]() -> string {
            std::ostringstream out;
            PrintHashes(pairs, out);
            return out ? out.str() : "the stream has failed";
        },
        {"the stream has failed", kNoMemory}, {});
}

// 0xA5 stands for each byte that a short read did not yield.
TEST_F(CheckerFailures, DigestsOfFilesAreOfTheWholeFileOrOfOneThatWasCutShort) {
    const std::unique_ptr<IHashFactory> factory(createHashFactory(MD5));
    const auto scenario = described([&] {
        const std::unique_ptr<IHash_Calc> calc(factory->createHashCalc());
        GetFileHash(file_.c_str(), *calc);
        return std::unique_ptr<IHash>(factory->createHash(*calc, true))->ToStr(false, true);
    });
    EXPECT_EQ(scenario(), kMd5OfAbc);
    failEverything(
        scenario, {kNoMemory, openError_ + " ENOMEM"},
        with(openErrors(openError_), {kReadError + " EIO", kReadError + " EINTR", kMd5OfCutAbc}));
}

TEST_F(CheckerFailures, CalcHashGivesATextOrFalse) {
    failEverything(
        [&]() -> string {
            string result = "untouched";
            const bool calculated = CalcHash(file_, "unknown", result);
            EXPECT_EQ(result == "untouched", !calculated);
            return calculated ? "calculated" : "false";
        },
        {kNoMemory, "false"}, {"false"});
}

TEST_F(CheckerFailures, ProcessFilesWritesEverythingOrNothing) {
    const support::CurrentDirectory here(folder_.path());
    const string list = folder_.write("list", "a/file\nname=" + file_ + "\n");
    const auto scenario = described([&] {
        std::ostringstream out;
        try {
            ProcessFiles(list.c_str(), true, out);
        } catch (...) {
            EXPECT_EQ(out.str(), "");
            throw;
        }
        return out ? std::to_string(out.str().size()) + " bytes" : string("the stream has failed");
    });
    failEverything(
        scenario,
        {kNoMemory, "Can`t open File List file for reading. ENOMEM", openError_ + " ENOMEM",
         "the stream has failed"},
        with(with(openErrors("Can`t open File List file for reading."), openErrors(openError_)),
             {"No files to process 0", kReadError + " EIO", kReadError + " EINTR"}));
}

TEST_F(CheckerFailures, UnchangedFilesAreNeverTakenForMissingOnesByMistake) {
    for (const bool stop : {false, true}) {
        const string warning = "Warning: File not found: " + file_ + ".\n";
        const string denied = "Warning: File access denied: " + file_ + ".\n";
        failEverything(checking({{file_, kMd5OfAbc, ""}}, stop),
                       {kNoMemory, openError_ + " ENOMEM"},
                       {openError_ + " EMFILE", openError_ + " EINTR", kReadError + " EIO",
                        kReadError + " EINTR", (stop ? "-3 1 0 1 0 " : "0 1 0 1 0 ") + warning,
                        (stop ? "-2 1 0 0 1 " : "0 1 0 0 1 ") + denied,
                        "-1 1 1 0 0 File changed: " + file_ + " [" + kMd5OfCutAbc + "].\n"});
    }
}

TEST_F(CheckerFailures, ChangedFilesAreReportedOrTheStreamFails) {
    const std::list<FileHashPair> records = {{file_, string(32, '0'), ""}};
    failEveryCall(CallKind::kMemory, checking(records),
                  {kNoMemory, openError_ + " ENOMEM", "-1 1 1 0 0 (nothing can be written)"});
}

TEST_F(CheckerFailures, MissingFilesAreReportedOrTheStreamFails) {
    const std::list<FileHashPair> records = {{missing_, kMd5OfAbc, ""}};
    failEveryCall(CallKind::kMemory, checking(records),
                  {kNoMemory, openError_ + " ENOMEM", "0 1 0 1 0 (nothing can be written)"});
}

TEST_F(CheckerFailures, ForbiddenFilesAreReportedOrTheStreamFails) {
    const string forbidden = folder_.write("forbidden", "abc");
    std::filesystem::permissions(forbidden, std::filesystem::perms::none);
    const std::list<FileHashPair> records = {{forbidden, kMd5OfAbc, ""}};
    const support::OrdinaryUser user;
    failEveryCall(CallKind::kMemory, checking(records, true),
                  {kNoMemory, openError_ + " ENOMEM", "-2 1 0 0 1 (nothing can be written)"});
}

TEST_F(CheckerFailures, UnknownAlgorithmsAreReportedOrTheStreamFails) {
    const std::list<FileHashPair> records = {{file_, "#UNKNOWN:00", ""}};
    failEverything(checking(records), {kNoMemory, "-1 0 1 0 0 (nothing can be written)"}, {});
}

TEST_F(CheckerFailures, ListsAreCheckedAsFarAsTheyWereRead) {
    const string list = folder_.write("list", file_ + "=" + kMd5OfAbc + "\n");
    const auto scenario = [&]() -> string {
        std::ostringstream out;
        try {
            const int code = CheckFiles(list.c_str(), out, nullptr);
            return std::to_string(code) + " " + out.str().substr(0, 12);
        } catch (const FileIOException& problem) {
            return problem.message;
        }
    };
    const string listError = "Can`t open HashList file for reading.";
    failEverything(scenario, {kNoMemory, listError, openError_},
                   {listError, openError_, kReadError, "0 Warning: Fil", "-1 File changed"});
}

} // namespace
