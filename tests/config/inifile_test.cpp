#include "config/inifile.h"
#include "tests/support/failing_buffers.h"

#include <gtest/gtest.h>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>

namespace {

using std::string;

IniFile read(const string& text) {
    std::istringstream in(text);
    return IniFile(in);
}

template<class Exception, class Action>
string messageOf(Action action) {
    try {
        action();
    } catch (const Exception& problem) {
        return problem.what();
    }
    return "(nothing was thrown)";
}

string missingGroup(const IniFile& ini, const string& group, const char* def) {
    return messageOf<CIniFileGroupNotFound>([&] { ini.get(group, "x", def); });
}

// One line of a text, and the value that it stores under a name in the group "g".
struct Line {
    string text;
    string name;
    string value;
};

// Without it, the bytes of the object would be printed, unused ones included.
void PrintTo(const Line& shown, std::ostream* out) {
    *out << shown.text;
}

class IniFileLine : public testing::TestWithParam<Line> {};

TEST_P(IniFileLine, StoresItsValue) {
    const IniFile ini = read("[g]\n" + GetParam().text + "\n");
    EXPECT_EQ(ini.getAllGroups(), "[g] ");
    EXPECT_EQ(ini.get("g", GetParam().name), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Table, IniFileLine,
    testing::Values(Line{"k=v", "k", "v"}, Line{"k = v", "k", "v"}, Line{"k   =   v", "k", "v"},
                    Line{"\t k=v \t\r", "k", "v"}, Line{"k\t= v", "k\t", "v"},
                    Line{"k=\tv", "k", "\tv"}, Line{"k\t =v", "k\t", "v"},
                    Line{"k= \tv", "k", "\tv"}, Line{"k=", "k", ""}, Line{"k =  ", "k", ""},
                    Line{"=x", "", "x"}, Line{"  = x", "", "x"}, Line{"=", "", ""},
                    Line{"a=b=c", "a", "b=c"}, Line{"a==", "a", "="}, Line{"x=1 # c", "x", "1 # c"},
                    Line{"x # y=1", "x # y", "1"}, Line{"k = 'a' # b", "k", "'a' # b"},
                    Line{"k=\"a\"", "k", "\"a\""}, Line{"k=a\\", "k", "a\\"},
                    Line{"k=%(x)s $x", "k", "%(x)s $x"}, Line{";k=v", ";k", "v"},
                    Line{"a b = c d", "a b", "c d"}, Line{"[k=v", "[k", "v"},
                    Line{"k=v]", "k", "v]"}, Line{"[k]=v", "[k]", "v"},
                    Line{"\vk\f=\vv\f", "\vk\f", "\vv\f"}, Line{"k=\xff\x80", "k", "\xff\x80"},
                    Line{string("k\0=v\0w", 6), string("k\0", 2), string("v\0w", 3)}));

class IniFileMeaninglessLine : public testing::TestWithParam<string> {};

TEST_P(IniFileMeaninglessLine, StoresNothing) {
    const IniFile ini = read("[g]\n" + GetParam() + "\n");
    EXPECT_EQ(ini.getAllGroups(), "");
    EXPECT_EQ(missingGroup(ini, "g", nullptr), "g");
}

INSTANTIATE_TEST_SUITE_P(Table, IniFileMeaninglessLine,
                         testing::Values("", " ", "\t\r", "# c", "  # c", "#k=v", "\t#k=v", "x # c",
                                         "k", "[", "]", "[net] # x", "[net", "net]"));

// A header line and the name of the group that it names.
struct Header {
    string line;
    string group;
};

void PrintTo(const Header& shown, std::ostream* out) {
    *out << shown.line;
}

class IniFileHeader : public testing::TestWithParam<Header> {};

TEST_P(IniFileHeader, NamesTheGroup) {
    const IniFile ini = read("[other]\n" + GetParam().line + "\nk=v");
    EXPECT_EQ(ini.getAllGroups(), "[" + GetParam().group + "] ");
    EXPECT_EQ(ini.get(GetParam().group, "k"), "v");
}

INSTANTIATE_TEST_SUITE_P(Table, IniFileHeader,
                         testing::Values(Header{"[net]", "net"}, Header{"  [net]\t\r", "net"},
                                         Header{"[ a ]", " a "}, Header{"[]", ""},
                                         Header{"[a=b]", "a=b"}, Header{"[a]=[b]", "a]=[b"},
                                         Header{"[[a]]", "[a]"}, Header{"[#]", "#"},
                                         Header{"[a\tb]", "a\tb"}));

TEST(IniFile, AnEmptyTextHasNoGroups) {
    for (const char* text : {"", "\n\n", "# comment\n\n  # another", "[empty]\n", "[a]\n[b]\n"}) {
        const IniFile ini = read(text);
        EXPECT_EQ(ini.getAllGroups(), "") << text;
        EXPECT_EQ(missingGroup(ini, "", nullptr), "") << text;
    }
}

TEST(IniFile, Deliberate_ADefaultDoesNotRescueAMissingGroup) {
    EXPECT_EQ(missingGroup(read("[empty]\n[g]\nk=v"), "empty", "d"), "empty");
}

TEST(IniFile, Deliberate_AHeaderAloneMakesNoGroup) {
    EXPECT_EQ(read("[a]\nnothing\n[b]\nk=v\n[c]").getAllGroups(), "[b] ");
}

TEST(IniFile, LinesBeforeTheFirstHeaderBelongToTheEmptyGroup) {
    const IniFile ini = read("k=v\n[g]\nk=w\n[]\nl=x\n");
    EXPECT_EQ(ini.get("", "k", nullptr), "v");
    EXPECT_EQ(ini.get("", "l", nullptr), "x");
    EXPECT_EQ(ini.getAllGroups(), "[] [g] ");
}

TEST(IniFile, ListsGroupsInTheOrderOfTheirUnsignedBytes) {
    EXPECT_EQ(read("[b]\nk=\n[\xff]\nk=\n[ab]\nk=\n[a]\nk=\n[B]\nk=\n").getAllGroups(),
              "[B] [a] [ab] [b] [\xff] ");
}

TEST(IniFile, TellsNamesOfDifferentCaseApart) {
    const IniFile ini = read("[Net]\nk=1\nK=2\n[net]\nk=3\n");
    EXPECT_EQ(ini.get("Net", "k"), "1");
    EXPECT_EQ(ini.get("Net", "K"), "2");
    EXPECT_EQ(ini.get("net", "k"), "3");
}

TEST(IniFile, TheLastOfSeveralValuesHolds) {
    const IniFile ini = read("[g]\nk=1\nk=2\nonly=first\n[h]\nk=3\n[g]\nk=4\n");
    EXPECT_EQ(ini.get("g", "k"), "4");
    EXPECT_EQ(ini.get("g", "only"), "first");
    EXPECT_EQ(ini.get("h", "k"), "3");
    EXPECT_EQ(ini.getAllGroups(), "[g] [h] ");
}

TEST(IniFile, ReadsALastLineWithoutLineFeed) {
    EXPECT_EQ(read("[g]\nk=v").get("g", "k"), "v");
}

TEST(IniFile, ReadsCarriageReturnsBeforeLineFeedsAsNothing) {
    const IniFile ini = read("[g]\r\nk = v\r\n# c\r\n\r\nl=w\r\n");
    EXPECT_EQ(ini.get("g", "k"), "v");
    EXPECT_EQ(ini.get("g", "l"), "w");
}

TEST(IniFile, MissingValuesGiveTheDefaultOrTheirName) {
    const IniFile ini = read("[g]\nk=v\nempty=\n");
    EXPECT_EQ(ini.get("g", "missing", "d"), "d");
    EXPECT_EQ(ini.get("g", "missing", ""), "");
    EXPECT_EQ(ini.get("g", "k", "d"), "v");
    EXPECT_EQ(ini.get("g", "empty", "d"), "");
    EXPECT_EQ(messageOf<CIniFileVarNameNotFound>([&] { ini.get("g", "missing", nullptr); }),
              "missing");
    EXPECT_EQ(messageOf<CIniFileVarNameNotFound>([&] { ini.get("g", "missing"); }), "missing");
}

TEST(IniFile, ExceptionsAreRuntimeErrorsOfTheirText) {
    EXPECT_TRUE((std::is_base_of<std::runtime_error, CIniFileGroupNotFound>::value));
    EXPECT_TRUE((std::is_base_of<std::runtime_error, CIniFileVarNameNotFound>::value));
    EXPECT_TRUE((std::is_base_of<std::runtime_error, CIniFileFormatError>::value));
    EXPECT_EQ(messageOf<std::runtime_error>([] { throw CIniFileFormatError("of a caller"); }),
              "of a caller");
}

TEST(IniFile, HoldsNothingButItsMapAndCopiesIt) {
    EXPECT_EQ(sizeof(IniFile), (sizeof(std::map<string, std::map<string, string>>)));
    EXPECT_FALSE(std::is_polymorphic<IniFile>::value);
    IniFile original = read("[g]\nk=1\n");
    const IniFile copy = original;
    original.parseLine("k=2", "g");
    EXPECT_EQ(copy.get("g", "k"), "1");
    EXPECT_EQ(original.get("g", "k"), "2");
}

TEST(IniFile, LeavesTheStreamAtItsEnd) {
    std::istringstream in("skipped\nk=v\n");
    string skipped;
    std::getline(in, skipped);
    EXPECT_EQ(IniFile(in).get("", "k"), "v");
    EXPECT_EQ(in.rdstate(), std::ios::eofbit | std::ios::failbit);
}

TEST(IniFile, AStreamThatCannotBeReadGivesNoGroups) {
    std::istream none(nullptr);
    EXPECT_EQ(IniFile(none).getAllGroups(), "");
    std::istringstream failed("k=v\n");
    failed.setstate(std::ios::failbit);
    EXPECT_EQ(IniFile(failed).getAllGroups(), "");
}

TEST(IniFile, AStreamThatFailsInTheMiddleGivesTheLinesBefore) {
    support::FailsAtItsEnd device("[g]\nk=v\nlost=half a li");
    std::istream in(&device);
    const IniFile ini(in);
    EXPECT_TRUE(in.bad());
    EXPECT_EQ(ini.get("g", "k"), "v");
    EXPECT_EQ(ini.get("g", "lost", "absent"), "absent");
}

TEST(IniFile, AStreamThatIsToldToThrowThrows) {
    support::FailsAtItsEnd device("[g]\nk=v\n");
    std::istream in(&device);
    in.exceptions(std::ios::badbit);
    EXPECT_THROW(IniFile{in}, support::DeviceFailure);
}

// What std::getline does.
TEST(IniFile, AStreamThatFailsIsLeftAsTheStandardReadLeavesIt) {
    for (const char* text : {"k=v\n", "k=v\nhalf a li"}) {
        support::FailsAtItsEnd device(text);
        std::istream in(&device);
        support::FailsAtItsEnd other(text);
        std::istream expected(&other);
        IniFile ini(in);
        for (string line; std::getline(expected, line);) {
        }
        EXPECT_EQ(in.rdstate(), expected.rdstate()) << text;
        EXPECT_EQ(in.exceptions(), std::ios::goodbit);
    }
}

TEST(IniFile, AStreamThatIsToldToThrowAtItsEndThrowsThere) {
    for (const std::ios::iostate state : {std::ios::failbit, std::ios::eofbit}) {
        std::istringstream in("k=v\n");
        in.exceptions(state);
        for (const char* when : {"first", "at its end already"}) {
            EXPECT_THROW(IniFile{in}, std::ios::failure) << when;
            EXPECT_EQ(in.exceptions(), state) << when;
        }
    }
    support::FailsAtItsEnd device("k=v\n");
    std::istream failing(&device);
    failing.exceptions(std::ios::failbit);
    EXPECT_THROW(IniFile{failing}, std::ios::failure);
}

struct LacksMemory : support::ByteAtATime {
    using ByteAtATime::ByteAtATime;
    int_type atEnd() override { throw std::bad_alloc(); }
};

TEST(IniFile, LetsAThreadEndWhileItReads) {
    for (const char* text : {"k=v\n", "k=v\nhalf a li"})
        EXPECT_TRUE(support::isCancelledIn(text, [](std::istream& in) { const IniFile ini(in); }));
}

// Can be flushed once.
struct FailsToFlush : std::stringbuf {
    int flushed = 0;
    int sync() override {
        if (flushed++ > 0)
            throw support::DeviceFailure();
        return 0;
    }
};

// The stream that is flushed before each read fails at the second line.
TEST(IniFile, AStreamWhoseTiedStreamThrowsIsLeftAsTheStandardReadLeavesIt) {
    const auto stateAfter = [](auto read) {
        FailsToFlush device;
        std::ostream tied(&device);
        tied.exceptions(std::ios::badbit);
        std::istringstream in("k=v\nl=w\n");
        in.tie(&tied);
        read(in);
        EXPECT_EQ(device.flushed, 2);
        return in.rdstate();
    };
    const auto standard = [](std::istream& in) {
        for (string line; std::getline(in, line);) {
        }
    };
    EXPECT_EQ(stateAfter([](std::istream& in) { const IniFile ini(in); }), stateAfter(standard));
}

// The beginning of a text is not what its writer meant.
TEST(IniFile, ATextThatMemoryEndsInIsNotReadInPart) {
    LacksMemory device("k=v\nl=w\n");
    std::istream in(&device);
    EXPECT_THROW(IniFile{in}, std::bad_alloc);
    EXPECT_TRUE(in.bad());
    EXPECT_EQ(in.exceptions(), std::ios::goodbit);
}

TEST(IniFile, ReadsAByteAtATime) {
    support::ByteAtATime device("[g]\nk=v\nl=w");
    std::istream in(&device);
    const IniFile ini(in);
    EXPECT_EQ(ini.get("g", "k"), "v");
    EXPECT_EQ(ini.get("g", "l"), "w");
}

TEST(IniFile, ReadsAVeryLongLine) {
    const string value(10'000'000, 'v');
    EXPECT_EQ(read("[g]\nk = " + value + "  \n").get("g", "k"), value);
}

TEST(IniFileCleanupLine, StripsBothEndsAndComments) {
    const struct {
        const char* line;
        const char* cleaned;
    } table[] = {
        {"", ""},    {" \t\r\n", ""}, {"a", "a"},           {" \t\n\ra b\r\n\t ", "a b"}, {"#", ""},
        {" #a", ""}, {"a#", "a#"},    {"\v#a\f", "\v#a\f"}, {"a \t b", "a \t b"}};
    for (const auto& row : table) {
        string line = row.line;
        IniFile::cleanupLine(line);
        EXPECT_EQ(line, row.cleaned) << row.line;
    }
}

TEST(IniFileParseGroupName, LeavesTheGroupOfALineThatIsNoHeader) {
    IniFile ini = read("");
    for (const char* line : {"", "[", "]", "a", "[a", "a]", " [a]", "[a] "}) {
        string group = "before";
        EXPECT_FALSE(ini.parseGroupName(line, group)) << line;
        EXPECT_EQ(group, "before") << line;
    }
    string group = "before";
    EXPECT_TRUE(ini.parseGroupName("[]", group));
    EXPECT_EQ(group, "");
    EXPECT_TRUE(ini.parseGroupName("[ a ]", group));
    EXPECT_EQ(group, " a ");
}

TEST(IniFileParseValue, StripsLeadingBlanksOnly) {
    IniFile ini = read("");
    EXPECT_EQ(ini.parseValue(""), "");
    EXPECT_EQ(ini.parseValue("   "), "");
    EXPECT_EQ(ini.parseValue("  a "), "a ");
    EXPECT_EQ(ini.parseValue("\ta"), "\ta");
    EXPECT_EQ(ini.parseValue(" \n a"), "\n a");
}

TEST(IniFileParseLine, StoresInTheGroupNamed) {
    IniFile ini = read("");
    ini.parseLine("no divider", "g");
    EXPECT_EQ(ini.getAllGroups(), "");
    ini.parseLine("k = v", "g");
    EXPECT_EQ(ini.get("g", "k"), "v");
    ini.parseLine(" k=w", "g"); // not cleaned up: the blank belongs to the name
    EXPECT_EQ(ini.get("g", " k"), "w");
}

TEST(IniFile, ReadsBackRandomGroupsAndValues) {
    std::mt19937 random(1);
    const auto word = [&](const char* alphabet, std::size_t longest) {
        string text;
        for (std::size_t length = random() % (longest + 1); length > 0; --length)
            text += alphabet[random() % std::char_traits<char>::length(alphabet)];
        return text;
    };
    for (int round = 0; round < 300; ++round) {
        std::map<string, std::map<string, string>> expected;
        string text;
        for (int line = 0; line < 40; ++line) {
            const string group = word("ab[]=# ", 3);
            const string name = "n" + word("ab[]# ", 3) + "n";
            const string value = "v" + word("ab[]=#' ", 5) + "v";
            text += "[" + group + "]" + word(" \t\r\n", 3) + "\n" + word(" \t", 2) + name +
                    word(" ", 2) + "=" + word(" ", 2) + value + word(" \t\r", 2) + "\n";
            expected[group][name] = value;
        }
        const IniFile ini = read(text);
        string groups;
        for (const auto& [group, values] : expected) {
            groups += "[" + group + "] ";
            for (const auto& [name, value] : values)
                ASSERT_EQ(ini.get(group, name), value) << text;
        }
        ASSERT_EQ(ini.getAllGroups(), groups) << text;
    }
}

} // namespace
