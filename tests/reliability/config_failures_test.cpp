// Documents and INI texts where memory ends and where the system fails.

#include "config/inifile.h"
#include "config/vpnxml.h"
#include "tests/support/captured_stderr.h"
#include "tests/support/every_fault.h"
#include "tests/support/scratch.h"

#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using std::string;
using support::failEverything;
using support::kNoMemory;

// The digest is md5sum's of "configuration-with-a-long-namekey&abc".
const string kDocument =
    "<configuration-with-a-long-name key=\"&amp;\" Hash=\"d57e62c7b206407673eb7bff8eca4a44\">\n"
    "<a>b</a>\n"
    "<c></c>\n"
    "</configuration-with-a-long-name>\n";

constexpr char kStreamFailed[] = "the stream has failed";

using Document = std::unique_ptr<XMLDocument>;

Document readFrom(const string& text) {
    auto document = std::make_unique<XMLDocument>("", true);
    std::istringstream in(text);
    document->Read(in);
    return document;
}

string written(XMLDocument& document) {
    std::ostringstream out;
    document.Write(out);
    return out ? out.str() : kStreamFailed;
}

TEST(XMLFailures, DocumentsAreReadWholeOrRefused) {
    const support::Scenario scenario = [] {
        const Document document = readFrom(kDocument);
        return document->GetAttr("key") + std::to_string(document->GetChildren().size());
    };
    EXPECT_EQ(scenario(), "&2");
    failEverything(scenario, {kNoMemory}, {});
}

TEST(XMLFailures, MalformedDocumentsAreRefusedWithTheSameMessage) {
    failEverything([] { return readFrom("<a><b>text</b><c></d></a>")->GetName(); }, {kNoMemory},
                   {});
    failEverything([] { return readFrom("<a Hash='0'/>")->GetName(); }, {kNoMemory}, {});
}

TEST(XMLFailures, DocumentsAreWrittenWholeOrTheStreamFails) {
    const Document document = readFrom(kDocument);
    EXPECT_EQ(written(*document), kDocument);
    failEverything([&] { return written(*document); }, {kNoMemory, kStreamFailed}, {});
    EXPECT_EQ(written(*document), kDocument);
}

TEST(XMLFailures, QueriesAndHexadecimalTextsAreWholeOrThrow) {
    XMLDocument document("root");
    document.AddChild(new XMLDeclaration("0"))
        ->SetBody("0123456789abcdef0123456789abcdef0123456789abcdef");
    document.AddAttr("key", "a value that needs memory of its own");
    failEverything(
        [&] {
            string bytes;
            string digits;
            EXPECT_TRUE(document.GetBinBody(0, bytes));
            toHexString(digits, bytes.data(), bytes.size());
            return digits + document.GetAttr("key");
        },
        {kNoMemory}, {});
}

// The indent levels of `element` and everything below it.
string levelsOf(const XMLDeclaration& element) {
    string levels = " " + std::to_string(element.GetIndentLevel());
    for (const XMLDeclaration* const child : element.GetChildren())
        levels += levelsOf(*child);
    return levels;
}

TEST(XMLFailures, IndentLevelsAreAllSetOrNone) {
    XMLDocument document;
    XMLDeclaration* element = &document;
    for (int depth = 0; depth < 5; ++depth) {
        element->AddChild(new XMLDeclaration);
        element = element->AddChild(new XMLDeclaration);
    }
    document.FormatLineIndents(7);
    const string before = levelsOf(document);
    const auto scenario = [&]() -> string {
        try {
            document.FormatLineIndents(2);
        } catch (const std::bad_alloc&) {
            const support::Uncounted own;
            EXPECT_EQ(levelsOf(document), before);
            throw;
        }
        const support::Uncounted own;
        EXPECT_EQ(levelsOf(document), " 0 2 2 3 3 4 4 5 5 6 6");
        document.FormatLineIndents(7);
        return "";
    };
    failEverything(scenario, {kNoMemory}, {});
}

TEST(XMLFailures, ReadingWithoutMemoryLeavesTheChildrenThatWereComplete) {
    const string complete[] = {"", "<a>b</a>\n", "<a>b</a>\n<c></c>\n"};
    bool left[] = {false, false, false};
    const auto scenario = [&]() -> string {
        std::istringstream in(kDocument);
        XMLDocument document("", true);
        try {
            document.Read(in);
        } catch (const std::bad_alloc&) {
            const support::Uncounted own;
            string text;
            for (XMLDeclaration* const child : document.GetChildren()) {
                string line;
                child->WriteToString(line, 0);
                text += line;
            }
            const std::size_t count = document.GetChildren().size();
            EXPECT_EQ(text, complete[count]);
            left[count] = true;
            document.EraseAll();
            std::istringstream again(kDocument);
            document.Read(again);
            EXPECT_EQ(document.GetChildren().size(), 2u);
            throw;
        }
        return "";
    };
    failEverything(scenario, {kNoMemory}, {});
    EXPECT_TRUE(left[0] && left[1] && left[2]);
}

class XMLFileFailures : public testing::Test {
protected:
    support::ScratchDirectory folder_;
};

TEST_F(XMLFileFailures, LoadGivesTheWholeDocumentOrNoneAndOneLine) {
    const string path = folder_.write("document", kDocument);
    const auto scenario = [&]() -> string {
        const support::CapturedStderr said;
        XMLDocument document("before", true);
        bool loaded = false;
        try {
            loaded = document.Load(path.c_str());
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(said.text(), "");
            EXPECT_EQ(document.GetChildren().size(), 0u);
            throw;
        }
        EXPECT_EQ(document.GetChildren().size(), loaded ? 2u : 0u);
        return (loaded ? "true " : "false ") + said.text();
    };
    const string parseError = "false PARSE ERROR: [" + path + "] : ";
    const string openError = "false WARNING: Can`t open before file [" + path + "] for reading\n";
    failEverything(scenario, {kNoMemory, openError, parseError + "std::bad_alloc\n"},
                   {openError, parseError + "Read error\n"});
}

TEST_F(XMLFileFailures, SaveTellsWhetherItCouldOpenTheFile) {
    const Document document = readFrom(kDocument);
    const string path = folder_.path("document");
    for (const bool restricted : {false, true}) {
        const auto scenario = [&]() -> string {
            const support::CapturedStderr said;
            const bool saved = document->Save(path.c_str(), restricted);
            const support::Uncounted own;
            EXPECT_EQ(access(path.c_str(), F_OK) == 0 || !saved, true);
            unlink(path.c_str());
            return (saved ? "true " : "false ") + said.text();
        };
        const string openError = "false ERROR: Can`t open configuration-with-a-long-name file [" +
                                 path + "] for writing\n";
        failEverything(scenario, {kNoMemory, openError}, {openError});
    }
}

const string kIni = "[first]\nname = a value that needs memory of its own\n"
                    "[a group whose name needs memory of its own]\nother=value\n";

// A text of which only the beginning could be kept would be a configuration that nobody wrote.
TEST(IniFailures, TextsAreReadWholeOrTheReaderThrows) {
    const support::Scenario scenario = [] {
        std::istringstream in(kIni);
        const IniFile ini(in);
        return ini.getAllGroups() + ini.get("first", "name") + ini.get("first", "none", "default");
    };
    EXPECT_EQ(scenario(), "[a group whose name needs memory of its own] [first] "
                          "a value that needs memory of its owndefault");
    failEverything(scenario, {kNoMemory}, {});
}

TEST(IniFailures, ALineIsStoredWholeOrNotAtAll) {
    const struct {
        const char* line;
        const char* group;
        const char* name;
        const char* groups;
    } table[] = {{"name=another value that needs memory of its own, and more of it", "first",
                  "name", "[a group whose name needs memory of its own] [first] "},
                 {"a new name that needs memory of its own=value", "first",
                  "a new name that needs memory of its own",
                  "[a group whose name needs memory of its own] [first] "},
                 {"a new name that needs memory of its own=a value that needs memory of its own",
                  "a new group whose name needs memory of its own",
                  "a new name that needs memory of its own",
                  "[a group whose name needs memory of its own] "
                  "[a new group whose name needs memory of its own] [first] "}};
    std::istringstream in(kIni);
    const IniFile before(in);
    const auto valueIn = [](const IniFile& ini, const char* group, const char* name) -> string {
        try {
            return ini.get(group, name, "none");
        } catch (const CIniFileGroupNotFound&) {
            return "no group";
        }
    };
    for (const auto& row : table) {
        const auto scenario = [&]() -> string {
            IniFile ini = before;
            try {
                ini.parseLine(row.line, row.group);
            } catch (const std::bad_alloc&) {
                const support::Uncounted own;
                EXPECT_EQ(ini.getAllGroups(), before.getAllGroups());
                EXPECT_EQ(valueIn(ini, row.group, row.name), valueIn(before, row.group, row.name));
                throw;
            }
            const support::Uncounted own;
            EXPECT_EQ(ini.getAllGroups(), row.groups);
            EXPECT_EQ(row.name + string("=") + ini.get(row.group, row.name), row.line);
            return "";
        };
        failEverything(scenario, {kNoMemory}, {});
    }
}

TEST(IniFailures, MissingNamesAreToldOrMemoryEnds) {
    const auto lookUp = [](const char* group) {
        std::istringstream in(kIni);
        return IniFile(in).get(group, "a name that needs memory of its own, too");
    };
    failEverything([&] { return lookUp("first"); }, {kNoMemory}, {});
    failEverything([&] { return lookUp("none"); }, {kNoMemory}, {});
}

} // namespace
