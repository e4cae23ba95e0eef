// Documents where memory ends: each allocation in turn fails once, and what happens then is an
// exception, a whole tree and nothing left behind.

#include "config/vpnxml.h"
#include "tests/config/xml_support.h"
#include "tests/support/captured_stderr.h"
#include "tests/support/fault_injection.h"
#include "tests/support/scratch.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <sstream>
#include <string>

namespace {

using std::string;
using support::CallKind;
using xml_support::addChild;
using xml_support::written;

const char kText[] =
    "<configuration-with-a-long-name Hash='1a7a8ae25d0d3bd5d5c5c38c7a3b1d5f' key='&amp;'>"
    "<a><b><c>a text that needs memory of its own</c></b><d/><e/></a>"
    "<f key-of-more-than-fifteen='value of more than fifteen'/></configuration-with-a-long-name>";

std::unique_ptr<XMLDocument> sample() {
    auto document = std::make_unique<XMLDocument>();
    xml_support::readInto(*document, kText);
    document->AddAttr("key-of-more-than-fifteen", "value of more than fifteen");
    return document;
}

// Calls `action` with its first allocation failing, then with its second, until none fails. Each
// time `action` gets a new document.
void failEachAllocation(const std::function<void(XMLDocument&)>& action) {
    int failures = 0;
    for (bool failed = true; failed; ++failures) {
        const auto document = sample();
        const string before = written(*document);
        {
            const support::FailingCall failing(CallKind::kMemory, failures + 1);
            try {
                action(*document);
            } catch (const std::bad_alloc&) {
            }
            failed = failing.failed();
        }
        EXPECT_EQ(document->GetAttributes().size(), 2u) << failures;
        EXPECT_EQ(written(*document), before) << failures;
    }
    EXPECT_GT(failures, 1);
}

TEST(XMLMemory, WritingLeavesTheTreeAsItWas) {
    failEachAllocation([](XMLDocument& document) {
        document.UseHash(true);
        std::ostringstream out;
        out.exceptions(std::ios::badbit);
        document.Write(out);
    });
}

TEST(XMLMemory, WritingToAStringGivesTheWholeTextOrThrows) {
    failEachAllocation([](XMLDocument& document) {
        string text = "before";
        try {
            document.WriteToString(text, 0);
            EXPECT_EQ(text.substr(text.size() - 4), "me>\n");
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(text, "before");
            throw;
        }
    });
}

TEST(XMLMemory, ReadingThrowsAndLeavesNothingBehind) {
    failEachAllocation([](XMLDocument&) {
        std::istringstream in(kText);
        XMLDocument document;
        document.Read(in);
    });
}

TEST(XMLMemory, ErasingTakesNone) {
    XMLDocument document;
    for (int i = 0; i < 20; ++i) {
        XMLDeclaration& child = addChild(document, "child");
        for (int j = 0; j < 100; ++j)
            addChild(addChild(child, "grandchild"), "deeper");
    }
    {
        const support::FailingCalls none(CallKind::kMemory);
        document.EraseAll();
    }
    EXPECT_TRUE(document.GetChildren().empty());
}

TEST(XMLMemory, AChildThatCannotBeAddedIsDeleted) {
    XMLDeclaration parent;
    auto* const child = new XMLDeclaration("a");
    const support::FailingCall failing(CallKind::kMemory, 1);
    EXPECT_THROW(parent.AddChild(child), std::bad_alloc);
    EXPECT_TRUE(parent.GetChildren().empty());
}

TEST(XMLMemory, LoadReportsItAsAnErrorOfTheFile) {
    const support::ScratchDirectory folder;
    const string path = folder.write("file", kText);
    const string reported = "PARSE ERROR: [" + path + "] : std::bad_alloc\n";
    const string notOpened = "WARNING: Can`t open  file [" + path + "] for reading\n";
    int reports = 0;
    bool loaded = false;
    for (long before = 0; !loaded; ++before) {
        XMLDocument document;
        const support::CapturedStderr said;
        bool threw = false; // before there was a file to report an error of
        {
            const support::FailingCall failing(CallKind::kMemory, before + 1);
            try {
                loaded = document.Load(path.c_str());
            } catch (const std::bad_alloc&) {
                threw = true;
            }
        }
        const bool opened = said.text() != notOpened;
        EXPECT_EQ(said.text(), loaded || threw ? "" : opened ? reported : notOpened);
        EXPECT_EQ(document.GetChildren().empty(), !loaded);
        reports += loaded || threw || !opened ? 0 : 1;
    }
    EXPECT_GT(reports, 0);
}

} // namespace
