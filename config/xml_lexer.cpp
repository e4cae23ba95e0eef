#include "config/xml_lexer.h"

#include "config/digit_value.h"
#include "config/vpnxml.h"

#include <array>
#include <string_view>

namespace config {

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

// Ends the reading where no byte came.
void XMLLexer::failWithoutByte(const char* expected) const {
    if (source_.ended())
        failAtEnd(expected);
    fail(kStreamReadError);
}

void XMLLexer::expect(char wanted, const char* error) {
    const int byte = source_.take();
    if (byte == ByteSource::kNone && !source_.ended())
        fail(kStreamReadError);
    if (byte != wanted)
        fail(error);
}

int XMLLexer::next() {
    const int byte = source_.lookToTake();
    if (byte == ByteSource::kNone)
        failWithoutByte(nullptr);
    return byte;
}

std::string XMLLexer::word() {
    skipWhite();
    requireReadable();
    std::string word;
    for (;;) {
        source_.takeReady(word, [](int byte) { return !isDelimiter(byte); });
        if (isDelimiter(next()))
            return word;
        word.push_back(static_cast<char>(take()));
    }
}

std::string XMLLexer::quoted() {
    skipWhite();
    requireReadable();
    const int quote = next();
    if (quote != '"' && quote != '\'')
        return {};
    take();
    std::string text;
    for (;;) {
        source_.takeReady(text, [quote](int byte) { return byte != quote && byte != '&'; });
        const int byte = take("\" or '");
        if (byte == quote)
            return text;
        text.push_back(byte == '&' ? entity() : static_cast<char>(byte));
    }
}

std::string XMLLexer::text() {
    skipWhite();
    requireReadable();
    std::string text;
    for (;;) {
        source_.takeReady(text, [](int byte) { return byte != '<' && byte != '&'; });
        if (next() == '<')
            return text;
        const int byte = take();
        text.push_back(byte == '&' ? entity() : static_cast<char>(byte));
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

int XMLLexer::firstByte() {
    skipWhite();
    const int byte = source_.take();
    if (source_.ended())
        failAtEnd(nullptr);
    if (byte == ByteSource::kNone)
        fail(kReadError);
    return byte;
}

void XMLLexer::expectEnd() {
    skipWhite();
    if (source_.bad())
        fail(kReadError);
    if (!source_.ended())
        fail("End of file expected");
}

void XMLLexer::requireReadable() const {
    if (source_.bad())
        fail(kStreamReadError);
}

bool XMLLexer::takeOpen() {
    skipWhite();
    if (next() != '<')
        return false;
    take();
    return true;
}

// Skips a comment from its "!" on. The byte behind two dashes is not looked at again: "--->" ends
// none.
void XMLLexer::comment() {
    take();
    for (int dashes = 0; dashes < 2; ++dashes) {
        if (take("<!--") != '-')
            fail("'<!--' expected");
    }
    constexpr char kEnd[] = "-->";
    while (take(kEnd) != '-' || take(kEnd) != '-' || take(kEnd) != '>') {
    }
}

// What the entity stands for whose "&" was taken.
char XMLLexer::entity() {
    switch (take()) {
    case 'a':
        switch (take("&amp; or &apos;")) {
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
        if (take(expected) != *rest)
            fail("Unknown Entity");
    }
    return value;
}

// The byte behind "#" is dropped, whatever it is; only an "x" says something.
char XMLLexer::numericEntity() {
    const Notation& notation = take() == 'x' ? kHexadecimal : kDecimal;
    int value = 0;
    for (;;) {
        if (value > 255)
            fail(notation.tooBig);
        const int byte = take(notation.expected);
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

} // namespace config
