// The language of documents, told a second time: as plain recursion over the standard's own
// operations on streams, for the reader to be compared with. It builds a tree of its own, and
// leaves the stream in the state in which those operations leave it.

#ifndef PELORIK_TESTS_CONFIG_XML_MODEL_H
#define PELORIK_TESTS_CONFIG_XML_MODEL_H

#include "config/vpnxml.h"

#include <istream>
#include <list>
#include <string>
#include <vector>

namespace xml_model {

struct Node {
    std::string name;
    std::list<XMLDeclaration::Attribute> attributes;
    std::string body;
    std::vector<Node> children;
    bool closing = false;
};

// Reads a document from `in` into `root`. Returns what is wrong with it, or "". What was complete
// before that is in `root`.
std::string read(std::istream& in, Node& root);

// True when `element` and everything below it is what `node` says.
bool same(const XMLDeclaration& element, const Node& node);

} // namespace xml_model

#endif
