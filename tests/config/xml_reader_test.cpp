// Reading: what is accepted and what it becomes, what is refused and with which words, and streams
// that fail, end, trickle or throw.

#include "config/vpnxml.h"
#include "tests/config/xml_model.h"
#include "tests/config/xml_random.h"
#include "tests/config/xml_support.h"
#include "tests/support/captured_stderr.h"
#include "tests/support/failing_buffers.h"
#include "tests/support/scratch.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <list>
#include <locale>
#include <memory>
#include <pthread.h>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using std::string;
using support::contentOf;
using xml_model::Node;
using xml_support::addChild;
using xml_support::errorOf;
using xml_support::readInto;
using xml_support::restOf;
using xml_support::written;

// A text, and how the document looks that was read from it.
struct Accepted {
    string text;
    string written;
};

// Without it, the bytes of the object would be printed, unused ones included.
void PrintTo(const Accepted& shown, std::ostream* out) {
    *out << shown.text;
}

class XMLReadAccepts : public testing::TestWithParam<Accepted> {};

TEST_P(XMLReadAccepts, AndBuildsTheTree) {
    XMLDocument document;
    EXPECT_EQ(readInto(document, GetParam().text), "");
    EXPECT_EQ(written(document), GetParam().written);
}

INSTANTIATE_TEST_SUITE_P(
    Elements, XMLReadAccepts,
    testing::Values(Accepted{"<a/>", "<a></a>\n"}, Accepted{"<a></a>", "<a></a>\n"},
                    Accepted{"<a />", "<a></a>\n"},
                    Accepted{" \t\n\r\v\f<a/> \t\n\r\v\f", "<a></a>\n"},
                    Accepted{"< a></ a>", "<a></a>\n"}, Accepted{"< a\n>< / a >", "<a></a>\n"},
                    Accepted{"<a><b/></a>", "<a>\n<b></b>\n</a>\n"},
                    Accepted{"<a>\n\t<b>x</b>\n\t<c/>\n</a>", "<a>\n<b>x</b>\n<c></c>\n</a>\n"},
                    Accepted{"<a><a><a/></a></a>", "<a>\n<a>\n<a></a>\n</a>\n</a>\n"},
                    Accepted{"<x:y.z-1_?!&\"'/>", "<x:y.z-1_?!&\"'></x:y.z-1_?!&\"'>\n"},
                    Accepted{"<\xFF/>", "<\xFF></\xFF>\n"}, Accepted{"<a?/>", "<a?></a?>\n"},
                    // These two are white space, but end no word.
                    Accepted{"<\va\f></a\f>", "<a\f></a\f>\n"}));

INSTANTIATE_TEST_SUITE_P(
    Attributes, XMLReadAccepts,
    testing::Values(Accepted{"<a b='1' b=\"2\"/>", "<a b=\"1\" b=\"2\"></a>\n"},
                    Accepted{"<a b = '1'\n\tc='2' />", "<a b=\"1\" c=\"2\"></a>\n"},
                    Accepted{"<a b='1'c='2'/>", "<a b=\"1\" c=\"2\"></a>\n"},
                    Accepted{"<a b=''/>", "<a b=\"\"></a>\n"},
                    Accepted{"<a b='\"' c=\"'\"/>", "<a b=\"&quot;\" c=\"'\"></a>\n"},
                    Accepted{"<a b=' x\n/><= '/>", "<a b=\" x\n/&gt;&lt;= \"></a>\n"},
                    Accepted{"<a b='&amp;&apos;&gt;&lt;&quot;'/>",
                             "<a b=\"&amp;'&gt;&lt;&quot;\"></a>\n"},
                    Accepted{"<a b='&#x22;'>x</a>", "<a b=\"&quot;\">x</a>\n"},
                    Accepted{"<a =''/>", "<a =\"\"></a>\n"},
                    Accepted{"<a \"b\"='c'/>", "<a \"b\"=\"c\"></a>\n"},
                    Accepted{"<a b='\xFF\x80'/>", "<a b=\"\xFF\x80\"></a>\n"}));

INSTANTIATE_TEST_SUITE_P(
    Bodies, XMLReadAccepts,
    testing::Values(Accepted{"<a>  x y  </a>", "<a>x y  </a>\n"},
                    Accepted{"<a>   </a>", "<a></a>\n"},
                    Accepted{"<a>\n\v\fx\n</a>", "<a>x\n</a>\n"},
                    Accepted{"<a>&#x41;&#065;&lt;</a>", "<a>AA&lt;</a>\n"},
                    Accepted{"<a>&#x9;</a>", "<a>\t</a>\n"},
                    Accepted{"<a>&#x0a;x</a>", "<a>\nx</a>\n"},
                    Accepted{"<a>&amp;&apos;&gt;&lt;&quot;</a>", "<a>&amp;'&gt;&lt;\"</a>\n"},
                    Accepted{"<a>&#xFf;&#0255;</a>", "<a>\xFF\xFF</a>\n"},
                    Accepted{"<a>&#x00000000041;&#x00000000000065;</a>", "<a>Ae</a>\n"},
                    Accepted{"<a>x>y]]>\"'/=;#</a>", "<a>x&gt;y]]&gt;\"'/=;#</a>\n"},
                    Accepted{"<a>\xFF\x80\xEF</a>", "<a>\xFF\x80\xEF</a>\n"}));

INSTANTIATE_TEST_SUITE_P(Comments, XMLReadAccepts,
                         testing::Values(Accepted{"<!-- c --><a/>", "<a></a>\n"},
                                         Accepted{"<!----><a/>", "<a></a>\n"},
                                         Accepted{"<!--1--> <!--2--><a><!--3--><b/><!--4--></a>",
                                                  "<a>\n<b></b>\n</a>\n"},
                                         Accepted{"<a><!-- c --></a>", "<a></a>\n"},
                                         Accepted{"<a>x<!-- c --></a>", "<a>x</a>\n"},
                                         Accepted{"<!-- <a> & - -- --x --><a/>", "<a></a>\n"},
                                         Accepted{"<!-->--><a/>", "<a></a>\n"},
                                         Accepted{"<!-- -\xFF- --><a/>", "<a></a>\n"}));

INSTANTIATE_TEST_SUITE_P(
    Beginnings, XMLReadAccepts,
    testing::Values(
        Accepted{"<?xml version=\"1.0\"?><!-- c --><a/>", "<a></a>\n"},
        Accepted{"<?xml version='1.0' encoding=\"x&amp;y\" standalone='?'?><a/>", "<a></a>\n"},
        Accepted{"<?xml ?><a/>", "<a></a>\n"}, Accepted{" <?xml\n?>\n<a/>", "<a></a>\n"},
        Accepted{"<?xml='1'?><a/>", "<a></a>\n"}, Accepted{"<?xml a = ='' ?><a/>", "<a></a>\n"},
        Accepted{"\xEF\xBB\xBF<a/>", "<a></a>\n"}, Accepted{" \n\xEF\xBB\xBF<a/>", "<a></a>\n"},
        Accepted{"\xEF\xBB\xBF<?xml ?><a/>", "<a></a>\n"},
        Accepted{"\xEF\xBB\xBF<!-- c --><a/>", "<a></a>\n"}));

INSTANTIATE_TEST_SUITE_P(Deliberate_DecimalReferencesDropOneByte, XMLReadAccepts,
                         testing::Values(Accepted{"<a>&#065;</a>", "<a>A</a>\n"},
                                         Accepted{"<a>&#X065;&#X41;</a>", "<a>A)</a>\n"},
                                         Accepted{"<a>&# 65;&#\xFF"
                                                  "65;&#;65;</a>",
                                                  "<a>AAA</a>\n"}));

INSTANTIATE_TEST_SUITE_P(Deliberate_ThreeDashesEndNoComment, XMLReadAccepts,
                         testing::Values(Accepted{"<!-- a ---> still inside --><a/>", "<a></a>\n"},
                                         Accepted{"<!-- ---> ---> --><a/>", "<a></a>\n"}));

// What a stricter reader would refuse.
INSTANTIATE_TEST_SUITE_P(
    Deliberate_Oddities, XMLReadAccepts,
    testing::Values(Accepted{"<a b=/>", "<a b=\"\"></a>\n"},
                    Accepted{"<a b=></a>", "<a b=\"\"></a>\n"},
                    Accepted{"<a b==''/>", "<a b=\"\" =\"\"></a>\n"}, Accepted{"<></>", "<></>\n"},
                    Accepted{"</a></a>", "<a></a>\n"},
                    Accepted{"</a><b/></a>", "<a>\n<b></b>\n</a>\n"},
                    Accepted{"</a>x</a>", "<a>x</a>\n"}, Accepted{"<a>x<a/>", "<a>x</a>\n"},
                    Accepted{"<a>x<a b='c'/>", "<a>x</a>\n"},
                    Accepted{"<a><b>x<b/></a>", "<a>\n<b>x</b>\n</a>\n"}, Accepted{"x", "<></>\n"},
                    Accepted{" x ", "<></>\n"}, Accepted{"\xFF", "<></>\n"},
                    Accepted{"\xEF\xBB\xBF\n", "<></>\n"}, Accepted{"\xEF\xBB\xBFx ", "<></>\n"}));

// A text, and what is said of it.
struct Refused {
    string text;
    string message;
};

const char kEnd[] = "Unexpected end of stream";

string endWhile(const string& expected) {
    return string(kEnd) + ", while '" + expected + "' ecpected";
}

void PrintTo(const Refused& shown, std::ostream* out) {
    *out << shown.text;
}

class XMLReadRefuses : public testing::TestWithParam<Refused> {};

TEST_P(XMLReadRefuses, WithItsMessage) {
    XMLDocument document;
    std::istringstream in(GetParam().text);
    try {
        document.Read(in);
        ADD_FAILURE() << "accepted";
    } catch (const XMLParserError& error) {
        EXPECT_EQ(error.what(), GetParam().message);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Ends, XMLReadRefuses,
    testing::Values(
        Refused{"", kEnd}, Refused{" \n", kEnd}, Refused{"<", kEnd}, Refused{"< ", kEnd},
        Refused{"<a", kEnd}, Refused{"<a ", kEnd}, Refused{"<a/", kEnd}, Refused{"<a>", kEnd},
        Refused{"<a> ", kEnd}, Refused{"<a>x", kEnd}, Refused{"<a><", kEnd}, Refused{"<a></", kEnd},
        Refused{"<a></a", kEnd}, Refused{"<a></a ", kEnd}, Refused{"<a>x</a", kEnd},
        Refused{"<a b='1'", kEnd}, Refused{"<a b=", kEnd}, Refused{"<a b= ", kEnd},
        Refused{"<a>&", kEnd}, Refused{"<a>&#", kEnd}, Refused{"<!", endWhile("<!--")},
        Refused{"<!-", endWhile("<!--")}, Refused{"<!--", endWhile("-->")},
        Refused{"<!-- -", endWhile("-->")}, Refused{"<!-- --", endWhile("-->")},
        Refused{"<!-- a --->", endWhile("-->")}, Refused{"<!-- c -->", kEnd},
        Refused{"<a><!-- c -->", kEnd}, Refused{"<a b='", endWhile("\" or '")},
        Refused{"<a b=\"x'", endWhile("\" or '")}, Refused{"<a b='&", kEnd},
        Refused{"<a>&a", endWhile("&amp; or &apos;")}, Refused{"<a>&am", endWhile("&amp;")},
        Refused{"<a>&amp", endWhile("&amp;")}, Refused{"<a>&ap", endWhile("&apos;")},
        Refused{"<a>&apo", endWhile("&apos;")}, Refused{"<a>&apos", endWhile("&apos;")},
        Refused{"<a>&g", endWhile("&gt;")}, Refused{"<a>&gt", endWhile("&gt;")},
        Refused{"<a>&l", endWhile("&lt;")}, Refused{"<a>&lt", endWhile("&lt;")},
        Refused{"<a>&q", endWhile("&quot;")}, Refused{"<a>&quot", endWhile("&quot;")},
        Refused{"<a>&#x", endWhile("#x<hex>;")}, Refused{"<a>&#x41", endWhile("#x<hex>;")},
        Refused{"<a>&#0", endWhile("#<num>;")}, Refused{"<a>&#065", endWhile("#<num>;")}));

INSTANTIATE_TEST_SUITE_P(EndsOfTheBeginning, XMLReadRefuses,
                         testing::Values(Refused{"\xEF", kEnd}, Refused{"\xEF\xBB", kEnd},
                                         Refused{"\xEF\xBB\xBF", kEnd}, Refused{"<?", kEnd},
                                         Refused{"<?xml", kEnd}, Refused{"<?xml ", kEnd},
                                         Refused{"<?xml ?", kEnd}, Refused{"<?xml ?>", kEnd},
                                         Refused{"<?xml a=", kEnd},
                                         Refused{"<?xml a='", endWhile("\" or '")}));

const char kNoEntity[] = "Unknown Entity";
const char kNotPrintable[] = "not printable hexadecimal char";

INSTANTIATE_TEST_SUITE_P(
    Entities, XMLReadRefuses,
    testing::Values(Refused{"<a>&nbsp;</a>", kNoEntity}, Refused{"<a>&;</a>", kNoEntity},
                    Refused{"<a>& </a>", kNoEntity}, Refused{"<a>&AMP;</a>", kNoEntity},
                    Refused{"<a>&amP;</a>", kNoEntity}, Refused{"<a>&amp</a>", kNoEntity},
                    Refused{"<a>&ax;</a>", kNoEntity}, Refused{"<a>&apo;</a>", kNoEntity},
                    Refused{"<a>&aposs;</a>", kNoEntity}, Refused{"<a>&gt </a>", kNoEntity},
                    Refused{"<a>&lx;</a>", kNoEntity}, Refused{"<a>&lt,</a>", kNoEntity},
                    Refused{"<a>&quit;</a>", kNoEntity}, Refused{"<a b='&b;'/>", kNoEntity},
                    Refused{"<a>&#65;</a>", kNotPrintable}, Refused{"<a>&#x;</a>", kNotPrintable},
                    Refused{"<a>&#0;</a>", kNotPrintable}, Refused{"<a>&#x8;</a>", kNotPrintable},
                    Refused{"<a>&#08;</a>", kNotPrintable}, Refused{"<a>&#x0;</a>", kNotPrintable},
                    Refused{"<a>&#x100;</a>", "to big hexadecimal value"},
                    Refused{"<a>&#x100", "to big hexadecimal value"},
                    Refused{"<a>&#x100z</a>", "to big hexadecimal value"},
                    Refused{"<a>&#xfff;</a>", "to big hexadecimal value"},
                    Refused{"<a>&#0256;</a>", "to big decimal value"},
                    Refused{"<a>&#0256", "to big decimal value"},
                    Refused{"<a>&#0999;</a>", "to big decimal value"},
                    Refused{"<a>&#xg;</a>", "invalid hexadecimal value"},
                    Refused{"<a>&#x4 ;</a>", "invalid hexadecimal value"},
                    Refused{"<a>&#x-1;</a>", "invalid hexadecimal value"},
                    Refused{"<a>&#xG;</a>", "invalid hexadecimal value"},
                    Refused{"<a>&#x@;</a>", "invalid hexadecimal value"},
                    Refused{"<a>&#x`;</a>", "invalid hexadecimal value"},
                    Refused{"<a>&#0a;</a>", "invalid decimal value"},
                    Refused{"<a>&#06/;</a>", "invalid decimal value"},
                    Refused{"<a>&#06:;</a>", "invalid decimal value"},
                    Refused{"<a>&#0x41;</a>", "invalid decimal value"}));

const char kNoTag[] = "'<' expected at begining of tag";
const char kNoComment[] = "'<!--' expected";
const char kTagEnd[] = "'>' expected at end of tag";
const char kEquals[] = "'=' expected";
const char kAfter[] = "End of file expected";

INSTANTIATE_TEST_SUITE_P(
    Tags, XMLReadRefuses,
    testing::Values(
        Refused{"<!DOCTYPE a><a/>", kNoComment}, Refused{"<a><![CDATA[x]]></a>", kNoComment},
        Refused{"<!- c --><a/>", kNoComment}, Refused{"<a><b/>x</a>", kNoTag},
        Refused{"<a><!-- c -->x</a>", kNoTag}, Refused{"<!-- c -->x<a/>", kNoTag},
        Refused{"<?xml ?>x<a/>", kNoTag}, Refused{"<a/ >", kTagEnd}, Refused{"<a/b>", kTagEnd},
        Refused{"<a></a b>", kTagEnd}, Refused{"<a></a/>", kTagEnd},
        Refused{"<a></a='1'>", kTagEnd}, Refused{"<a b=1/>", kEquals}, Refused{"<a b/>", kEquals},
        Refused{"<a b>", kEquals}, Refused{"<a b", kEnd}, Refused{"<a b ", kEquals},
        Refused{"<a b c='1'/>", kEquals}, Refused{"<a;/>", kEquals},
        Refused{"<a b='1';/>", kEquals}, Refused{"<a><?pi x?></a>", kEquals},
        Refused{"<a><?pi?></a>", "?pi? [End tag mismatch]"}, Refused{"<a <b/>", kEquals}));

INSTANTIATE_TEST_SUITE_P(EndTags, XMLReadRefuses,
                         testing::Values(Refused{"<a></b>", "a [End tag mismatch]"},
                                         Refused{"<a></A>", "a [End tag mismatch]"},
                                         Refused{"<a></a\v>", "a [End tag mismatch]"},
                                         Refused{"<a>x</b>", "a [End tag mismatch]"},
                                         Refused{"<a>x<b/></a>", "a [End tag mismatch]"},
                                         Refused{"<a>x<b></b></a>", "a [End tag expected]"},
                                         Refused{"<a>x<a></a></a>", "a [End tag expected]"},
                                         Refused{"<a><b></c></a>", "b [End tag mismatch]"},
                                         Refused{"<a><b>x<c></b></a>", "b [End tag expected]"},
                                         Refused{"<></a>", " [End tag mismatch]"},
                                         Refused{"<a></>", "a [End tag mismatch]"},
                                         Refused{"<a><b></a></b>", "b [End tag mismatch]"}));

INSTANTIATE_TEST_SUITE_P(
    Beginnings, XMLReadRefuses,
    testing::Values(Refused{"<?xml?><a/>", "\"xml\" expected"},
                    Refused{"<?XML ?><a/>", "\"xml\" expected"},
                    Refused{"<?pi ?><a/>", "\"xml\" expected"},
                    Refused{"<?xmlx ?><a/>", "\"xml\" expected"},
                    Refused{"<?xml version?><a/>", kEquals}, Refused{"<?xml a=1?><a/>", kEquals},
                    Refused{"<?xml a='1' ? ><a/>", "\"?>\" expected"},
                    Refused{"<?xml ?a", "\"?>\" expected"}, Refused{"< ?xml ?><a/>", kEquals},
                    Refused{"\xEF\xBB\xBC<a/>", "Unexpected symbol, when parsing Byte Order Mark "
                                                "(BOM). UTF-8 only supported: EF BB BF"},
                    Refused{"\xEF<a/>", "Unexpected symbol, when parsing Byte Order Mark (BOM). "
                                        "UTF-8 only supported: EF BB BF"},
                    Refused{"\xEF\xBB\xBF\n<a/>", kAfter}, Refused{"\xFE\xFF<a/>", kAfter},
                    Refused{"xy", kAfter}, Refused{"x<a/>", kAfter}));

INSTANTIATE_TEST_SUITE_P(Endings, XMLReadRefuses,
                         testing::Values(Refused{"<a/><!-- c -->", kAfter},
                                         Refused{"<a/>x", kAfter}, Refused{"<a/><b/>", kAfter},
                                         Refused{"<a></a>\n</a>", kAfter},
                                         Refused{string("<a/>\0", 5), kAfter},
                                         Refused{"<a/>\xFF", kAfter}));

TEST(XMLRead, AppendsToWhatTheDocumentHas) {
    XMLDocument document("old");
    document.AddAttr("k", "1");
    document.SetBody("text");
    addChild(document, "first");
    EXPECT_EQ(readInto(document, "<new l='2'><second/></new>"), "");
    EXPECT_EQ(written(document),
              "<new k=\"1\" l=\"2\">\n<first></first>\n<second></second>\n</new>\n");
    EXPECT_EQ(document.GetBody(), "text");
}

TEST(XMLRead, ReplacesABodyByTextOnly) {
    XMLDocument document;
    document.SetBody("old");
    EXPECT_EQ(readInto(document, "<a/>"), "");
    EXPECT_EQ(readInto(document, "<a> </a>"), "");
    EXPECT_EQ(document.GetBody(), "old");
    EXPECT_EQ(readInto(document, "<a>new</a>"), "");
    EXPECT_EQ(document.GetBody(), "new");
}

TEST(XMLRead, ReadsADocumentAgainAfterEraseAll) {
    XMLDocument document;
    for (const char* text : {"<a/>", "<b k='v'>x</b>", "</c></c>", "<d><e/></d>"}) {
        document.EraseAll();
        EXPECT_EQ(readInto(document, text), "") << text;
    }
    EXPECT_EQ(written(document), "<d>\n<e></e>\n</d>\n");
}

TEST(XMLRead, GivesNewElementsNoIndent) {
    XMLDocument document;
    EXPECT_EQ(readInto(document, "<a>\n\t<b>\n\t\t<c/></b></a>"), "");
    EXPECT_EQ(document.GetChildren()[0]->GetIndentLevel(), 0u);
    EXPECT_EQ(document.GetChildren()[0]->GetChildren()[0]->GetIndentLevel(), 0u);
}

TEST(XMLRead, AnErrorLeavesWhatWasComplete) {
    const struct {
        const char* text;
        const char* written;
    } table[] = {{"<a k='1' l='2", "<a k=\"1\" l=\"\"></a>\n"},
                 {"<a k='1' l", "<a k=\"1\" =\"\"></a>\n"},
                 {"<a k='1' l=1>", "<a k=\"1\" l=\"\" 1=\"\"></a>\n"},
                 {"<a>text", "<a></a>\n"},
                 {"<a>text</b>", "<a>text</a>\n"},
                 {"<a><b/><c>x</c><d><e/></d", "<a>\n<b></b>\n<c>x</c>\n</a>\n"},
                 {"<a><b><c/></b></d>", "<a>\n<b>\n<c></c>\n</b>\n</a>\n"},
                 {"<a><b/></a>x", "<a>\n<b></b>\n</a>\n"}};
    for (const auto& row : table) {
        XMLDocument document("name");
        EXPECT_NE(readInto(document, row.text), "") << row.text;
        EXPECT_EQ(written(document), row.written) << row.text;
    }
    XMLDocument document("name");
    EXPECT_EQ(readInto(document, "<half"), kEnd);
    EXPECT_EQ(document.GetName(), "name");
}

TEST(XMLRead, LetsAThreadEndWhileItReads) {
    EXPECT_TRUE(support::isCancelledIn("<a>text", [](std::istream& in) {
        XMLDocument document;
        document.Read(in);
    }));
}

TEST(XMLRead, TakesForWhiteSpaceWhatTheStreamsLocaleDoes) {
    std::ctype_base::mask table[std::ctype<char>::table_size];
    std::copy_n(std::ctype<char>::classic_table(), std::ctype<char>::table_size, table);
    table[std::size_t{'_'}] |= std::ctype_base::space;
    std::istringstream in("__<a_>__x_</a__>_");
    in.imbue(std::locale(std::locale::classic(), new std::ctype<char>(table)));
    XMLDocument document;
    EXPECT_EQ(xml_support::messageOf([&] { document.Read(in); }), "a_ [End tag mismatch]");
    EXPECT_EQ(document.GetBody(), "x_");
}

TEST(XMLReadDecl, ReadsEveryKindOfTagAndNothingBehindIt) {
    const struct {
        const char* text;
        bool selfClosing;
        bool closing;
        const char* rest;
    } table[] = {{"<a>rest", false, false, "rest"},
                 {" <!-- c --> < / a > rest", false, true, " rest"},
                 {"<a/> <b/>", true, true, " <b/>"}};
    for (const auto& row : table) {
        XMLDeclaration::tag tag("before");
        std::istringstream in(row.text);
        EXPECT_EQ(tag.ReadDecl(in), row.selfClosing) << row.text;
        EXPECT_EQ(tag.IsClosing(), row.closing) << row.text;
        EXPECT_EQ(tag.GetName(), "a") << row.text;
        EXPECT_TRUE(in.good());
        EXPECT_EQ(restOf(in), row.rest);
    }
}

TEST(XMLReadDecl, SetsTheClosingFlagAnewAndKeepsAttributes) {
    XMLDeclaration::tag tag;
    std::istringstream in("<a k='1'/></b><c l='2'>");
    EXPECT_TRUE(tag.ReadDecl(in));
    EXPECT_FALSE(tag.ReadDecl(in));
    EXPECT_TRUE(tag.IsClosing());
    EXPECT_FALSE(tag.ReadDecl(in));
    EXPECT_FALSE(tag.IsClosing());
    EXPECT_EQ(tag.GetName(), "c");
    EXPECT_EQ(tag.GetAttributes(), (std::list<XMLDeclaration::Attribute>{{"k", "1"}, {"l", "2"}}));
}

TEST(XMLReadDecl, AnErrorClearsTheClosingFlagToo) {
    XMLDeclaration::tag tag;
    std::istringstream in("<a/>x");
    tag.ReadDecl(in);
    EXPECT_THROW(tag.ReadDecl(in), XMLParserError);
    EXPECT_FALSE(tag.IsClosing());
    EXPECT_EQ(tag.GetName(), "a");
}

TEST(XMLReadAttribs, ReturnsTheByteThatEndsThemWithoutTakingIt) {
    for (const char end : {'/', '>'}) {
        XMLDeclaration::tag tag;
        std::istringstream in(string(" k='1' l=\"2\" ") + end);
        EXPECT_EQ(tag.ReadAttribs(in), end);
        EXPECT_EQ(in.get(), end);
        EXPECT_EQ(tag.GetAttributes(),
                  (std::list<XMLDeclaration::Attribute>{{"k", "1"}, {"l", "2"}}));
    }
    XMLDeclaration::tag tag;
    std::istringstream in(" ");
    EXPECT_EQ(xml_support::messageOf([&] { tag.ReadAttribs(in); }), kEnd);
}

TEST(XMLDeclarationRead, ReadsContentAndEndTag) {
    const struct {
        const char* text;
        const char* written;
    } table[] = {{"</a> rest", "<a></a>\n"},
                 {" x </a> rest", "<a>x </a>\n"},
                 {" <b/>\n<c>y</c> </a> rest", "<a>\n<b></b>\n<c>y</c>\n</a>\n"}};
    for (const auto& row : table) {
        XMLDeclaration element("a");
        std::istringstream in(row.text);
        element.Read(in);
        EXPECT_EQ(written(element), row.written);
        EXPECT_EQ(restOf(in), " rest");
    }
}

TEST(XMLDeclarationRead, NamesTheElementThatShouldEnd) {
    for (const char* text : {"</b>", "x</b>", "<c/></b>"}) {
        XMLDeclaration element("a");
        std::istringstream in(text);
        EXPECT_EQ(xml_support::messageOf([&] { element.Read(in); }), "a [End tag mismatch]")
            << text;
    }
}

TEST(XMLReadElements, ReturnsTheFirstEndTagThatIsNotOneOfTheChildren) {
    XMLDeclaration element("a");
    std::istringstream in("<!-- c --><b/><c><d>x</d></c></anything > rest");
    const std::unique_ptr<XMLDeclaration::tag> end = element.ReadElements(in);
    ASSERT_NE(end, nullptr);
    EXPECT_EQ(end->GetName(), "anything");
    EXPECT_TRUE(end->IsClosing());
    EXPECT_EQ(written(element), "<a>\n<b></b>\n<c>\n<d>x</d>\n</c>\n</a>\n");
    EXPECT_EQ(restOf(in), " rest");
}

TEST(XMLReadElements, AnErrorLeavesTheCompleteChildren) {
    XMLDeclaration element("a");
    std::istringstream in("<b/><c><d/><e></c></a>");
    EXPECT_EQ(xml_support::messageOf([&] { element.ReadElements(in); }), "e [End tag mismatch]");
    EXPECT_EQ(written(element), "<a>\n<b></b>\n</a>\n");
}

TEST(XMLProcessHeader, ReadsTheRestOfADeclaration) {
    XMLDocument document("a");
    std::istringstream in("?xml version='1.0' ?> rest");
    document.processXMLheader(in);
    EXPECT_EQ(restOf(in), " rest");
    EXPECT_EQ(written(document), "<a></a>\n");
    std::istringstream other("?pi ?>");
    EXPECT_EQ(xml_support::messageOf([&] { document.processXMLheader(other); }),
              "\"xml\" expected");
}

class XMLLoad : public testing::Test {
protected:
    // What is said on standard error while the file at `path` is loaded, and whether it was.
    std::pair<bool, string> load(const string& path) {
        const support::CapturedStderr said;
        const bool loaded = document.Load(path.c_str());
        return {loaded, said.text()};
    }

    std::pair<bool, string> parseError(const string& path, const string& message) const {
        return {false, "PARSE ERROR: [" + path + "] : " + message + "\n"};
    }

    support::ScratchDirectory folder;
    XMLDocument document{"cfg"};
};

TEST_F(XMLLoad, ReadsAFile) {
    folder.write("file", "<a><b/></a>\n");
    EXPECT_EQ(load(folder.path("file")), std::make_pair(true, string()));
    EXPECT_EQ(written(document), "<a>\n<b></b>\n</a>\n");
}

TEST_F(XMLLoad, AMissingFileLeavesTheDocument) {
    addChild(document, "kept");
    const string path = folder.path("missing");
    EXPECT_EQ(load(path),
              std::make_pair(false, "WARNING: Can`t open cfg file [" + path + "] for reading\n"));
    EXPECT_EQ(written(document), "<cfg>\n<kept></kept>\n</cfg>\n");
    EXPECT_EQ(load(""),
              std::make_pair(false, string("WARNING: Can`t open cfg file [] for reading\n")));
}

TEST_F(XMLLoad, TakesANullPathForNoFile) {
    const support::CapturedStderr said;
    EXPECT_FALSE(document.Load(nullptr));
    EXPECT_EQ(said.text(), "WARNING: Can`t open cfg file [] for reading\n");
}

TEST_F(XMLLoad, AMalformedFileLeavesTheDocumentEmptyButNamed) {
    const string path = folder.path("file");
    document.SetBody("text");
    document.SetIndentLevel(3);
    folder.write("file", "<half");
    EXPECT_EQ(load(path), parseError(path, kEnd));
    EXPECT_EQ(written(document), "\t\t\t<cfg></cfg>\n");
    folder.write("file", "<a k='v'><b/>x</a>");
    EXPECT_EQ(load(path), parseError(path, kNoTag));
    EXPECT_EQ(written(document), "\t\t\t<a></a>\n") << "the name that was read by then";
    folder.write("file", "");
    EXPECT_EQ(load(path), parseError(path, kEnd));
}

TEST_F(XMLLoad, AWrongDigestIsAnErrorOfTheFile) {
    const string path = folder.path("file");
    document.UseHash(true);
    folder.write("file", "<a><b/></a>");
    EXPECT_EQ(load(path), parseError(path, "empty hash attribute"));
    EXPECT_EQ(written(document), "<a></a>\n");
    folder.write("file", "<a Hash='0'><b/></a>");
    EXPECT_EQ(load(path), parseError(path, "invalid hash"));
    EXPECT_EQ(written(document), "<a></a>\n");
}

TEST_F(XMLLoad, ADirectoryCannotBeRead) {
    const string path = folder.path("");
    EXPECT_EQ(load(path), parseError(path, "Read error"));
}

// What is no std::exception goes on, and finds the file closed.
TEST_F(XMLLoad, LetsAThreadEndWhileItWaitsForMore) {
    const support::CapturedStderr said;
    const string path = folder.path("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const auto run = [](void* name) -> void* {
        XMLDocument().Load(static_cast<const char*>(name));
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, run, const_cast<char*>(path.c_str())), 0);
    const int writer = open(path.c_str(), O_WRONLY);
    EXPECT_EQ(write(writer, "<a>", 3), 3);
    for (int left = 3; left > 0;)
        ioctl(writer, FIONREAD, &left);
    pthread_cancel(thread);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(write(writer, "x", 1), -1) << "the pipe is still open for reading";
    close(writer);
    EXPECT_EQ(said.text(), "");
}

TEST_F(XMLLoad, GivesBackWhatSaveWrote) {
    document.UseHash(true);
    document.AddAttr("k", "\"'<&>");
    addChild(document, "a", "x > y & z");
    addChild(addChild(document, "b"), "c");
    document.FormatLineIndents(1);
    ASSERT_TRUE(document.Save(folder.path("file").c_str(), true));
    XMLDocument again("other", true);
    ASSERT_TRUE(again.Load(folder.path("file").c_str()));
    document.FormatLineIndents(0);
    document.GetElementByName("b")->GetChildren()[0]->SetIndentLevel(0);
    EXPECT_EQ(written(again), written(document));
}

} // namespace
