// Random documents.

#ifndef PELORIK_TESTS_CONFIG_XML_RANDOM_H
#define PELORIK_TESTS_CONFIG_XML_RANDOM_H

#include "config/vpnxml.h"

#include <cstddef>
#include <random>
#include <string>

namespace xml_random {

class Source {
public:
    explicit Source(unsigned seed) : engine_(seed) {}

    // 0 to `count` - 1.
    std::size_t below(std::size_t count) { return engine_() % count; }
    bool oneIn(std::size_t count) { return below(count) == 0; }
    template<class List>
    const auto& oneOf(const List& list) {
        return list[below(std::size(list))];
    }

    // A document's text with every liberty that the language leaves: white space, quotes, comments,
    // entities, self-closing tags, byte order mark and declaration.
    std::string text();

    // Gives a new element a name, attributes and children or a body that can be read back.
    void fill(XMLDeclaration& element, int depth);

private:
    std::string white();
    std::string between();
    std::string word();
    std::string characters(char quote);
    std::string attribute();
    std::string element(int depth);
    std::string bytes(std::size_t longest);
    std::string name();

    std::mt19937 engine_;
};

} // namespace xml_random

#endif
