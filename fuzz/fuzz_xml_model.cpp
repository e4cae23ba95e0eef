// The XML reader beside the second telling of its language in the tests: the same documents are
// refused, with the same message, and the others give the same tree.

#include "config/vpnxml.h"
#include "fuzz/target.h"
#include "tests/config/xml_model.h"
#include "tests/support/failing_buffers.h"

#include <algorithm>
#include <sstream>
#include <string>

namespace {

using std::string;

// The model's stack is the process's own.
constexpr std::size_t kLongest = 20000;

string readWithLibrary(std::istream& in, XMLDocument& document) {
    try {
        document.Read(in);
        return "";
    } catch (const XMLParserError& error) {
        return error.what();
    }
}

// What the document keeps of the model's: its first digest is taken out.
string readWithModel(std::istream& in, xml_model::Node& root) {
    const string message = xml_model::read(in, root);
    const auto isHash = [](const auto& attribute) { return attribute.first == "Hash"; };
    const auto hash = std::find_if(root.attributes.begin(), root.attributes.end(), isHash);
    if (message.empty() && hash != root.attributes.end())
        root.attributes.erase(hash);
    return message.c_str(); // what() ends at a name's NUL, too
}

void compare(std::streambuf& ours, std::streambuf& models) {
    std::istream in(&ours);
    std::istream other(&models);
    XMLDocument document;
    xml_model::Node expected;
    const string message = readWithLibrary(in, document);
    fuzz::require(message == readWithModel(other, expected), "the message is the model's");
    fuzz::require(in.rdstate() == other.rdstate(), "the stream is left as the model leaves it");
    fuzz::require(xml_model::same(document, expected), "the tree is the model's");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const string text(data, data + std::min(size, kLongest));
    // A buffer in which bytes can be put back, as the model does.
    std::stringbuf ours(text, std::ios::in);
    std::stringbuf models(text, std::ios::in);
    compare(ours, models);
    return 0;
}
