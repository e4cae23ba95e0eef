// What the tests of documents share.

#ifndef PELORIK_TESTS_CONFIG_XML_SUPPORT_H
#define PELORIK_TESTS_CONFIG_XML_SUPPORT_H

#include "config/vpnxml.h"

#include <sstream>
#include <string>

namespace xml_support {

// What an element and everything below it looks like, written flush left without a digest.
inline std::string written(XMLDeclaration& element) {
    std::string text;
    element.WriteToString(text, 0);
    return text;
}

// What a document writes of itself.
inline std::string writtenWithDigest(XMLDocument& document) {
    std::ostringstream out;
    document.Write(out);
    return out.str();
}

// What `action` threw, or "" when it threw nothing.
template<class Action>
std::string messageOf(Action action) {
    try {
        action();
    } catch (const std::exception& problem) {
        return problem.what();
    }
    return "";
}

// Reads `text` into `document`, and returns what that threw.
inline std::string readInto(XMLDocument& document, const std::string& text) {
    std::istringstream in(text);
    return messageOf([&] { document.Read(in); });
}

// What reading `text` into a new document throws.
inline std::string errorOf(const std::string& text) {
    XMLDocument document;
    return readInto(document, text);
}

// What is left to read of `in`.
inline std::string restOf(std::istream& in) {
    std::ostringstream rest;
    rest << in.rdbuf();
    return rest.str();
}

// Appends a new element of that name and body, and returns it.
inline XMLDeclaration& addChild(XMLDeclaration& parent, const std::string& name,
                                const std::string& body = std::string()) {
    XMLDeclaration* const child = parent.AddChild(new XMLDeclaration(name));
    child->SetBody(body);
    return *child;
}

} // namespace xml_support

#endif
