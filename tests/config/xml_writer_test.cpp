// Writing a tree: the layout to the byte, and files with their permissions. The library's calls to
// chmod and fchmod come through this program, which notes what a file could be opened by before
// them.

#include "config/vpnxml.h"
#include "tests/config/xml_support.h"
#include "tests/support/captured_stderr.h"
#include "tests/support/failing_buffers.h"
#include "tests/support/scratch.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

using std::string;

// What was there just before a call that sets permissions.
struct Before {
    mode_t mode;
    off_t size;
};
std::vector<Before> chmods;
std::vector<Before> fchmods;
int chmodResult = 0;

} // namespace

extern "C" int chmod(const char* path, mode_t mode) noexcept {
    struct stat now {};
    if (stat(path, &now) == 0)
        chmods.push_back({now.st_mode & 07777, now.st_size});
    if (chmodResult != 0)
        return chmodResult;
    return static_cast<int>(syscall(SYS_fchmodat, AT_FDCWD, path, mode));
}

extern "C" int fchmod(int descriptor, mode_t mode) noexcept {
    struct stat now {};
    if (fstat(descriptor, &now) == 0)
        fchmods.push_back({now.st_mode & 07777, now.st_size});
    return static_cast<int>(syscall(SYS_fchmod, descriptor, mode));
}

namespace {

using support::contentOf;
using xml_support::addChild;
using xml_support::written;
using xml_support::writtenWithDigest;

TEST(XMLWrite, WritesAnEmptyElementAsTwoTags) {
    XMLDeclaration element("a");
    EXPECT_EQ(written(element), "<a></a>\n");
    XMLDeclaration nameless;
    EXPECT_EQ(written(nameless), "<></>\n");
}

TEST(XMLWrite, WritesALeafOnOneLine) {
    XMLDeclaration element("name");
    element.AddAttr("k", "v");
    element.AddAttr("k", "");
    element.AddAttr("", "w");
    element.SetBody("text");
    EXPECT_EQ(written(element), "<name k=\"v\" k=\"\" =\"w\">text</name>\n");
}

TEST(XMLWrite, EscapesOtherBytesInValuesThanInBodies) {
    XMLDeclaration element("a");
    element.AddAttr("k", "\"<&>'");
    element.SetBody("\"<&>'");
    EXPECT_EQ(written(element), "<a k=\"&quot;&lt;&amp;&gt;'\">\"&lt;&amp;&gt;'</a>\n");
}

TEST(XMLWrite, WritesEveryOtherByteAsItIs) {
    string bytes;
    for (int byte = 1; byte < 256; ++byte) {
        if (string("\"&<>").find(static_cast<char>(byte)) == string::npos)
            bytes.push_back(static_cast<char>(byte));
    }
    XMLDeclaration element(bytes);
    element.AddAttr(bytes, bytes);
    element.SetBody(bytes);
    EXPECT_EQ(written(element),
              "<" + bytes + " " + bytes + "=\"" + bytes + "\">" + bytes + "</" + bytes + ">\n");
}

TEST(XMLWrite, EscapesNeitherNamesNorKeys) {
    XMLDeclaration element("<&>\"");
    element.AddAttr("<&>\"", "");
    EXPECT_EQ(written(element), "<<&>\" <&>\"=\"\"></<&>\">\n");
}

TEST(XMLWrite, WritesStringsUpToTheirFirstNul) {
    const string cut("ab\0cd", 5);
    XMLDeclaration element(cut);
    element.AddAttr(cut, cut);
    element.SetBody(cut);
    EXPECT_EQ(written(element), "<ab ab=\"ab\">ab</ab>\n");
    element.SetBody(string("\0x", 2));
    EXPECT_EQ(written(element), "<ab ab=\"ab\"></ab>\n");
}

TEST(XMLWrite, CountsANullChildAsOneThatSaysNothing) {
    XMLDeclaration element("r");
    element.SetBody("text");
    element.AddChild(nullptr);
    EXPECT_EQ(written(element), "<r>\n</r>\n");
}

TEST(XMLWrite, WritesChildrenOnLinesOfTheirOwnWithTheirTabs) {
    XMLDeclaration root("r");
    addChild(root, "a").SetIndentLevel(1);
    addChild(root, "b", "text").SetIndentLevel(1);
    EXPECT_EQ(written(root), "<r>\n\t<a></a>\n\t<b>text</b>\n</r>\n");
    root.SetIndentLevel(2);
    EXPECT_EQ(written(root), "\t\t<r>\n\t<a></a>\n\t<b>text</b>\n\t\t</r>\n");
}

TEST(XMLWrite, WritesNoBodyBesideChildren) {
    XMLDeclaration root("r");
    root.SetBody("text");
    addChild(root, "a");
    EXPECT_EQ(written(root), "<r>\n<a></a>\n</r>\n");
}

TEST(XMLWrite, NeverWritesADigestFromTheBase) {
    XMLDocument document("r", true);
    std::ostringstream out;
    static_cast<XMLDeclaration&>(document).Write(out);
    EXPECT_EQ(out.str(), "<r></r>\n");
    EXPECT_EQ(written(document), "<r></r>\n");
}

TEST(XMLWrite, ContinuesWhereTheStreamStandsAndIgnoresItsFieldWidth) {
    XMLDeclaration element("a");
    std::ostringstream out;
    out << "before ";
    out.width(20);
    element.Write(out);
    EXPECT_EQ(out.str(), "before <a></a>\n");
}

TEST(XMLWrite, WritesVeryLongStringsAndIndents) {
    for (const std::size_t length : {4094u, 4095u, 4096u, 4097u, 8192u, 100000u}) {
        const string name(length, 'n');
        const string body = string(length, 'b') + "&" + string(length, 'c');
        XMLDeclaration root("r");
        root.SetIndentLevel(static_cast<unsigned>(length));
        addChild(root, name, body).AddAttr(name, body);
        const string escaped = string(length, 'b') + "&amp;" + string(length, 'c');
        const string tabs(length, '\t');
        EXPECT_EQ(written(root), tabs + "<r>\n<" + name + " " + name + "=\"" + escaped + "\">" +
                                     escaped + "</" + name + ">\n" + tabs + "</r>\n");
    }
}

TEST(XMLWriteToString, Deliberate_KeepsTheIndentLevelsThatItFormattedFirst) {
    XMLDeclaration root("r");
    XMLDeclaration& child = addChild(root, "a");
    addChild(child, "b");
    child.SetIndentLevel(5);
    string text = "before";
    root.WriteToString(text, 0);
    EXPECT_EQ(text, "<r>\n\t\t\t\t\t<a>\n<b></b>\n\t\t\t\t\t</a>\n</r>\n");
    root.WriteToString(text, 2);
    EXPECT_EQ(text, "<r>\n\t\t<a>\n\t\t\t<b></b>\n\t\t</a>\n</r>\n");
    EXPECT_EQ(child.GetIndentLevel(), 2u);
    EXPECT_EQ(root.GetIndentLevel(), 0u);
}

// Counts the times it is flushed, and what it held by then.
class FlushLog : public std::stringbuf {
public:
    std::vector<string> seen;

private:
    int sync() override {
        seen.push_back(str());
        return std::stringbuf::sync();
    }
};

TEST(XMLWrite, FlushesAtEveryLineEnd) {
    XMLDeclaration root("r");
    addChild(root, "a", "text");
    FlushLog log;
    std::ostream out(&log);
    root.Write(out);
    EXPECT_EQ(log.seen,
              (std::vector<string>{"<r>\n", "<r>\n<a>text</a>\n", "<r>\n<a>text</a>\n</r>\n"}));
}

// Keeps each piece that is written.
class PieceLog : public std::streambuf {
public:
    std::vector<string> seen;

private:
    std::streamsize xsputn(const char* text, std::streamsize length) override {
        seen.emplace_back(text, static_cast<std::size_t>(length));
        return length;
    }
};

TEST(XMLWrite, WritesAShortLineAsOnePiece) {
    XMLDeclaration root("r");
    addChild(root, "a", "text & more").AddAttr("key", "value");
    PieceLog log;
    std::ostream out(&log);
    root.Write(out);
    EXPECT_EQ(log.seen,
              (std::vector<string>{"<r>\n", "<a key=\"value\">text &amp; more</a>\n", "</r>\n"}));
}

std::unique_ptr<XMLDocument> sample() {
    auto document = std::make_unique<XMLDocument>("cfg", true);
    document->AddAttr("k", "v & w");
    addChild(*document, "a", "text");
    addChild(addChild(*document, "b"), "c");
    return document;
}

TEST(XMLWrite, AStreamThatFailsAnywhereHoldsWhatItTookUntilThen) {
    const string whole = writtenWithDigest(*sample());
    for (const bool throws : {false, true}) {
        for (std::size_t limit = 0; limit <= whole.size(); ++limit) {
            const auto document = sample();
            support::FailsAfter device(limit, throws);
            std::ostream out(&device);
            document->Write(out);
            EXPECT_EQ(device.text(), whole.substr(0, limit));
            EXPECT_EQ(out.bad(), limit < whole.size());
            EXPECT_EQ(document->GetAttributes().size(), 1u);
        }
    }
}

TEST(XMLWrite, TheDigestIsGoneFromTheTreeAlsoWhenWritingThrows) {
    const string whole = writtenWithDigest(*sample());
    for (std::size_t limit = 0; limit < whole.size(); ++limit) {
        const auto document = sample();
        document->AddAttr("Hash", "of the caller");
        support::FailsAfter device(limit, true);
        std::ostream out(&device);
        out.exceptions(std::ios::badbit);
        EXPECT_THROW(document->Write(out), support::DeviceFailure);
        EXPECT_EQ(document->GetAttributes(), (std::list<XMLDeclaration::Attribute>{
                                                 {"k", "v & w"}, {"Hash", "of the caller"}}));
    }
}

mode_t modeOf(const string& path) {
    struct stat now {};
    return stat(path.c_str(), &now) == 0 ? now.st_mode & 07777 : 0;
}

// Sets the process's mask of permissions for a while.
class Umask {
public:
    explicit Umask(mode_t mask) : before_(umask(mask)) {}
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;
    ~Umask() { umask(before_); }

private:
    mode_t before_;
};

class XMLSave : public testing::Test {
protected:
    XMLSave() {
        std::filesystem::permissions(folder.path(), std::filesystem::perms::all);
        chmods.clear();
    }

    ~XMLSave() override {
        std::vector<Before>().swap(chmods);
        std::vector<Before>().swap(fchmods);
        chmodResult = 0;
    }

    // What is said on standard error while `document` is saved, and whether it was.
    std::pair<bool, string> save(const string& path, bool restrictAccess) {
        const support::CapturedStderr said;
        const bool saved = document.Save(path.c_str(), restrictAccess);
        return {saved, said.text()};
    }

    support::ScratchDirectory folder;
    XMLDocument document{"cfg"};
    const std::pair<bool, string> kSilently{true, ""};
};

TEST_F(XMLSave, WritesTheDocument) {
    EXPECT_EQ(save(folder.path("new"), false), kSilently);
    EXPECT_EQ(contentOf(folder.path("new")), "<cfg></cfg>\n");
}

TEST_F(XMLSave, WritesTheDigestOfADocumentThatHasOne) {
    document.UseHash(true);
    EXPECT_EQ(save(folder.path("new"), false), kSilently);
    EXPECT_EQ(contentOf(folder.path("new")), writtenWithDigest(document));
    EXPECT_NE(contentOf(folder.path("new")).find(" Hash=\""), string::npos);
}

TEST_F(XMLSave, EmptiesAFileThatExistsAndLeavesItsPermissions) {
    folder.write("old", string(1000, 'x'));
    for (const bool restricts : {true, false}) {
        for (const mode_t mode : {mode_t{0644}, mode_t{0666}, mode_t{0600}, mode_t{0777}}) {
            ASSERT_EQ(syscall(SYS_fchmodat, AT_FDCWD, folder.path("old").c_str(), mode), 0);
            EXPECT_EQ(save(folder.path("old"), restricts), kSilently);
            EXPECT_EQ(contentOf(folder.path("old")), "<cfg></cfg>\n");
            EXPECT_EQ(modeOf(folder.path("old")), mode);
        }
    }
    EXPECT_TRUE(chmods.empty());
    EXPECT_TRUE(fchmods.empty());
}

TEST_F(XMLSave, NarrowsOnlyANewFileAndOnlyWhenAsked) {
    const support::OrdinaryUser user;
    for (const mode_t mask :
         {mode_t{0}, mode_t{022}, mode_t{077}, mode_t{0200}, mode_t{0277}, mode_t{0777}}) {
        const Umask masked(mask);
        const string suffix = std::to_string(mask);
        EXPECT_EQ(save(folder.path("narrow" + suffix), true), kSilently);
        EXPECT_EQ(modeOf(folder.path("narrow" + suffix)), mode_t{0600}) << mask;
        EXPECT_EQ(contentOf(folder.path("narrow" + suffix)), "<cfg></cfg>\n");
        EXPECT_EQ(save(folder.path("plain" + suffix), false), kSilently);
        EXPECT_EQ(modeOf(folder.path("plain" + suffix)), 0666 & ~mask) << mask;
    }
}

TEST_F(XMLSave, ANewFileIsNarrowBeforeAnythingIsInIt) {
    const Umask masked(0);
    EXPECT_EQ(save(folder.path("new"), true), kSilently);
    ASSERT_EQ(fchmods.size(), 1u);
    EXPECT_EQ(fchmods[0].mode, mode_t{0600});
    EXPECT_EQ(fchmods[0].size, 0);
    ASSERT_EQ(chmods.size(), 1u);
    EXPECT_EQ(chmods[0].mode, mode_t{0600});
    EXPECT_EQ(chmods[0].size, 12);
}

TEST_F(XMLSave, NarrowsAlsoThroughDescriptor0AndClosesIt) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    EXPECT_TRUE(document.Save(folder.path("new").c_str(), true));
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    EXPECT_EQ(fchmods.size(), 1u);
    dup2(input, STDIN_FILENO);
    close(input);
}

TEST_F(XMLSave, IgnoresWhatTheLastNarrowingGives) {
    chmodResult = -1;
    EXPECT_EQ(save(folder.path("new"), true), kSilently);
    EXPECT_EQ(chmods.size(), 1u);
}

TEST_F(XMLSave, MakesTheFileThatADanglingLinkPointsTo) {
    ASSERT_EQ(symlink("target", folder.path("link").c_str()), 0);
    EXPECT_EQ(save(folder.path("link"), true), kSilently);
    EXPECT_EQ(contentOf(folder.path("target")), "<cfg></cfg>\n");
    EXPECT_EQ(modeOf(folder.path("target")), mode_t{0600});
    EXPECT_TRUE(std::filesystem::is_symlink(folder.path("link")));
}

TEST_F(XMLSave, LeavesThePermissionsOfWhatALinkPointsTo) {
    folder.write("target", "");
    const mode_t before = modeOf(folder.path("target"));
    ASSERT_EQ(symlink("target", folder.path("link").c_str()), 0);
    EXPECT_EQ(save(folder.path("link"), true), kSilently);
    EXPECT_EQ(modeOf(folder.path("target")), before);
}

TEST_F(XMLSave, ReportsAFileThatCannotBeOpened) {
    const string path = folder.path("missing/file");
    for (const bool restricts : {false, true}) {
        EXPECT_EQ(save(path, restricts),
                  std::make_pair(false, "ERROR: Can`t open cfg file [" + path + "] for writing\n"));
    }
    EXPECT_EQ(save(folder.path(""), false).first, false);
    EXPECT_EQ(save("", false),
              std::make_pair(false, string("ERROR: Can`t open cfg file [] for writing\n")));
    EXPECT_TRUE(chmods.empty());
}

TEST_F(XMLSave, ReportsAForbiddenFile) {
    const support::OrdinaryUser user;
    folder.write("old", "kept");
    ASSERT_EQ(syscall(SYS_fchmodat, AT_FDCWD, folder.path("old").c_str(), 0444), 0);
    if (access(folder.path("old").c_str(), W_OK) == 0 && geteuid() == 0)
        GTEST_SKIP() << "needs a user whom permissions bind";
    EXPECT_EQ(save(folder.path("old"), true),
              std::make_pair(false, "ERROR: Can`t open cfg file [" + (folder.path("old")) +
                                        "] for writing\n"));
    EXPECT_EQ(contentOf(folder.path("old")), "kept");
}

TEST_F(XMLSave, TakesANullPathForNoFile) {
    const support::CapturedStderr said;
    EXPECT_FALSE(document.Save(nullptr, true));
    EXPECT_EQ(said.text(), "ERROR: Can`t open cfg file [] for writing\n");
}

TEST_F(XMLSave, Deliberate_DoesNotNoticeErrorsInWriting) {
    if (access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "needs /dev/full";
    EXPECT_EQ(save("/dev/full", true), kSilently);
}

} // namespace
