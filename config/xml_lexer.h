// The bytes, words, quoted strings, texts and comments of a document. Not installed.

#ifndef PELORIK_CONFIG_XML_LEXER_H
#define PELORIK_CONFIG_XML_LEXER_H

#include "config/byte_source.h"

#include <istream>
#include <string>

namespace config {

// Everything here throws `XMLParserError` where the input ends, fails or is not what it must be.
// The lexer looks ahead by one byte, and puts none back.
class XMLLexer {
public:
    explicit XMLLexer(std::istream& in) : source_(in) {}

    void skipWhite() { source_.skipWhite(); }

    // Takes a byte. Where the input ends and `expected` is given, the error says what was expected.
    int take(const char* expected = nullptr) {
        const int byte = source_.take();
        if (byte == ByteSource::kNone)
            failWithoutByte(expected);
        return byte;
    }

    // Takes a byte that must be `wanted`; throws `error` otherwise, at the input's end too.
    void expect(char wanted, const char* error);

    // The next byte, which stays.
    int peek() {
        const int byte = source_.look();
        if (byte == ByteSource::kNone)
            failWithoutByte(nullptr);
        return byte;
    }

    // True when the next byte is `wanted`. The input may end here.
    bool nextIs(char wanted) { return source_.look() == wanted; }

    // As `peek`, but leaves an ended stream failed too, as taking a byte would.
    int next();

    // The bytes up to a delimiter, behind white space. There may be none.
    std::string word();

    // What stands between two quotes, behind white space, with its entities resolved. Empty, and
    // nothing taken, where there is no quote.
    std::string quoted();

    // The bytes up to "<", behind white space, with their entities resolved.
    std::string text();

    // Skips white space and comments; true when the "<" of a tag was taken behind them. With
    // `openTaken` a "<" was taken before the call.
    bool openTag(bool openTaken);

    // The first byte of a document, behind white space.
    int firstByte();

    // Skips white space behind a document; anything else there is an error.
    void expectEnd();

private:
    [[noreturn]] void failWithoutByte(const char* expected) const;
    void requireReadable() const;
    bool takeOpen();
    void comment();
    char entity();
    char namedEntity(const char* rest, const char* expected, char value);
    char numericEntity();

    ByteSource source_;
};

} // namespace config

#endif
