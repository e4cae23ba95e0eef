#include "cli/xml_text.h"

#include "cli/failure.h"
#include "cli/text_stream.h"

#include <sstream>

namespace cli {

namespace {

// No element that was read can have this name: a slash ends one.
constexpr char kNoRoot[] = "/";

void requireRoot(const XMLDocument& document, const std::string& name) {
    if (document.GetName() == kNoRoot)
        throw Refusal(name + ": holds no element");
}

std::string hintFor(const std::string& digestError) {
    if (digestError == "invalid hash")
        return " (the document was changed after it was sealed; where that is meant, pelorik xml "
               "seal renews the digest)";
    return " (there is no digest: pelorik xml seal adds one, --no-hash checks without)";
}

[[noreturn]] void refuseWriting(const std::string& name, const std::string& problem) {
    throw Refusal(name +
                  ": nothing was written, since it would not read back as it is: " + problem +
                  " (what cannot be written: a text that begins with white space, a zero byte, a "
                  "second Hash attribute of the root, a name that begins with '!' or '?')");
}

} // namespace

std::unique_ptr<XMLDocument> readDocument(const std::string& name, bool useHash) {
    TextStream text(name);
    auto document = std::make_unique<XMLDocument>(kNoRoot, useHash);
    try {
        document->Read(text.in());
    } catch (const XMLParserError& error) {
        throw Refusal(name + ": " + text.place() + ": " + error.what());
    } catch (const XMLHashError& error) {
        requireRoot(*document, name);
        throw Refusal(name + ": " + error.what() + hintFor(error.what()));
    }
    requireRoot(*document, name);
    return document;
}

std::string sealedText(XMLDocument& document) {
    std::ostringstream text;
    text.exceptions(std::ios::badbit | std::ios::failbit);
    document.UseHash(true);
    document.Write(text);
    return std::move(text).str();
}

void requireReadsBack(std::istream& sealed, const std::string& name) {
    try {
        XMLDocument(std::string(), true).Read(sealed);
    } catch (const XMLParserError& error) {
        refuseWriting(name, error.what());
    } catch (const XMLHashError& error) {
        refuseWriting(name, error.what());
    }
}

} // namespace cli
