// The tree itself: building it, searching it, taking it down, and the hexadecimal texts in it.

#include "config/vpnxml.h"
#include "tests/config/xml_support.h"

#include <cctype>
#include <climits>
#include <gtest/gtest.h>
#include <list>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using std::string;
using xml_support::addChild;
using xml_support::written;
using Names = std::vector<string>;

TEST(XMLDeclaration, IsNewWithoutAnything) {
    const XMLDeclaration element;
    EXPECT_EQ(element.GetName(), "");
    EXPECT_TRUE(element.GetAttributes().empty());
    EXPECT_TRUE(element.GetChildren().empty());
    EXPECT_EQ(element.GetBody(), "");
    EXPECT_EQ(element.GetIndentLevel(), 0u);
    EXPECT_EQ(XMLDeclaration("a").GetName(), "a");

    const XMLDeclaration::tag tag;
    EXPECT_EQ(tag.GetName(), "");
    EXPECT_TRUE(tag.GetAttributes().empty());
    EXPECT_FALSE(tag.IsClosing());
    EXPECT_EQ(XMLDeclaration::tag("a").GetName(), "a");
}

TEST(XMLDocument, IsNewWithoutAnything) {
    const XMLDocument document;
    EXPECT_EQ(document.GetName(), "");
    EXPECT_FALSE(document.UseHash());
    XMLDocument other("a", true);
    EXPECT_EQ(other.GetName(), "a");
    EXPECT_TRUE(other.UseHash());
    other.UseHash(false);
    EXPECT_FALSE(other.UseHash());
}

TEST(XMLDocument, KeyOfTheDigestIsHash) {
    EXPECT_EQ(XMLDocument::HashAttrKey, "Hash");
}

// A virtual table, an owning pointer, a vector, a string and a 32-bit number, in that order; the
// document's flag lies in the padding behind them.
TEST(XMLDeclaration, HasTheLayoutThatCallersWereBuiltWith) {
    static_assert(sizeof(void*) == 8 && sizeof(string) == 32, "x86-64 and libstdc++");
    EXPECT_EQ(sizeof(XMLDeclaration), 80u);
    EXPECT_EQ(sizeof(XMLDocument), 80u);
    EXPECT_EQ(sizeof(XMLDeclaration::tag), 32u + 24u + 8u);
    XMLDocument document("a", true);
    document.AddChild(new XMLDeclaration("b"));
    document.SetBody("text");
    document.SetIndentLevel(7);
    const char* const bytes = reinterpret_cast<const char*>(&document);
    EXPECT_EQ(*reinterpret_cast<const string*>(*reinterpret_cast<const char* const*>(bytes + 8)),
              "a"); // the tag begins with its name
    EXPECT_EQ(reinterpret_cast<const std::vector<XMLDeclaration*>*>(bytes + 16),
              &document.GetChildren());
    EXPECT_EQ(reinterpret_cast<const string*>(bytes + 40), &document.GetBody());
    EXPECT_EQ(*reinterpret_cast<const std::uint32_t*>(bytes + 72), 7u);
    EXPECT_EQ(bytes[76], 1);
}

TEST(XMLDeclaration, HasNoVirtualOperationButItsDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor<XMLDeclaration>::value);
    EXPECT_FALSE(std::is_polymorphic<XMLDeclaration::tag>::value);
    EXPECT_FALSE(std::is_copy_constructible<XMLDeclaration>::value);
    EXPECT_FALSE(std::is_copy_assignable<XMLDeclaration>::value);
    EXPECT_FALSE(std::is_copy_constructible<XMLDocument>::value);
    EXPECT_FALSE(std::is_copy_assignable<XMLDocument>::value);
}

TEST(XMLDeclaration, ExceptionsAreLogicErrorsOfTheirText) {
    EXPECT_TRUE((std::is_base_of<std::logic_error, XMLParserError>::value));
    EXPECT_TRUE((std::is_base_of<std::logic_error, XMLHashError>::value));
    EXPECT_STREQ(XMLParserError("a text").what(), "a text");
    EXPECT_STREQ(XMLHashError("another").what(), "another");
}

TEST(XMLDeclaration, SettersSet) {
    XMLDeclaration element("a");
    element.SetName("b");
    element.SetBody("text");
    element.SetIndentLevel(3);
    EXPECT_EQ(element.GetName(), "b");
    EXPECT_EQ(element.GetBody(), "text");
    EXPECT_EQ(element.GetIndentLevel(), 3u);
    XMLDeclaration::tag tag("a");
    tag.SetName("b");
    tag.AddAttr("k", "v");
    EXPECT_EQ(tag.GetName(), "b");
    EXPECT_EQ(tag.GetAttributes(), (std::list<XMLDeclaration::Attribute>{{"k", "v"}}));
}

TEST(XMLDeclaration, KeepsAttributesInTheOrderOfAddingThem) {
    XMLDeclaration element;
    element.AddAttr("b", "1");
    element.AddAttr("a", "2");
    element.AddAttr("b", "3");
    EXPECT_EQ(element.GetAttributes(),
              (std::list<XMLDeclaration::Attribute>{{"b", "1"}, {"a", "2"}, {"b", "3"}}));
}

TEST(XMLDeclarationGetAttr, GivesTheFirstValueOfTheKey) {
    XMLDeclaration element;
    element.AddAttr("k", "1");
    element.AddAttr("K", "2");
    element.AddAttr("k", "3");
    element.AddAttr("empty", "");
    EXPECT_EQ(element.GetAttr("k"), "1");
    EXPECT_EQ(element.GetAttr("K"), "2");
    EXPECT_EQ(element.GetAttr("empty"), "");
    EXPECT_EQ(element.GetAttr("missing"), "");
    EXPECT_EQ(element.GetAttr("k "), "");
}

TEST(XMLDeclarationDelAttr, RemovesOnlyTheFirstOfTheKey) {
    XMLDeclaration element;
    element.AddAttr("k", "1");
    element.AddAttr("l", "2");
    element.AddAttr("k", "3");
    element.DelAttr("missing");
    EXPECT_EQ(element.GetAttributes().size(), 3u);
    element.DelAttr("k");
    EXPECT_EQ(element.GetAttr("k"), "3");
    element.DelAttr("k");
    element.DelAttr("k");
    EXPECT_EQ(element.GetAttributes(), (std::list<XMLDeclaration::Attribute>{{"l", "2"}}));
}

TEST(XMLDeclarationAddChild, TakesTheChildAndReturnsIt) {
    XMLDeclaration parent;
    auto* const child = new XMLDeclaration("a");
    EXPECT_EQ(parent.AddChild(child), child);
    auto* const second = parent.AddChild(new XMLDeclaration("b"));
    EXPECT_EQ(parent.GetChildren(), (std::vector<XMLDeclaration*>{child, second}));
}

TEST(XMLDeclarationGetElementByName, GivesTheFirstDirectChild) {
    XMLDeclaration root;
    XMLDeclaration& first = addChild(root, "a", "1");
    addChild(root, "a", "2");
    addChild(first, "deep");
    EXPECT_EQ(root.GetElementByName("a"), &first);
    EXPECT_EQ(root.GetElementByName("A"), nullptr);
    EXPECT_EQ(root.GetElementByName("deep"), nullptr);
    EXPECT_EQ(root.GetElementByName(""), nullptr);
}

TEST(XMLDeclarationGetElementByAttr, TriesEveryAttributeOfTheKey) {
    XMLDeclaration root;
    addChild(root, "a").AddAttr("k", "other");
    XMLDeclaration& wanted = addChild(root, "a");
    wanted.AddAttr("k", "1");
    wanted.AddAttr("l", "3");
    wanted.AddAttr("k", "2");
    addChild(root, "b").AddAttr("k", "4");
    EXPECT_EQ(root.GetElementByAttr("a", "k", "1"), &wanted);
    EXPECT_EQ(root.GetElementByAttr("a", "k", "2"), &wanted);
    EXPECT_EQ(root.GetElementByAttr("a", "k", "3"), nullptr);
    EXPECT_EQ(root.GetElementByAttr("a", "k", "4"), nullptr);
    EXPECT_EQ(root.GetElementByAttr("c", "k", "1"), nullptr);
    EXPECT_EQ(root.GetElementByAttr("a", "m", ""), nullptr);
    EXPECT_EQ(root.GetElementByAttr("b", "k", "4"), root.GetChildren()[2]);
}

TEST(XMLDeclarationGetBinBody, DecodesTheChildNamedByTheIndex) {
    XMLDeclaration root;
    addChild(root, "03", "ff");
    addChild(root, "3", "0A1b");
    addChild(root, "3", "ff");
    addChild(root, "4294967295", "20");
    string out = "before";
    EXPECT_TRUE(root.GetBinBody(3, out));
    EXPECT_EQ(out, "\x0A\x1B");
    EXPECT_TRUE(root.GetBinBody(UINT_MAX, out));
    EXPECT_EQ(out, " ");
    out = "before";
    EXPECT_FALSE(root.GetBinBody(0, out));
    EXPECT_EQ(out, "before");
}

TEST(XMLDeclarationGetBinBody, LeavesWhatItCannotDecode) {
    XMLDeclaration root;
    addChild(root, "0", "abc");
    addChild(root, "1", "zz11");
    string out = "before";
    EXPECT_TRUE(root.GetBinBody(0, out));
    EXPECT_EQ(out, "before");
    EXPECT_TRUE(root.GetBinBody(1, out));
    EXPECT_EQ(out, "be");
}

TEST(XMLDeclarationGetBinBody, ReadsNumbersAsStrtolDoes) {
    const struct {
        string body;
        long number;
    } table[] = {{"0", 0},
                 {"7", 7},
                 {"-5", -5},
                 {"+5", 5},
                 {" \t\n\v\f\r12", 12},
                 {"12abc", 12},
                 {"x", 0},
                 {"", 0},
                 {"0x10", 0},
                 {"010", 10},
                 {"- 5", 0},
                 {"12 34", 12},
                 {"5\x00"
                  "6",
                  5}};
    for (const auto& row : table) {
        XMLDeclaration root;
        addChild(root, "9", row.body);
        long out = 99;
        EXPECT_TRUE(root.GetBinBody(9, out));
        EXPECT_EQ(out, row.number) << row.body;
        EXPECT_FALSE(root.GetBinBody(8, out = 99));
        EXPECT_EQ(out, 99);
    }
}

TEST(XMLDeclarationGetBinBody, Deliberate_CutsNumbersToTheirLow32BitsSigned) {
    const struct {
        const char* body;
        long number;
    } table[] = {{"2147483647", 2147483647},
                 {"2147483648", -2147483648L},
                 {"4294967295", -1},
                 {"4294967296", 0},
                 {"4294967297", 1},
                 {"-2147483649", 2147483647},
                 {"99999999999999999999", -1},  // strtol gives 2^63 - 1
                 {"-99999999999999999999", 0}}; // and -2^63
    for (const auto& row : table) {
        XMLDeclaration root;
        addChild(root, "0", row.body);
        long out = 99;
        EXPECT_TRUE(root.GetBinBody(0, out));
        EXPECT_EQ(out, row.number) << row.body;
    }
}

TEST(XMLDeclarationFormatLineIndents, SetsEachLevelOnceMore) {
    XMLDeclaration root("r");
    root.SetIndentLevel(9);
    XMLDeclaration& child = addChild(root, "a");
    XMLDeclaration& grandchild = addChild(child, "b");
    XMLDeclaration& second = addChild(root, "c");
    root.FormatLineIndents(2);
    EXPECT_EQ(root.GetIndentLevel(), 9u);
    EXPECT_EQ(child.GetIndentLevel(), 2u);
    EXPECT_EQ(grandchild.GetIndentLevel(), 3u);
    EXPECT_EQ(second.GetIndentLevel(), 2u);
    root.FormatLineIndents(0);
    EXPECT_EQ(child.GetIndentLevel(), 0u);
    EXPECT_EQ(grandchild.GetIndentLevel(), 1u);
    child.FormatLineIndents(UINT_MAX);
    EXPECT_EQ(child.GetIndentLevel(), 0u);
    EXPECT_EQ(grandchild.GetIndentLevel(), UINT_MAX);
}

TEST(XMLDeclarationFormatLineIndents, TheHighestLevelIsFollowedByTheLowest) {
    XMLDeclaration root;
    addChild(addChild(root, "a"), "b");
    root.FormatLineIndents(UINT_MAX);
    EXPECT_EQ(root.GetChildren()[0]->GetChildren()[0]->GetIndentLevel(), 0u);
}

// Logs that it was deleted, and the children that it had when that began.
class Watched : public XMLDeclaration {
public:
    Watched(const string& name, Names& log) : XMLDeclaration(name), log_(log) {}

    ~Watched() override {
        string entry = GetName() + ":";
        for (const XMLDeclaration* const child : GetChildren())
            entry += child == nullptr ? "-" : child->GetName();
        log_.push_back(entry);
    }

protected:
    Names& log_;
};

Watched& add(XMLDeclaration& parent, const string& name, Names& log) {
    auto* const child = new Watched(name, log);
    parent.AddChild(child);
    return *child;
}

void plantFamily(XMLDeclaration& root, Names& log) {
    Watched& a = add(root, "a", log);
    add(add(a, "b", log), "c", log);
    add(a, "d", log);
    root.AddChild(nullptr);
    a.AddChild(nullptr);
    XMLDeclaration& plain = addChild(root, "plain");
    add(plain, "e", log);
    add(root, "f", log);
}

const Names kFamilyOrder = {"a:bd-", "b:c", "c:", "d:", "e:", "f:"};

TEST(XMLDeclarationDestructor, DeletesEachChildThroughItsOwnDestructorParentsFirst) {
    Names log;
    {
        XMLDeclaration root;
        plantFamily(root, log);
    }
    EXPECT_EQ(log, kFamilyOrder);
}

TEST(XMLDeclarationEraseAll, KeepsNameAndIndentLevelAlone) {
    Names log;
    XMLDocument root("r", true);
    plantFamily(root, log);
    root.SetBody("text");
    root.SetIndentLevel(4);
    root.AddAttr("k", "v");
    root.EraseAll();
    EXPECT_EQ(log, kFamilyOrder);
    EXPECT_TRUE(root.GetChildren().empty());
    EXPECT_TRUE(root.GetAttributes().empty());
    EXPECT_EQ(root.GetBody(), "");
    EXPECT_EQ(root.GetName(), "r");
    EXPECT_EQ(root.GetIndentLevel(), 4u);
    EXPECT_TRUE(root.UseHash());
    root.EraseAll();
    addChild(root, "again");
    EXPECT_EQ(root.GetChildren().size(), 1u);
}

// Takes down a tree of its own, and its children, in its destructor.
class TakesDown : public Watched {
public:
    TakesDown(const string& name, Names& log) : Watched(name, log) {
        add(add(own_, name + "1", log), name + "2", log);
    }

    ~TakesDown() override {
        own_.EraseAll();
        EraseAll();
    }

private:
    XMLDeclaration own_;
};

TEST(XMLDeclarationDestructor, LetsDestructorsTakeDownOtherTrees) {
    Names log;
    {
        XMLDeclaration root;
        XMLDeclaration& outer = *root.AddChild(new TakesDown("x", log));
        add(outer, "a", log);
        add(*outer.AddChild(new TakesDown("y", log)), "b", log);
        add(root, "c", log);
    }
    EXPECT_EQ(log, (Names{"x1:x2", "x2:", "a:", "y1:y2", "y2:", "b:", "y:", "x:", "c:"}));
}

// Has a tree of its own, which goes with it.
class Owns : public Watched {
public:
    Owns(const string& name, Names& log) : Watched(name, log) { add(own_, name + "1", log); }

private:
    XMLDeclaration own_;
};

TEST(XMLDeclarationDestructor, DeletesTreesThatElementsHaveAsMembers) {
    Names log;
    {
        XMLDeclaration root;
        add(*root.AddChild(new Owns("x", log)), "a", log);
        add(root, "b", log);
    }
    EXPECT_EQ(log, (Names{"x1:", "x:a", "a:", "b:"}));
}

TEST(XMLDeclaration, PassesOverNullChildren) {
    XMLDocument root("r", true);
    root.AddChild(nullptr);
    XMLDeclaration& child = addChild(root, "a");
    EXPECT_EQ(root.GetElementByName("a"), &child);
    EXPECT_EQ(root.GetElementByName(""), nullptr);
    EXPECT_EQ(root.GetElementByAttr("", "", ""), nullptr);
    root.FormatLineIndents(1);
    EXPECT_EQ(written(root), "<r>\n\t<a></a>\n</r>\n");
}

TEST(ToHexString, WritesLowerCaseDigitsHighNibbleFirst) {
    string out = "before";
    toHexString(out, "\x00\xFF\x1A", 3);
    EXPECT_EQ(out, "00ff1a");
    toHexString(out, "\x01\x23\x45\x67\x89\xAB\xCD\xEF", 8);
    EXPECT_EQ(out, "0123456789abcdef");
    toHexString(out, "a", 0);
    EXPECT_EQ(out, "");
    toHexString(out = "before", nullptr, 0);
    EXPECT_EQ(out, "");
}

TEST(ToHexString, RefusesALengthThatNoMemoryHolds) {
    string out = "before";
    EXPECT_THROW(toHexString(out, "a", 1UL << 63), std::length_error);
    EXPECT_THROW(toHexString(out, "a", ULONG_MAX), std::length_error);
    EXPECT_EQ(out, "before");
}

string decoded(const string& digits, string out) {
    fromHexString(out, digits);
    return out;
}

TEST(FromHexString, DecodesDigitsOfEitherCase) {
    EXPECT_EQ(decoded("0A1b", ""), "\x0A\x1B");
    EXPECT_EQ(decoded("0123456789abcdefABCDEF", "x"),
              "\x01\x23\x45\x67\x89\xAB\xCD\xEF\xAB\xCD\xEF");
    EXPECT_EQ(decoded("00", "x"), string(1, '\0'));
    EXPECT_EQ(decoded("", "before"), "");
}

TEST(FromHexString, AnOddNumberOfDigitsLeavesTheOutput) {
    EXPECT_EQ(decoded("abc", "before"), "before");
    EXPECT_EQ(decoded("a", ""), "");
}

TEST(FromHexString, Deliberate_ResizesAndKeepsWhatItCannotDecode) {
    EXPECT_EQ(decoded("zz11", "before"), "be");
    EXPECT_EQ(decoded("41zz4243", "before"), "Aefo");
    EXPECT_EQ(decoded("414g42", ""), string("A\0\0", 3));
    EXPECT_EQ(decoded("41g442", "xy"), string("Ay\0", 3));
}

TEST(FromHexString, KnowsEveryDigitAndNothingElse) {
    for (int high = 0; high < 256; ++high) {
        const bool isDigit = std::isxdigit(high) != 0; // of the "C" locale
        const string pair = {static_cast<char>(high), '0'};
        const string swapped = {'0', static_cast<char>(high)};
        EXPECT_EQ(decoded(pair, "\xAA") != "\xAA", isDigit) << high;
        EXPECT_EQ(decoded(swapped, "\xAA") != "\xAA", isDigit) << high;
    }
}

TEST(FromHexString, GivesBackWhatToHexStringWrote) {
    string bytes;
    for (int i = 0; i < 600; ++i)
        bytes.push_back(static_cast<char>(i % 251));
    string digits;
    toHexString(digits, bytes.data(), bytes.size());
    EXPECT_EQ(decoded(digits, ""), bytes);
    fromHexString(digits, digits);
    EXPECT_EQ(digits, bytes);
    digits = "41zz4243";
    fromHexString(digits, digits);
    EXPECT_EQ(digits, "A1zz") << "as with another text that held the same";
}

} // namespace
