// Inputs made to be slow or to fill the memory, judged by counts: of allocations, of calls of the
// system and of a stream's buffer. What wildcards cost is counted in text/agstr_match_test.cpp,
// what thousands of interfaces cost in system/net_interf_test.cpp, and documents are deep on a
// small stack in config/xml_deep_test.cpp.

#include "checker/hashfile_checker.h"
#include "config/inifile.h"
#include "config/vpnxml.h"
#include "tests/support/fault_injection.h"
#include "tests/support/scratch.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <list>
#include <sstream>
#include <streambuf>
#include <string>
#include <utility>

namespace {

using std::string;
using support::CallKind;

constexpr long kMillion = 1'000'000;

// Containers that double their room do so about twenty times on the way to a million.
constexpr long kDoublings = 100;

template<class Action>
long calls(CallKind kind, Action action) {
    {
        const support::FailingCall onlyCounting(kind, 0, 0);
        action();
    }
    return support::countedCalls();
}

template<class Action>
long allocations(Action action) {
    return calls(CallKind::kMemory, action);
}

// A text that is made while it is read: a beginning, and a middle and an end many times each.
class Repeating : public std::streambuf {
public:
    Repeating(string begin, string middle, string end, long times)
        : middle_(std::move(middle)), end_(std::move(end)), left_(times), ends_(times) {
        piece_ = std::move(begin);
        show();
    }

protected:
    int_type underflow() override {
        long& left = left_ > 0 ? left_ : ends_;
        if (left == 0)
            return traits_type::eof();
        // A few at a time, as files come.
        const long count = std::min(left, 1000L);
        const string& part = &left == &left_ ? middle_ : end_;
        piece_.clear();
        for (long i = 0; i < count; ++i)
            piece_ += part;
        left -= count;
        if (piece_.empty())
            return underflow();
        show();
        return traits_type::to_int_type(piece_[0]);
    }

private:
    void show() { setg(piece_.data(), piece_.data(), piece_.data() + piece_.size()); }

    string middle_;
    string end_;
    long left_;
    long ends_;
    string piece_;
};

// Takes everything, and counts how it comes.
class Counting : public std::streambuf {
public:
    long lines = 0;
    long writes = 0;
    long flushes = 0;

protected:
    int_type overflow(int_type byte) override {
        ++writes;
        lines += byte == '\n' ? 1 : 0;
        return byte;
    }

    std::streamsize xsputn(const char* text, std::streamsize size) override {
        ++writes;
        lines += std::count(text, text + size, '\n');
        return size;
    }

    int sync() override {
        ++flushes;
        return 0;
    }
};

TEST(WorstCases, ADocumentAMillionDeepTakesAFewAllocationsALevel) {
    Repeating text("", "<a>", "</a>", kMillion);
    std::istream in(&text);
    XMLDocument document;
    EXPECT_LE(allocations([&] { document.Read(in); }), 5 * kMillion + kDoublings);

    Counting counting;
    std::ostream out(&counting);
    EXPECT_LE(allocations([&] { document.Write(out); }), kDoublings);
    EXPECT_EQ(counting.lines, 2 * kMillion - 1);
    EXPECT_LE(counting.writes, 20 * kMillion);
    EXPECT_LE(allocations([&] { document.EraseAll(); }), kDoublings);
}

TEST(WorstCases, AMillionAttributesTakeAFewAllocationsEach) {
    Repeating text("<a", " k='v'", "", kMillion);
    std::istream in(&text);
    XMLDeclaration::tag tag;
    EXPECT_THROW(tag.ReadDecl(in), XMLParserError); // it has no end
    EXPECT_EQ(tag.GetAttributes().size(), static_cast<std::size_t>(kMillion));

    XMLDocument document("a", true);
    const long made = allocations([&] {
        for (long i = 0; i < kMillion; ++i)
            document.AddAttr("k", "v");
    });
    std::stringstream sealed;
    EXPECT_LE(allocations([&] { document.Write(sealed); }), kDoublings);
    XMLDocument again("", true);
    EXPECT_LE(allocations([&] { again.Read(sealed); }), 2 * made + kDoublings);
    EXPECT_EQ(again.GetAttributes().size(), static_cast<std::size_t>(kMillion));
}

TEST(WorstCases, AHashListOfAMillionLinesTakesAFewAllocationsALineAndFewReads) {
    const string line = "a name of more than fifteen bytes=#MD5:900150983cd24fb0d6963f7d28e17f72\n";
    string text;
    for (long i = 0; i < kMillion; ++i)
        text += line;
    const support::ScratchDirectory folder;
    const string path = folder.write("list", text);
    std::list<HashFileChecker::FileHashPair> records;
    const auto load = [&] {
        records.clear();
        HashFileChecker::LoadHashList(path.c_str(), records);
    };
    EXPECT_LE(allocations(load), 3 * kMillion + kDoublings); // a node and two texts
    EXPECT_EQ(records.size(), static_cast<std::size_t>(kMillion));
    EXPECT_LE(calls(CallKind::kSystem, load), static_cast<long>(text.size()) / 4096 + kDoublings);
}

TEST(WorstCases, AMillionReportsAreWrittenOneByOne) {
    const std::list<HashFileChecker::FileHashPair> records(kMillion, {"name", "#UNKNOWN:", ""});
    Counting counting;
    std::ostream out(&counting);
    int code = 0;
    EXPECT_LE(
        allocations([&] { code = HashFileChecker::CheckFiles(records, out, nullptr, false); }),
        kDoublings);
    EXPECT_EQ(code, -1);
    EXPECT_EQ(counting.lines, kMillion);
    EXPECT_EQ(counting.flushes, kMillion);
    EXPECT_LE(counting.writes, 10 * kMillion);
}

TEST(WorstCases, AnIniTextOfOneLineOf100MiBIsReadOnceAndKeptOnce) {
    constexpr long kPieces = 100 * 1024;
    Repeating text("[g]\nk = ", string(1024, 'v'), "", kPieces);
    std::istream in(&text);
    std::string value;
    EXPECT_LE(allocations([&] {
                  const IniFile ini(in);
                  value = ini.get("g", "k");
              }),
              kDoublings + kPieces / 1000 + 2);
    EXPECT_EQ(value.size(), 1024u * kPieces);
}

} // namespace
