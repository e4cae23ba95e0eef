#include "config/standard_error.h"
#include "config/vpnxml.h"
#include "config/xml_digest.h"
#include "config/xml_lexer.h"

#include <fstream>
#include <memory>
#include <vector>

// Reads elements from a stream, with its own stack of those whose end is still to come.
class XMLDeclaration::Parser {
public:
    using Tag = XMLDeclaration::tag;

    explicit Parser(std::istream& in) : lexer_(in) {}

    bool readTag(Tag& tag, bool openTaken = false);
    int readAttributes(Tag& tag);
    std::unique_ptr<Tag> readElements(XMLDeclaration& parent);
    void readContent(XMLDeclaration& element);
    void readHeader();
    void readDocument(XMLDocument& document);

private:
    using Element = std::unique_ptr<XMLDeclaration>;

    bool readText(XMLDeclaration& element);
    void readByteOrderMark();
    void readRoot(XMLDocument& document);

    pelorikutil::XMLLexer lexer_;
};

namespace {

void requireEndTag(const XMLDeclaration& element, const XMLDeclaration::tag& tag) {
    if (!tag.IsClosing())
        throw XMLParserError(element.GetName() + " [End tag expected]");
    if (tag.GetName() != element.GetName())
        throw XMLParserError(element.GetName() + " [End tag mismatch]");
}

} // namespace

// True when the tag was self-closing. With `openTaken` its "<" was taken before the call.
bool XMLDeclaration::Parser::readTag(Tag& tag, bool openTaken) {
    tag.closing_ = false;
    if (!lexer_.openTag(openTaken) && lexer_.read_char() != '<')
        throw XMLParserError("'<' expected at begining of tag");
    lexer_.skipWhite();
    if (lexer_.peek_char() == '/') {
        lexer_.read_char();
        tag.closing_ = true;
    }
    tag.name_ = lexer_.ReadWord();
    bool selfClosing = false;
    if (tag.closing_)
        lexer_.skipWhite();
    else
        selfClosing = readAttributes(tag) == '/';
    if (selfClosing) {
        lexer_.read_char();
        tag.closing_ = true;
    }
    if (lexer_.read_char() != '>')
        throw XMLParserError("'>' expected at end of tag");
    return selfClosing;
}

int XMLDeclaration::Parser::readAttributes(Tag& tag) {
    for (;;) {
        lexer_.skipWhite();
        const int byte = lexer_.peek_char();
        if (byte == '/' || byte == '>')
            return byte;
        tag.attributes_.emplace_back();
        auto& [key, value] = tag.attributes_.back();
        key = lexer_.ReadWord();
        lexer_.skipWhite();
        lexer_.requireEquals();
        value = lexer_.ReadQuotedString();
    }
}

// Reads children of `parent` up to an end tag that is not one of theirs.
std::unique_ptr<XMLDeclaration::Parser::Tag>
XMLDeclaration::Parser::readElements(XMLDeclaration& parent) {
    std::vector<Element> open; // each the parent of the next
    for (;;) {
        auto tag = std::make_unique<Tag>();
        const bool selfClosing = readTag(*tag);
        const bool isEnd = tag->IsClosing() && !selfClosing;
        if (isEnd && open.empty())
            return tag;

        Element complete;
        if (isEnd) {
            requireEndTag(*open.back(), *tag);
            complete = std::move(open.back());
            open.pop_back();
        } else {
            Element element(new XMLDeclaration(std::move(tag)));
            if (selfClosing || readText(*element))
                complete = std::move(element);
            else
                open.push_back(std::move(element));
        }
        if (complete)
            (open.empty() ? parent : *open.back()).AddChild(complete.release());
    }
}

void XMLDeclaration::Parser::readContent(XMLDeclaration& element) {
    if (!readText(element))
        requireEndTag(element, *readElements(element));
}

// Reads the text and the end tag of `element`; false when it begins with a tag instead.
bool XMLDeclaration::Parser::readText(XMLDeclaration& element) {
    lexer_.skipWhite();
    if (lexer_.peek_char() == '<')
        return false;
    element.body_ = lexer_.ReadText();
    Tag end;
    readTag(end);
    requireEndTag(element, end);
    return true;
}

void XMLDeclaration::Parser::readHeader() {
    if (lexer_.ReadWord() != "?xml")
        throw XMLParserError("\"xml\" expected");
    for (lexer_.skipWhite(); lexer_.peek_char() != '?'; lexer_.skipWhite()) {
        lexer_.ReadWord();
        lexer_.skipWhite();
        lexer_.requireEquals();
        lexer_.ReadQuotedString();
    }
    lexer_.read_char();
    if (lexer_.read_char() != '>')
        throw XMLParserError("\"?>\" expected");
}

void XMLDeclaration::Parser::readDocument(XMLDocument& document) {
    int byte = lexer_.startOfDocument();
    if (byte == 0xEF) {
        readByteOrderMark();
        byte = lexer_.read_char();
    }
    if (byte == '<')
        readRoot(document);
    lexer_.expectEnd();
}

// Reads the mark from its second byte on.
void XMLDeclaration::Parser::readByteOrderMark() {
    if (lexer_.read_char() != 0xBB || lexer_.read_char() != 0xBF)
        throw XMLParserError("Unexpected symbol, when parsing Byte Order Mark (BOM). "
                             "UTF-8 only supported: EF BB BF");
}

// Reads the XML declaration, if there is one, and the root, from the byte behind "<" on.
void XMLDeclaration::Parser::readRoot(XMLDocument& document) {
    const bool hasHeader = lexer_.nextIs('?');
    if (hasHeader)
        readHeader();
    if (!readTag(*document.tag_, !hasHeader))
        readContent(document);
}

bool XMLDeclaration::tag::ReadDecl(std::istream& in) {
    return Parser(in).readTag(*this);
}

int XMLDeclaration::tag::ReadAttribs(std::istream& in) {
    return Parser(in).readAttributes(*this);
}

void XMLDeclaration::Read(std::istream& in) {
    Parser(in).readContent(*this);
}

std::unique_ptr<XMLDeclaration::tag> XMLDeclaration::ReadElements(std::istream& in) {
    return Parser(in).readElements(*this);
}

void XMLDocument::processXMLheader(std::istream& in) {
    Parser(in).readHeader();
}

void XMLDocument::Read(std::istream& in) {
    Parser(in).readDocument(*this);
    const std::string digits = GetAttr(HashAttrKey);
    DelAttr(HashAttrKey);
    if (!useHash_)
        return;
    if (digits.empty())
        throw XMLHashError("empty hash attribute");
    // A NUL among the digits would hide what stands behind it.
    const bool whole = digits.find('\0') == std::string::npos;
    if (!whole || !pelorikutil::digestOf(*this).Check(digits.c_str(), false))
        throw XMLHashError("invalid hash");
}

bool XMLDocument::Load(const char* path) {
    path = path == nullptr ? "" : path;
    std::ifstream file(path);
    if (!file.is_open()) {
        pelorikutil::standardError() << "WARNING: Can`t open " << GetName() << " file [" << path
                                     << "] for reading" << std::endl;
        return false;
    }
    try {
        Read(file);
        return true;
    } catch (const std::exception& problem) {
        EraseAll();
        pelorikutil::standardError()
            << "PARSE ERROR: [" << path << "] : " << problem.what() << std::endl;
        return false;
    }
}
