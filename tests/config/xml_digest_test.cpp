// The digest that a document carries. Digests that are written out here are md5sum's, of the bytes
// that are named beside them.

#include "config/vpnxml.h"
#include "digest/_md5.h"
#include "tests/config/xml_random.h"
#include "tests/config/xml_support.h"

#include <algorithm>
#include <cctype>
#include <gtest/gtest.h>
#include <list>
#include <memory>
#include <sstream>
#include <string>

namespace {

using std::string;
using xml_support::addChild;
using xml_support::readInto;
using xml_support::written;
using xml_support::writtenWithDigest;
using Attributes = std::list<XMLDeclaration::Attribute>;

const char kMissing[] = "empty hash attribute";
const char kInvalid[] = "invalid hash";

// The digest that `document` is written with.
string digestOf(XMLDocument& document) {
    const string line = writtenWithDigest(document);
    const string mark = " Hash=\"";
    return line.substr(line.rfind(mark, line.find('\n')) + mark.size(), 32);
}

string md5Of(const string& bytes) {
    char digits[33];
    return HashMD5(bytes.data(), bytes.size()).ToCSTR(digits, false);
}

// What is thrown when `text` is read with its digest demanded.
string errorOf(const string& text) {
    XMLDocument document("", true);
    return readInto(document, text);
}

TEST(XMLDigest, StandsOnTheRootAsItsLastAttribute) {
    XMLDocument document("cfg", true);
    EXPECT_EQ(writtenWithDigest(document),
              "<cfg Hash=\"011134986548f3458aa3e7e2a7fceb8d\"></cfg>\n"); // cfg
    document.AddAttr("k", "v & w");
    addChild(document, "a", "text");
    addChild(addChild(document, "b"), "c");
    EXPECT_EQ(
        writtenWithDigest(document),
        "<cfg k=\"v &amp; w\" Hash=\"eeae2ad7f0f5cc2f57e7789f6640f3e6\">\n" // cfgkv & watextbc
        "<a>text</a>\n<b>\n<c></c>\n</b>\n</cfg>\n");
}

TEST(XMLDigest, IsInTheTreeOnlyWhileItIsWritten) {
    XMLDocument document("cfg", true);
    document.AddAttr("k", "v");
    writtenWithDigest(document);
    EXPECT_EQ(document.GetAttributes(), (Attributes{{"k", "v"}}));
}

TEST(XMLDigest, IsNotWrittenWithoutTheFlag) {
    XMLDocument document("cfg");
    EXPECT_EQ(writtenWithDigest(document), "<cfg></cfg>\n");
    document.UseHash(true);
    EXPECT_NE(writtenWithDigest(document), "<cfg></cfg>\n");
    document.UseHash(false);
    EXPECT_EQ(writtenWithDigest(document), "<cfg></cfg>\n");
}

TEST(XMLDigest, WithoutTheFlagAHashOfTheCallerIsWrittenAndStays) {
    XMLDocument document("r");
    document.AddAttr("Hash", "mine");
    EXPECT_EQ(writtenWithDigest(document), "<r Hash=\"mine\"></r>\n");
    EXPECT_EQ(document.GetAttributes(), (Attributes{{"Hash", "mine"}}));
}

TEST(XMLDigest, TakesWholeStringsWithTheirNuls) {
    XMLDocument document(string("a\0b", 3), true);
    document.AddAttr(string("k\0", 2), "v");
    EXPECT_EQ(digestOf(document), "aa432b121fb2e363ffcc8768a3c6952b"); // a NUL b k NUL v
}

TEST(XMLDigest, TakesNoBodyBesideChildrenAndNoIndents) {
    XMLDocument document("r", true);
    document.SetBody("text");
    addChild(document, "a", "bc");
    document.FormatLineIndents(3);
    document.SetIndentLevel(2);
    EXPECT_EQ(digestOf(document), "faa11543db3078896324409a5676129b"); // rabc
}

TEST(XMLDigest, CountsANullChildAsOneThatSaysNothing) {
    XMLDocument document("cfg", true);
    document.SetBody("text");
    document.AddChild(nullptr);
    EXPECT_EQ(digestOf(document), "011134986548f3458aa3e7e2a7fceb8d"); // cfg
}

TEST(XMLDigest, HashIsAnOrdinaryAttributeOfOtherElements) {
    XMLDocument document("r", true);
    addChild(document, "a", "x").AddAttr("Hash", "2");
    const string text = writtenWithDigest(document);
    XMLDocument again("", true);
    EXPECT_EQ(readInto(again, text), "");
    EXPECT_EQ(again.GetChildren()[0]->GetAttr("Hash"), "2");
    EXPECT_EQ(digestOf(document), md5Of("raHash2x"));
}

TEST(XMLDigest, Deliberate_AnOldOneIsDigestedWrittenAndReplaced) {
    XMLDocument document("r", true);
    document.AddAttr("Hash", "old");
    document.AddAttr("k", "v");
    const string digest = md5Of("rHasholdkv");
    EXPECT_EQ(writtenWithDigest(document),
              "<r Hash=\"old\" k=\"v\" Hash=\"" + digest + "\"></r>\n");
    EXPECT_EQ(document.GetAttributes(), (Attributes{{"k", "v"}, {"Hash", digest}}));
}

TEST(XMLDigest, StringsThatJoinToTheSameGiveTheSame) {
    XMLDocument one("r", true);
    one.AddAttr("ab", "c");
    XMLDocument other("ra", true);
    other.AddAttr("b", "c");
    EXPECT_EQ(digestOf(one), digestOf(other));
}

TEST(XMLDigest, ChangesWithTheOrderOfAttributesAndOfChildren) {
    XMLDocument document("r", true);
    document.AddAttr("k", "1");
    document.AddAttr("l", "2");
    addChild(document, "a");
    addChild(document, "b");
    const string text = writtenWithDigest(document);
    EXPECT_EQ(errorOf(text), "");
    const string swappedChildren = text.substr(0, text.find('\n')) + "\n<b></b>\n<a></a>\n</r>\n";
    EXPECT_EQ(errorOf(swappedChildren), kInvalid);
    string swappedAttributes = text;
    swappedAttributes.replace(3, 11, "l=\"2\" k=\"1\"");
    ASSERT_EQ(text.substr(3, 11), "k=\"1\" l=\"2\"");
    EXPECT_EQ(errorOf(swappedAttributes), kInvalid);
}

// A document "cfg" with `attributes`.
string cfg(const string& attributes) {
    return "<cfg " + attributes + "></cfg>";
}

const string kDigits = "011134986548f3458aa3e7e2a7fceb8d"; // cfg

TEST(XMLDigestCheck, AcceptsExactlyTheDigits) {
    EXPECT_EQ(errorOf(cfg("Hash='" + kDigits + "'")), "");
    string upper = kDigits;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return std::toupper(c); });
    for (const string& value : {upper, "#MD5:" + kDigits, kDigits + "0", kDigits + " ",
                                " " + kDigits, kDigits.substr(0, 31), kDigits + string(1, '\0'),
                                kDigits + string("\0x", 2), string(1, '\0'), string("0")})
        EXPECT_EQ(errorOf(cfg("Hash='" + value + "'")), kInvalid) << value;
    for (std::size_t i = 0; i < kDigits.size(); ++i) {
        string changed = kDigits;
        changed[i] = changed[i] == '0' ? '1' : '0';
        EXPECT_EQ(errorOf(cfg("Hash='" + changed + "'")), kInvalid) << i;
    }
}

TEST(XMLDigestCheck, DemandsADigest) {
    EXPECT_EQ(errorOf("<cfg/>"), kMissing);
    EXPECT_EQ(errorOf(cfg("Hash=''")), kMissing);
    EXPECT_EQ(errorOf(cfg("hash='" + kDigits + "'")), kMissing);
    EXPECT_EQ(errorOf("<r><a Hash='" + kDigits + "'/></r>"), kMissing);
    EXPECT_EQ(errorOf("x"), kMissing);
}

TEST(XMLDigestCheck, ThrowsItsOwnErrorAndLeavesTheWholeDocument) {
    for (const char* text : {"<r k='v'><a>x</a></r>", "<r Hash='0' k='v'><a>x</a></r>"}) {
        XMLDocument document("", true);
        std::istringstream in(text);
        EXPECT_THROW(document.Read(in), XMLHashError);
        EXPECT_EQ(written(document), "<r k=\"v\">\n<a>x</a>\n</r>\n");
    }
}

TEST(XMLDigestCheck, AMalformedDocumentKeepsItsDigestAttribute) {
    XMLDocument document("", true);
    EXPECT_EQ(readInto(document, "<r Hash='0'></s>"), "r [End tag mismatch]");
    EXPECT_EQ(document.GetAttr("Hash"), "0");
}

TEST(XMLDigestCheck, TakesTheFirstHashAwayWhetherOrNotItIsDemanded) {
    for (const bool demanded : {false, true}) {
        XMLDocument document("", demanded);
        EXPECT_EQ(
            readInto(document, "<r Hash='" + md5Of("rkvHashsecond") + "' k='v' Hash='second'/>"),
            "");
        EXPECT_EQ(document.GetAttributes(), (Attributes{{"k", "v"}, {"Hash", "second"}}));
    }
    EXPECT_EQ(errorOf("<r Hash='first' Hash='" + md5Of("rHashfirst") + "'/>"), kInvalid);
}

TEST(XMLDigestCheck, WithoutTheFlagAnyDigestDoes) {
    for (const char* attributes : {"", "Hash=''", "Hash='0'"}) {
        XMLDocument document;
        EXPECT_EQ(readInto(document, cfg(attributes)), "");
        EXPECT_TRUE(document.GetAttributes().empty());
    }
}

TEST(XMLDigestCheck, DoesNotDependOnHowTheDocumentIsWritten) {
    XMLDocument document("r", true);
    document.AddAttr("k", "<v>");
    addChild(document, "a", "x < y ");
    const string digest = digestOf(document);
    for (const string& text :
         {"<r k=\"&lt;v>\" Hash=\"" + digest + "\">\n\t\t<a>x &lt; y </a>\n</r>\n",
          "<r Hash='" + digest + "' k='<v>'><a>x &#x3C; y </a></r>",
          "\xEF\xBB\xBF<?xml version='1.0'?><!-- c --><r k='&#x3c;v&gt;' Hash='" + digest +
              "'><!-- d --><a> \n x &lt; y <!-- e --></a></r>"})
        EXPECT_EQ(errorOf(text), "") << text;
    EXPECT_EQ(errorOf("<r k='<v>' Hash='" + digest + "'><a>x &lt; y</a></r>"), kInvalid);
}

TEST(XMLDigestCheck, ABodyWithLeadingWhiteSpaceDoesNotComeBack) {
    XMLDocument document("r", true);
    document.SetBody(" x");
    EXPECT_EQ(errorOf(writtenWithDigest(document)), kInvalid);
    document.SetBody("x ");
    EXPECT_EQ(errorOf(writtenWithDigest(document)), "");
}

TEST(XMLHashFunctor, FeedsOneCalculationThroughAllItsCopies) {
    XMLDeclaration root("r");
    root.AddAttr("k", "v");
    XMLDeclaration& child = addChild(root, "a", "unseen");
    child.AddAttr("l", "w");
    addChild(child, "b", "text");
    root.AddChild(nullptr);
    HashMD5_Calc calc;
    calc.Reset();
    XMLHashFunctor functor(&calc);
    std::for_each(root.GetAttributes().begin(), root.GetAttributes().end(), functor);
    std::for_each(root.GetChildren().begin(), root.GetChildren().end(), functor);
    char digits[33];
    EXPECT_EQ(HashMD5(calc, true).ToCSTR(digits, false), md5Of("kvalwbtext"));
}

bool same(const XMLDeclaration& one, const XMLDeclaration& other) {
    return one.GetName() == other.GetName() && one.GetAttributes() == other.GetAttributes() &&
           one.GetBody() == other.GetBody() &&
           std::equal(
               one.GetChildren().begin(), one.GetChildren().end(), other.GetChildren().begin(),
               other.GetChildren().end(),
               [](const XMLDeclaration* a, const XMLDeclaration* b) { return same(*a, *b); });
}

TEST(XMLRoundTrip, ARandomDocumentComesBackAndIsWrittenTheSameAgain) {
    xml_random::Source random(5);
    for (int round = 0; round < 2000; ++round) {
        XMLDocument document("", true);
        random.fill(document, 4);
        if (random.oneIn(2))
            document.FormatLineIndents(static_cast<unsigned>(random.below(3)));
        const string text = writtenWithDigest(document);
        XMLDocument again("", true);
        ASSERT_EQ(readInto(again, text), "") << text;
        ASSERT_TRUE(same(document, again)) << text;
        ASSERT_EQ(digestOf(again), digestOf(document)) << text;
        document.FormatLineIndents(1);
        again.FormatLineIndents(1);
        ASSERT_EQ(writtenWithDigest(again), writtenWithDigest(document));
    }
}

TEST(XMLRoundTrip, EveryByteOfABodyAndAValueComesBack) {
    for (int byte = 1; byte < 256; ++byte) {
        XMLDocument document("r", true);
        document.AddAttr("k", string(1, static_cast<char>(byte)));
        document.SetBody("x" + string(1, static_cast<char>(byte)));
        XMLDocument again("", true);
        EXPECT_EQ(readInto(again, writtenWithDigest(document)), "") << byte;
        EXPECT_TRUE(same(document, again)) << byte;
    }
}

} // namespace
