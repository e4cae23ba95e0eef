// Depth of nesting costs heap, never stack: everything that a tree can do, with a million levels,
// on a stack of 1 MiB.

#include "config/vpnxml.h"
#include "digest/_md5.h"
#include "tests/config/xml_support.h"
#include "tests/support/small_stack.h"

#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace {

using std::string;
using support::onSmallStack;
using xml_support::addChild;
using xml_support::readInto;

constexpr std::size_t kLevels = 1'000'000;

string repeated(const string& text, std::size_t count) {
    string all;
    all.reserve(text.size() * count);
    for (; count > 0; --count)
        all += text;
    return all;
}

// `levels` elements "a" in one another, flush left, as they are written.
string nested(std::size_t levels) {
    return repeated("<a>\n", levels - 1) + "<a></a>\n" + repeated("</a>\n", levels - 1);
}

const XMLDeclaration& deepest(const XMLDeclaration& root) {
    const XMLDeclaration* element = &root;
    while (!element->GetChildren().empty())
        element = element->GetChildren()[0];
    return *element;
}

TEST(XMLDeep, IsReadWrittenDigestedIndentedAndErased) {
    onSmallStack([] {
        const string text = nested(kLevels);
        XMLDocument document;
        ASSERT_EQ(readInto(document, text), "");

        std::ostringstream out;
        document.XMLDeclaration::Write(out);
        EXPECT_TRUE(out.str() == text);

        const string names(kLevels, 'a'); // all that the document says
        char digits[33];
        HashMD5(names.data(), names.size()).ToCSTR(digits, false);
        document.UseHash(true);
        std::ostringstream sealed;
        document.Write(sealed);
        EXPECT_EQ(sealed.str().substr(0, 45), "<a Hash=\"" + string(digits) + "\">\n<");
        XMLDocument again("", true);
        EXPECT_EQ(readInto(again, sealed.str()), "");

        document.FormatLineIndents(1);
        EXPECT_EQ(deepest(document).GetIndentLevel(), kLevels - 1);

        document.EraseAll();
        EXPECT_TRUE(document.GetChildren().empty());
    });
}

TEST(XMLDeep, IsDestroyedWithSiblingsAtEveryLevel) {
    onSmallStack([] {
        XMLDeclaration root;
        XMLDeclaration* element = &root;
        for (std::size_t level = 0; level < kLevels / 4; ++level) {
            element->AddChild(new XMLDeclaration("before"));
            XMLDeclaration* const next = element->AddChild(new XMLDeclaration("deeper"));
            element->AddChild(new XMLDeclaration("after"));
            element = next;
        }
    });
}

TEST(XMLDeep, IsReadAsTheContentOfAnElement) {
    onSmallStack([] {
        XMLDeclaration element("a");
        std::istringstream in(nested(kLevels).substr(3));
        element.Read(in);
        XMLDeclaration parent;
        std::istringstream children(nested(kLevels) + "</end>");
        EXPECT_EQ(parent.ReadElements(children)->GetName(), "end");
        EXPECT_EQ(deepest(parent).GetBody(), "");
    });
}

TEST(XMLDeep, AnErrorAtTheBottomLeavesOnlyWhatWasComplete) {
    onSmallStack([] {
        constexpr std::size_t levels = kLevels / 4;
        const string down = "<r><complete/>" + repeated("<a><b/>", levels);
        const struct {
            string text;
            string message;
        } table[] = {{down, "Unexpected end of stream"},
                     {down + "</c>", "a [End tag mismatch]"},
                     {down + repeated("</a>", levels - 1) + "</c>", "a [End tag mismatch]"},
                     {down + repeated("</a>", levels) + "</c>", "r [End tag mismatch]"}};
        for (const auto& row : table) {
            XMLDocument document;
            EXPECT_EQ(readInto(document, row.text), row.message);
            const bool complete = row.message[0] == 'r';
            EXPECT_EQ(document.GetChildren().size(), complete ? 2u : 1u);
            EXPECT_EQ(document.GetChildren()[0]->GetName(), "complete");
        }
    });
}

TEST(XMLDeep, TextAtTheBottomIsRead) {
    onSmallStack([] {
        XMLDocument document;
        EXPECT_EQ(readInto(document,
                           repeated("<a>", kLevels / 4) + "text" + repeated("</a>", kLevels / 4)),
                  "");
        EXPECT_EQ(deepest(document).GetBody(), "text");
    });
}

TEST(XMLDeep, IsWrittenIndented) {
    onSmallStack([] {
        constexpr std::size_t levels = 2000;
        XMLDocument document;
        ASSERT_EQ(readInto(document, nested(levels)), "");
        string text;
        document.WriteToString(text, 1);
        string expected;
        for (std::size_t level = 0; level < levels - 1; ++level)
            expected += string(level, '\t') + "<a>\n";
        expected += string(levels - 1, '\t') + "<a></a>\n";
        for (std::size_t level = levels - 1; level > 0; --level)
            expected += string(level - 1, '\t') + "</a>\n";
        EXPECT_TRUE(text == expected);
    });
}

TEST(XMLDeep, ManySiblingsAndAttributesAreRead) {
    onSmallStack([] {
        XMLDocument document("r", true);
        for (std::size_t i = 0; i < 100'000; ++i) {
            addChild(document, "a");
            document.AddAttr("k", "v");
        }
        std::ostringstream out;
        document.Write(out);
        XMLDocument again("", true);
        EXPECT_EQ(readInto(again, out.str()), "");
        EXPECT_EQ(again.GetChildren().size(), 100'000u);
        EXPECT_EQ(again.GetAttributes().size(), 100'000u);
    });
}

} // namespace
