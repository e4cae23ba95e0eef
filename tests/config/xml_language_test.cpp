// The reader beside a second telling of its language (xml_model.h), on random, mutated and cut
// documents, and on streams that fail, trickle, end early or throw.

#include "config/vpnxml.h"
#include "tests/config/xml_model.h"
#include "tests/config/xml_random.h"
#include "tests/config/xml_support.h"
#include "tests/support/failing_buffers.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <list>
#include <sstream>
#include <string>
#include <vector>

namespace {

using std::string;
using support::DeviceFailure;
using xml_model::Node;
using xml_support::written;

const char kSample[] =
    "\xEF\xBB\xBF<?xml version='1.0' encoding = \"x\" ?>\n<!-- a - b -- c ---> -->\n"
    "<cfg k='&amp;&apos;v' Hash=\"0\" l = \"&#x41;&#065;&gt;&lt;&quot;\" >\n"
    "\t<!----><a/>< b >  text &amp; more<!-- d --></ b >\n"
    "\t<c><d e='' ><f></f></d><!-- g --></c ></cfg>\n ";

// Holds a whole text, which may be put back, and throws or ends behind it.
class WholeText : public std::streambuf {
public:
    WholeText(string text, bool throws) : text_(std::move(text)), throws_(throws) {
        setg(text_.data(), text_.data(), text_.data() + text_.size());
    }

    std::size_t taken() const { return static_cast<std::size_t>(gptr() - eback()); }

protected:
    int_type underflow() override {
        if (throws_)
            throw DeviceFailure();
        return traits_type::eof();
    }

private:
    string text_;
    bool throws_;
};

// Gives a text in pieces of a few bytes, or, when they are to hold none, without a get area; throws
// or ends behind it. A piece begins where the last one ended, so that nothing can be put back
// there.
class InPieces : public std::streambuf {
public:
    InPieces(string text, std::size_t piece, bool throws)
        : text_(std::move(text)), piece_(piece), throws_(throws) {}

    std::size_t taken() const { return next_ - static_cast<std::size_t>(egptr() - gptr()); }

protected:
    int_type underflow() override {
        if (next_ == text_.size())
            return atEnd();
        char* const first = &text_[next_];
        const std::size_t length = std::min(piece_, text_.size() - next_);
        setg(first, first, first + length);
        next_ += length;
        return traits_type::to_int_type(*first);
    }

    int_type uflow() override {
        if (piece_ > 0)
            return std::streambuf::uflow();
        return next_ == text_.size() ? atEnd() : traits_type::to_int_type(text_[next_++]);
    }

private:
    int_type atEnd() const {
        if (throws_)
            throw DeviceFailure();
        return traits_type::eof();
    }

    string text_;
    std::size_t piece_;
    bool throws_;
    std::size_t next_ = 0;
};

// What came of reading a text.
struct Outcome {
    string message; // of the error, or empty
    std::ios::iostate state;
    std::size_t taken;

    bool operator==(const Outcome& other) const {
        return message == other.message && state == other.state && taken == other.taken;
    }
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    return out << "\"" << outcome.message << "\", state " << outcome.state << ", " << outcome.taken
               << " bytes taken";
}

template<class Buffer>
Outcome readWithLibrary(Buffer& buffer, XMLDocument& document,
                        std::ios::iostate mask = std::ios::goodbit) {
    std::istream in(&buffer);
    in.exceptions(mask);
    const string message = xml_support::messageOf([&] { document.Read(in); });
    return {message, in.rdstate(), buffer.taken()};
}

Outcome readWithModel(const string& text, bool throws, Node& root,
                      std::ios::iostate mask = std::ios::goodbit) {
    WholeText buffer(text, throws);
    std::istream in(&buffer);
    in.exceptions(mask);
    string message;
    const string thrown = xml_support::messageOf([&] { message = xml_model::read(in, root); });
    if (!thrown.empty()) // by the stream, which was told to
        return {thrown, in.rdstate(), buffer.taken()};
    const auto isHash = [](const auto& attribute) { return attribute.first == "Hash"; };
    const auto hash = std::find_if(root.attributes.begin(), root.attributes.end(), isHash);
    if (message.empty() && hash != root.attributes.end())
        root.attributes.erase(hash);
    return {message.c_str(), in.rdstate(), buffer.taken()}; // what() ends at a name's NUL too
}

// Reads `text` with the model and, from a buffer that holds it whole and one that holds a byte,
// with the library. True when the text was accepted.
bool compare(const string& text) {
    Node expected;
    const Outcome outcome = readWithModel(text, false, expected);
    XMLDocument whole;
    WholeText buffer(text, false);
    EXPECT_EQ(readWithLibrary(buffer, whole), outcome) << text;
    EXPECT_TRUE(xml_model::same(whole, expected)) << text << "\ngave\n" << written(whole);
    XMLDocument trickled;
    support::ByteAtATime trickle(text);
    EXPECT_EQ(readWithLibrary(trickle, trickled), outcome) << text;
    EXPECT_TRUE(xml_model::same(trickled, expected)) << text;
    return outcome.message.empty();
}

void compareFailing(const string& text) {
    Node expected;
    const Outcome outcome = readWithModel(text, true, expected);
    EXPECT_NE(outcome.message, "");
    XMLDocument whole;
    WholeText buffer(text, true);
    EXPECT_EQ(readWithLibrary(buffer, whole), outcome) << text;
    EXPECT_TRUE(xml_model::same(whole, expected)) << text;
    XMLDocument trickled;
    support::FailsAtItsEnd trickle(text);
    EXPECT_EQ(readWithLibrary(trickle, trickled), outcome) << text;
    EXPECT_TRUE(xml_model::same(trickled, expected)) << text;
}

TEST(XMLLanguage, TheSampleIsADocument) {
    EXPECT_TRUE(compare(kSample));
}

TEST(XMLLanguage, ReadsEveryBeginningOfADocument) {
    const string sample = kSample;
    for (std::size_t length = 0; length <= sample.size(); ++length)
        EXPECT_EQ(compare(sample.substr(0, length)), length >= sample.rfind('>') + 1) << length;
}

TEST(XMLLanguage, ReadsTheSampleWithEveryByteInEveryPlace) {
    const string bytes = "<>/!?-=\"'&;# ax\n\xEF\xFF" + string(1, '\0');
    const string sample = kSample;
    for (std::size_t place = 0; place < sample.size(); ++place) {
        for (const char byte : bytes) {
            string text = sample;
            text[place] = byte;
            compare(text);
            compare(string(sample).insert(place, 1, byte));
        }
        compare(string(sample).erase(place, 1));
    }
}

TEST(XMLLanguage, ReadsEveryShortText) {
    const string bytes = "<>/!-=' a";
    int accepted = 0;
    for (std::size_t length = 0; length <= 5; ++length) {
        std::vector<std::size_t> digits(length);
        for (bool more = true; more;) {
            string text;
            for (const std::size_t digit : digits)
                text += bytes[digit];
            accepted += compare(text) ? 1 : 0;
            more = false;
            for (std::size_t& digit : digits) {
                digit = (digit + 1) % bytes.size();
                more = more || digit != 0;
                if (digit != 0)
                    break;
            }
        }
    }
    EXPECT_GT(accepted, 0);
}

TEST(XMLLanguage, ReadsRandomDocuments) {
    xml_random::Source random(2);
    for (int round = 0; round < 3000; ++round) {
        const string text = random.text();
        ASSERT_TRUE(compare(text)) << text << "\n" << xml_support::errorOf(text);
    }
}

// A random document with a few of its bytes changed, doubled, moved or gone.
string mutated(xml_random::Source& random) {
    string text = random.text();
    for (std::size_t count = 1 + random.below(3); count > 0 && !text.empty(); --count) {
        const std::size_t place = random.below(text.size());
        const std::size_t length = 1 + random.below(8);
        switch (random.below(5)) {
        case 0:
            text[place] = random.oneOf(string("<>/!?-=\"'&;#xa \n\xFF"));
            break;
        case 1:
            text.erase(place, length);
            break;
        case 2:
            text.insert(place, text.substr(place, length));
            break;
        case 3:
            text.insert(random.below(text.size()), text.substr(place, length));
            break;
        default:
            text.resize(place);
        }
    }
    return text;
}

TEST(XMLLanguage, ReadsMutatedDocuments) {
    xml_random::Source random(3);
    int accepted = 0;
    for (int round = 0; round < 10000; ++round)
        accepted += compare(mutated(random)) ? 1 : 0;
    EXPECT_GT(accepted, 100);
}

TEST(XMLStreams, AStreamThatFailsAnywhereIsRefusedWhereItFailed) {
    const string sample = kSample;
    for (std::size_t length = 0; length <= sample.size(); ++length)
        compareFailing(sample.substr(0, length));
}

TEST(XMLStreams, ARandomStreamThatFailsAnywhereIsRefusedWhereItFailed) {
    xml_random::Source random(4);
    for (int round = 0; round < 3000; ++round) {
        const string text = mutated(random);
        Node root;
        // Texts that are refused before they end say nothing of streams.
        if (readWithModel(text, true, root).message.find("ead error") != string::npos)
            compareFailing(text);
    }
}

TEST(XMLStreams, WhereTheBufferIsRefilledChangesNothing) {
    const string sample = kSample;
    for (const bool throws : {false, true}) {
        for (std::size_t length = 0; length <= sample.size(); ++length) {
            const string text = sample.substr(0, length);
            Node expected;
            const Outcome outcome = readWithModel(text, throws, expected);
            for (std::size_t piece = 0; piece < 12; ++piece) {
                XMLDocument document;
                InPieces buffer(text, piece, throws);
                EXPECT_EQ(readWithLibrary(buffer, document), outcome) << text << "\n" << piece;
                EXPECT_TRUE(xml_model::same(document, expected)) << text << "\n" << piece;
            }
        }
    }
}

string errorOfFailing(const string& text) {
    support::FailsAtItsEnd device(text);
    std::istream in(&device);
    XMLDocument document;
    return xml_support::messageOf([&] { document.Read(in); });
}

TEST(XMLStreams, SaysReadErrorOnlyBeforeTheFirstByteAndAfterTheRoot) {
    for (const char* text : {"", " ", "<a/>", "<a></a>\n", "x"})
        EXPECT_EQ(errorOfFailing(text), "Read error") << text;
    for (const char* text : {"<",       "\xEF",      "\xEF\xBB\xBF", "<?",       "<?xml", "<?xml ",
                             "<?xml a", "<?xml a='", "<?xml ?",      "<?xml ?>", "<!",    "<!-",
                             "<!--",    "<!-- --",   "<!-- -->",     "< ",       "<a",    "<a ",
                             "<a b",    "<a b=",     "<a b= ",       "<a b='x",  "<a/",   "<a>",
                             "<a> ",    "<a>x",      "<a>&",         "<a>&a",    "<a>&#", "<a>&#x4",
                             "<a><b/>", "<a></",     "<a></a",       "<a></a "})
        EXPECT_EQ(errorOfFailing(text), "stream read error") << text;
}

TEST(XMLStreams, AStreamThatFailsBeforeAnEqualsSignLacksIt) {
    for (const char* text : {"<a b ", "<?xml a ", "<a b='c' d\n"})
        EXPECT_EQ(errorOfFailing(text), "'=' expected") << text;
    XMLDeclaration::tag tag;
    support::FailsAtItsEnd device("b ");
    std::istream in(&device);
    EXPECT_EQ(xml_support::messageOf([&] { tag.ReadAttribs(in); }), "'=' expected");
}

TEST(XMLStreams, AStreamThatFailsBetweenAttributesLeavesAnEmptyOne) {
    for (const std::ios::iostate state : {std::ios::badbit, std::ios::failbit}) {
        XMLDeclaration::tag tag;
        std::istringstream in("b='c'/>");
        in.setstate(state);
        EXPECT_EQ(xml_support::messageOf([&] { tag.ReadAttribs(in); }), "stream read error");
        EXPECT_EQ(tag.GetAttributes(), (std::list<XMLDeclaration::Attribute>{{"", ""}}));
    }
    XMLDocument document;
    support::FailsAtItsEnd device("<a b='c' ");
    std::istream in(&device);
    EXPECT_EQ(xml_support::messageOf([&] { document.Read(in); }), "stream read error");
    EXPECT_EQ(document.GetAttributes(),
              (std::list<XMLDeclaration::Attribute>{{"b", "c"}, {"", ""}}));
}

// Sets a state of the stream that reads from it when its text has been read, and then ends or goes
// on.
class Spoils : public WholeText {
public:
    Spoils(string text, std::ios::iostate state, int next)
        : WholeText(std::move(text), false), state_(state), next_(next) {}

    std::istream* reader = nullptr;

protected:
    int_type underflow() override {
        reader->setstate(state_);
        return next_;
    }

private:
    std::ios::iostate state_;
    int next_;
};

template<class Read>
Outcome readSpoilt(const string& text, std::ios::iostate state, int next, Read read) {
    Spoils buffer(text, state, next);
    std::istream in(&buffer);
    buffer.reader = &in;
    const string message = read(in);
    return {message, in.rdstate(), buffer.taken()};
}

TEST(XMLStreams, AStreamThatFailsAfterTheRootIsReadToItsEndOrRefused) {
    constexpr int kEnd = std::char_traits<char>::eof();
    const struct {
        std::ios::iostate state;
        int next;
        const char* message;
    } table[] = {{std::ios::failbit, 'x', "End of file expected"},
                 {std::ios::failbit, kEnd, ""},
                 {std::ios::badbit, 'x', "Read error"},
                 {std::ios::badbit, kEnd, "Read error"}};
    for (const auto& row : table) {
        const Outcome outcome = readSpoilt("<a/>", row.state, row.next, [](std::istream& in) {
            XMLDocument document;
            return xml_support::messageOf([&] { document.Read(in); });
        });
        EXPECT_EQ(outcome.message, row.message);
        EXPECT_EQ(outcome, readSpoilt("<a/>", row.state, row.next, [](std::istream& in) {
                      Node root;
                      return xml_model::read(in, root);
                  }));
    }
}

TEST(XMLStreams, AStreamThatHasFailedBeforeIsRefused) {
    const struct {
        std::ios::iostate state;
        const char* message;
    } table[] = {{std::ios::badbit, "Read error"}, {std::ios::failbit, "End of file expected"}};
    for (const auto& row : table) {
        std::istringstream in("<a/>");
        in.setstate(row.state);
        XMLDocument document;
        EXPECT_EQ(xml_support::messageOf([&] { document.Read(in); }), row.message);
        EXPECT_EQ(in.rdstate(), row.state | std::ios::failbit);
    }
    std::istringstream ended("<a/>");
    ended.setstate(std::ios::eofbit);
    XMLDocument document;
    EXPECT_EQ(xml_support::messageOf([&] { document.Read(ended); }), "Unexpected end of stream");
    std::istream none(nullptr);
    EXPECT_EQ(xml_support::messageOf([&] { document.Read(none); }), "Read error");
}

TEST(XMLStreams, NothingIsTakenFromAStreamThatHasFailedBefore) {
    for (const std::ios::iostate state : {std::ios::failbit, std::ios::badbit, std::ios::eofbit}) {
        WholeText buffer("?xml a='b'?>", false);
        std::istream in(&buffer);
        in.setstate(state);
        XMLDocument document;
        XMLDeclaration::tag tag;
        EXPECT_THROW(document.processXMLheader(in), XMLParserError);
        EXPECT_THROW(document.XMLDeclaration::Read(in), XMLParserError);
        EXPECT_THROW(document.ReadElements(in), XMLParserError);
        EXPECT_THROW(tag.ReadDecl(in), XMLParserError);
        EXPECT_THROW(tag.ReadAttribs(in), XMLParserError);
        EXPECT_EQ(buffer.taken(), 0u);
        EXPECT_EQ(in.rdstate(), state | std::ios::failbit);
    }
}

TEST(XMLStreams, EveryOperationRefusesAStreamThatFails) {
    support::FailsAtItsEnd device("");
    std::istream in(&device);
    XMLDocument document;
    XMLDeclaration::tag tag;
    const char kError[] = "stream read error";
    EXPECT_EQ(xml_support::messageOf([&] { tag.ReadDecl(in); }), kError);
    in.clear();
    EXPECT_EQ(xml_support::messageOf([&] { tag.ReadAttribs(in); }), kError);
    in.clear();
    EXPECT_EQ(xml_support::messageOf([&] { document.XMLDeclaration::Read(in); }), kError);
    in.clear();
    EXPECT_EQ(xml_support::messageOf([&] { document.ReadElements(in); }), kError);
    in.clear();
    EXPECT_EQ(xml_support::messageOf([&] { document.processXMLheader(in); }), kError);
    EXPECT_TRUE(in.bad());
}

TEST(XMLStreams, IsLeftAtItsEndAndNotFailedByADocument) {
    std::istringstream in("<a/> ");
    XMLDocument().Read(in);
    EXPECT_EQ(in.rdstate(), std::ios::eofbit);
}

// What reading `text` from a stream that throws for `mask` throws, and in what state that leaves
// it.
template<class Exception, class Buffer>
std::ios::iostate stateAfter(Buffer&& buffer, std::ios::iostate mask) {
    std::istream in(&buffer);
    in.exceptions(mask);
    XMLDocument document;
    EXPECT_THROW(document.Read(in), Exception);
    return in.rdstate();
}

TEST(XMLStreams, AStreamThatIsToldToThrowThrows) {
    EXPECT_EQ(stateAfter<DeviceFailure>(support::FailsAtItsEnd("<a>"), std::ios::badbit),
              std::ios::badbit);
    EXPECT_EQ(stateAfter<DeviceFailure>(support::FailsAtItsEnd("<a"),
                                        std::ios::badbit | std::ios::failbit),
              std::ios::badbit);
    EXPECT_EQ(stateAfter<std::ios::failure>(support::FailsAtItsEnd("<a"), std::ios::failbit),
              std::ios::badbit | std::ios::failbit);
    EXPECT_EQ(stateAfter<std::ios::failure>(support::ByteAtATime("<a/>"), std::ios::eofbit),
              std::ios::eofbit);
    EXPECT_EQ(stateAfter<XMLParserError>(support::ByteAtATime("<a/>x"), std::ios::eofbit),
              std::ios::goodbit);
}

TEST(XMLStreams, AStreamThatIsToldToThrowIsLeftAsTheStandardOperationsLeaveIt) {
    const std::ios::iostate bits[] = {std::ios::badbit, std::ios::failbit, std::ios::eofbit};
    const string sample = kSample;
    for (unsigned set = 0; set < 8; ++set) {
        std::ios::iostate mask = std::ios::goodbit;
        for (unsigned i = 0; i < 3; ++i)
            mask |= (set >> i & 1) != 0 ? bits[i] : std::ios::goodbit;
        for (const bool throws : {false, true}) {
            for (std::size_t length = 0; length <= sample.size(); ++length) {
                const string text = sample.substr(0, length);
                Node expected;
                XMLDocument document;
                WholeText buffer(text, throws);
                const Outcome outcome = readWithModel(text, throws, expected, mask);
                EXPECT_EQ(readWithLibrary(buffer, document, mask), outcome) << text << "\n" << mask;
            }
        }
    }
}

TEST(XMLStreams, FlushesTheStreamThatTheInputIsTiedTo) {
    struct Counting : std::stringbuf {
        int flushes = 0;
        int sync() override { return ++flushes, 0; }
    } buffer;
    std::ostream out(&buffer);
    std::istringstream in("<a/>");
    in.tie(&out);
    XMLDocument().Read(in);
    EXPECT_GE(buffer.flushes, 1);
}

} // namespace
