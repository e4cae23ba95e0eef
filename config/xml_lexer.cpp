#include "config/xml_lexer.h"

#include "config/digit_value.h"
#include "config/vpnxml.h"

#include <array>
#include <string_view>

namespace pelorikutil {

namespace {

constexpr char kEndOfStream[] = "Unexpected end of stream";
constexpr char kStreamReadError[] = "stream read error";
constexpr char kReadError[] = "Read error";

// One of the two ways to write a byte as a number.
struct Notation {
    int base;
    const char* expected;
    const char* invalid;
    const char* tooBig;
};

constexpr Notation kHexadecimal = {16, "#x<hex>;", "invalid hexadecimal value",
                                   "to big hexadecimal value"};
constexpr Notation kDecimal = {10, "#<num>;", "invalid decimal value", "to big decimal value"};

[[noreturn]] void fail(const std::string& message) {
    throw XMLParserError(message);
}

[[noreturn]] void failAtEnd(const char* expected) {
    if (expected == nullptr)
        fail(kEndOfStream);
    fail(std::string(kEndOfStream) + ", while '" + expected + "' ecpected");
}

// The bytes that end a word.
consteval std::array<bool, 256> makeDelimiters() {
    std::array<bool, 256> delimiters{};
    for (const char byte : std::string_view("\t\n\r /;<=>"))
        delimiters[static_cast<unsigned char>(byte)] = true;
    return delimiters;
}

constexpr std::array<bool, 256> kDelimiters = makeDelimiters();

bool isDelimiter(int byte) {
    return kDelimiters[static_cast<unsigned char>(byte)];
}

} // namespace

// Reports that no byte came.
void XMLLexer::failWithoutByte(const char* expected) const {
    if (source_.ended())
        failAtEnd(expected);
    fail(kStreamReadError);
}

void XMLLexer::requireEquals() {
    if (source_.take() != '=')
        fail("'=' expected");
}

void XMLLexer::startToken() {
    skipWhite();
    if (source_.bad())
        fail(kStreamReadError);
}

// The next byte, which stays. An ended or failed stream is left as taking a byte would leave it.
int XMLLexer::next() {
    const int byte = source_.lookToTake();
    if (byte == ByteSource::kNone)
        failWithoutByte(nullptr);
    return byte;
}

std::string XMLLexer::ReadWord() {
    startToken();
    std::string word;
    ReadWord_(word);
    return word;
}

// Appends the bytes up to a delimiter to `out`.
void XMLLexer::ReadWord_(std::string& out) {
    for (;;) {
        source_.takeReady(out, [](int byte) { return !isDelimiter(byte); });
        if (isDelimiter(next()))
            return;
        out.push_back(static_cast<char>(read_char()));
    }
}

std::string XMLLexer::ReadQuotedString() {
    startToken();
    const int quote = next();
    if (quote != '"' && quote != '\'')
        return {};
    read_char();
    std::string text;
    for (;;) {
        source_.takeReady(text, [quote](int byte) { return byte != quote && byte != '&'; });
        const int byte = read_char("\" or '");
        if (byte == quote)
            return text;
        text.push_back(byte == '&' ? ReadEntity() : static_cast<char>(byte));
    }
}

std::string XMLLexer::ReadText() {
    startToken();
    std::string text;
    for (;;) {
        source_.takeReady(text, [](int byte) { return byte != '<' && byte != '&'; });
        if (next() == '<')
            return text;
        const int byte = read_char();
        text.push_back(byte == '&' ? ReadEntity() : static_cast<char>(byte));
    }
}

bool XMLLexer::openTag(bool openTaken) {
    if (!openTaken)
        openTaken = takeOpen();
    while (openTaken && next() == '!') {
        comment();
        openTaken = takeOpen();
    }
    return openTaken;
}

int XMLLexer::startOfDocument() {
    skipWhite();
    const int byte = source_.take();
    if (byte == ByteSource::kNone && source_.ended())
        failAtEnd(nullptr);
    return byte;
}

void XMLLexer::expectEnd() {
    skipWhite();
    if (source_.bad())
        fail(kReadError);
    if (!source_.ended())
        fail("End of file expected");
}

bool XMLLexer::takeOpen() {
    skipWhite();
    if (next() != '<')
        return false;
    read_char();
    return true;
}

// Skips a comment from its "!" on. The byte after two dashes is not looked at again: "--->" ends
// none.
void XMLLexer::comment() {
    read_char();
    for (int dashes = 0; dashes < 2; ++dashes) {
        if (read_char("<!--") != '-')
            fail("'<!--' expected");
    }
    constexpr char kEnd[] = "-->";
    while (read_char(kEnd) != '-' || read_char(kEnd) != '-' || read_char(kEnd) != '>') {
    }
}

// Returns the byte of the entity whose "&" was taken.
char XMLLexer::ReadEntity() {
    switch (read_char()) {
    case 'a':
        switch (read_char("&amp; or &apos;")) {
        case 'm':
            return namedEntity("p;", "&amp;", '&');
        case 'p':
            return namedEntity("os;", "&apos;", '\'');
        }
        break;
    case 'g':
        return namedEntity("t;", "&gt;", '>');
    case 'l':
        return namedEntity("t;", "&lt;", '<');
    case 'q':
        return namedEntity("uot;", "&quot;", '"');
    case '#':
        return numericEntity();
    }
    fail("Unknown Entity");
}

char XMLLexer::namedEntity(const char* rest, const char* expected, char value) {
    for (; *rest != '\0'; ++rest) {
        if (read_char(expected) != *rest)
            fail("Unknown Entity");
    }
    return value;
}

// The byte after "#" is dropped, whatever it is; only an "x" has a meaning.
char XMLLexer::numericEntity() {
    const Notation& notation = read_char() == 'x' ? kHexadecimal : kDecimal;
    int value = 0;
    for (;;) {
        if (value > 255)
            fail(notation.tooBig);
        const int byte = read_char(notation.expected);
        if (byte == ';')
            break;
        const int digit = digitValue(byte, notation.base);
        if (digit < 0)
            fail(notation.invalid);
        value = value * notation.base + digit;
    }
    if (value <= 8)
        fail("not printable hexadecimal char");
    return static_cast<char>(value);
}

} // namespace pelorikutil
