// Visits a tree of elements without recursion. Not installed.

#ifndef PELORIK_CONFIG_XML_WALK_H
#define PELORIK_CONFIG_XML_WALK_H

#include "config/vpnxml.h"

#include <cstddef>
#include <vector>

namespace xml_walk {

// For `top` and everything below it, in document order: calls enter(element, depth), with depth 0
// for `top`, then visits the element's children, then calls leave(element, depth). Null children
// are passed over. Neither may change the children of an element.
template<class Element, class Enter, class Leave>
void visit(Element& top, Enter enter, Leave leave) {
    struct Level {
        Element* element;
        std::size_t nextChild;
    };
    std::vector<Level> path;
    const auto descend = [&](Element& element) {
        enter(element, path.size());
        path.push_back({&element, 0});
    };

    descend(top);
    while (!path.empty()) {
        Level& level = path.back();
        const auto& children = level.element->GetChildren();
        if (level.nextChild == children.size()) {
            Element& finished = *level.element;
            path.pop_back();
            leave(finished, path.size());
        } else if (Element* const child = children[level.nextChild++]; child != nullptr) {
            descend(*child);
        }
    }
}

// As above, without anything to do after the children.
template<class Element, class Enter>
void visit(Element& top, Enter enter) {
    visit(top, enter, [](Element&, std::size_t) {});
}

} // namespace xml_walk

#endif
