// A program that links the archive and has names of its own that are near to the library's.

#include "config/inifile.h"
#include "config/vpnxml.h"
#include "digest/_md5.h"

#include <gtest/gtest.h>
#include <istream>
#include <sstream>
#include <string>

namespace XMLReader {

std::string nameOf(const XMLDeclaration& element) {
    return element.GetName();
}

} // namespace XMLReader

namespace config {

bool isCancellation() {
    return true;
}

int digitValue(int digit, int) {
    return digit;
}

class ByteSource {
public:
    void skipWhite();
    int take();
};

void ByteSource::skipWhite() {}

int ByteSource::take() {
    return -1;
}

class XMLLexer {
public:
    explicit XMLLexer(std::istream& in) : in_(in) {}

    int take(const char* expected);
    std::string word();
    std::string text();

private:
    std::istream& in_;
};

int XMLLexer::take(const char*) {
    return in_.get();
}

std::string XMLLexer::word() {
    std::string word;
    in_ >> word;
    return word;
}

std::string XMLLexer::text() {
    return word();
}

} // namespace config

namespace xml_walk {

template<class Element, class Enter>
void visit(Element& top, Enter enter) {
    enter(top, 0);
}

} // namespace xml_walk

namespace xml_digest {

HashMD5 ofDocument(const XMLDeclaration& root) {
    return HashMD5(root.GetName().data(), root.GetName().size());
}

} // namespace xml_digest

namespace {

// The digest is md5sum's of "cfgkvab".
constexpr char kDocument[] = "<cfg k=\"v\" Hash=\"a7379c7d25fdf0f16da6d99778479959\">\n"
                             "<a>b</a>\n"
                             "</cfg>\n";

TEST(CallerNames, DoNotReachTheLibrary) {
    std::istringstream in(kDocument);
    XMLDocument document("", true);
    document.Read(in);
    std::ostringstream out;
    document.Write(out);
    EXPECT_EQ(out.str(), kDocument);
    std::string bytes;
    fromHexString(bytes, "4f4B");
    EXPECT_EQ(bytes, "OK");
}

TEST(CallerNames, AreTheCallersOwn) {
    std::istringstream in("word");
    config::XMLLexer lexer(in);
    EXPECT_EQ(lexer.text(), "word");
    EXPECT_EQ(lexer.take(nullptr), std::char_traits<char>::eof());
    config::ByteSource source;
    source.skipWhite();
    EXPECT_EQ(source.take(), -1);
    EXPECT_TRUE(config::isCancellation());
    EXPECT_EQ(config::digitValue('a', 16), 'a');
    const XMLDeclaration element("name");
    EXPECT_EQ(XMLReader::nameOf(element), "name");
    xml_walk::visit(element, [](const XMLDeclaration& top, int depth) {
        EXPECT_EQ(top.GetName() + std::to_string(depth), "name0");
    });
    char digits[33];
    char expected[33];
    EXPECT_STREQ(xml_digest::ofDocument(element).ToCSTR(digits, false),
                 HashMD5("name", 4).ToCSTR(expected, false));
}

TEST(CallerNames, LetAFailedStreamFail) {
    std::istringstream in("a=b");
    in.setstate(std::ios::badbit);
    EXPECT_EQ(IniFile(in).getAllGroups(), "");
}

} // namespace
