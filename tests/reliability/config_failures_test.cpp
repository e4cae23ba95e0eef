// Documents and INI texts where memory ends and where the system fails.

#include "config/inifile.h"
#include "config/vpnxml.h"
#include "tests/support/captured_stderr.h"
#include "tests/support/every_failure.h"
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

TEST(IniFailures, MissingNamesAreToldOrMemoryEnds) {
    const auto lookUp = [](const char* group) {
        std::istringstream in(kIni);
        return IniFile(in).get(group, "a name that needs memory of its own, too");
    };
    failEverything([&] { return lookUp("first"); }, {kNoMemory}, {});
    failEverything([&] { return lookUp("none"); }, {kNoMemory}, {});
}

} // namespace
