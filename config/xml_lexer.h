// The bytes, words, quoted strings, texts and comments of a document. Not installed.

#ifndef PELORIK_CONFIG_XML_LEXER_H
#define PELORIK_CONFIG_XML_LEXER_H

#include "config/byte_source.h"

#include <istream>
#include <string>

namespace pelorikutil {

// Everything here throws `XMLParserError` where the input ends, fails or is not what it must be.
// The lexer looks ahead by one byte, and puts none back.
class XMLLexer {
public:
    // What `peek_char` and `startOfDocument` return for a stream that fails without ending.
    static constexpr int kNoByte = ByteSource::kNone;

    explicit XMLLexer(std::istream& in) : source_(in) {}

    void skipWhite() { source_.skipWhite(); }

    // Takes a byte. Where the input ends and `expected` is given, the error says what was expected.
    int read_char(const char* expected = nullptr) {
        const int byte = source_.take();
        if (byte == ByteSource::kNone)
            failWithoutByte(expected);
        return byte;
    }

    // The next byte, which stays, or `kNoByte`.
    int peek_char() {
        const int byte = source_.look();
        if (byte == ByteSource::kNone && source_.ended())
            failWithoutByte(nullptr);
        return byte;
    }

    // True when the next byte is `wanted`. The input may end or fail here.
    bool nextIs(char wanted) { return source_.look() == wanted; }

    // Takes a byte that must be "=". Compatibility: an input that ends or fails here is reported as
    // one of another byte, because callers rely on the message.
    void requireEquals();

    // Returns the bytes up to a delimiter, after white space. There may be none.
    std::string ReadWord();

    // Returns what is between two quotes, after white space, with its entities resolved. Empty, and
    // nothing taken, when there is no quote.
    std::string ReadQuotedString();

    // Returns the bytes up to "<", after white space, with their entities resolved.
    std::string ReadText();

    // Skips white space and comments; true when the "<" of a tag was taken after them. With
    // `openTaken` a "<" was taken before the call.
    bool openTag(bool openTaken);

    // Takes the first byte of a document, after white space. `kNoByte` leads to an error of
    // `expectEnd`.
    int startOfDocument();

    // Skips white space after a document; anything else there is an error.
    void expectEnd();

private:
    [[noreturn]] void failWithoutByte(const char* expected) const;
    void startToken();
    int next();
    void ReadWord_(std::string& out);
    bool takeOpen();
    void comment();
    char ReadEntity();
    char namedEntity(const char* rest, const char* expected, char value);
    char numericEntity();

    ByteSource source_;
};

} // namespace pelorikutil

#endif
