// The XML reader: any bytes are read or refused, in the same way whatever way they come in, and a
// document that was read is written so that it reads as the same document, with its digest.

#include "config/vpnxml.h"
#include "fuzz/target.h"
#include "tests/support/failing_buffers.h"

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>

namespace {

using std::string;

struct Outcome {
    string message;
    std::ios::iostate state;
    string written;
};

Outcome read(std::streambuf& buffer, XMLDocument& document) {
    std::istream in(&buffer);
    Outcome outcome;
    try {
        document.Read(in);
    } catch (const XMLParserError& error) {
        outcome.message = "! " + string(error.what());
    }
    outcome.state = in.rdstate();
    document.WriteToString(outcome.written, 0);
    return outcome;
}

bool startsWithWhiteSpace(const string& text) {
    return !text.empty() && std::strchr(" \t\n\r\v\f", text[0]) != nullptr;
}

bool hasNul(const string& text) {
    return text.find('\0') != string::npos;
}

// True when `element` and everything below it can be written so that it reads as the same: not so a
// name that would begin a comment, no name before attributes, a NUL, or white space that would be
// dropped.
bool canBeWritten(const XMLDeclaration& element) {
    const string& name = element.GetName();
    const auto& attributes = element.GetAttributes();
    const auto& children = element.GetChildren();
    if (name[0] == '!' || (name.empty() && !attributes.empty()) || hasNul(name) ||
        hasNul(element.GetBody()) || startsWithWhiteSpace(element.GetBody()))
        return false;
    return std::none_of(attributes.begin(), attributes.end(),
                        [](const auto& attribute) {
                            return hasNul(attribute.first) || hasNul(attribute.second);
                        }) &&
           std::all_of(children.begin(), children.end(),
                       [](const XMLDeclaration* child) { return canBeWritten(*child); });
}

// As `canBeWritten`, for a root: its name must not begin an XML declaration, and must be there for
// the digest to stand behind it; and a "Hash" of its own would be taken for the digest.
bool documentCanBeWritten(const XMLDocument& document) {
    const auto& attributes = document.GetAttributes();
    return canBeWritten(document) && !document.GetName().empty() && document.GetName()[0] != '?' &&
           std::none_of(attributes.begin(), attributes.end(),
                        [](const auto& attribute) { return attribute.first == "Hash"; });
}

void writeAndReadAgain(XMLDocument& document, const string& written) {
    if (!documentCanBeWritten(document))
        return;
    document.UseHash(true);
    std::stringstream text;
    document.Write(text);
    XMLDocument again("", true);
    again.Read(text);
    string writtenAgain;
    again.WriteToString(writtenAgain, 0);
    fuzz::require(writtenAgain == written, "a document reads as what was written");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const string text(data, data + size);
    std::stringbuf whole(text, std::ios::in);
    XMLDocument document;
    const Outcome outcome = read(whole, document);

    support::ByteAtATime trickle(text);
    XMLDocument trickled;
    const Outcome other = read(trickle, trickled);
    fuzz::require(outcome.message == other.message && outcome.state == other.state &&
                      outcome.written == other.written,
                  "it does not matter how the bytes come in");

    support::FailsAtItsEnd failing(text);
    XMLDocument cut;
    fuzz::require(!read(failing, cut).message.empty(), "a stream that fails is refused");

    if (outcome.message.empty())
        writeAndReadAgain(document, outcome.written);
    return 0;
}
