// Visits a tree of elements without recursion. Not installed.

#ifndef PELORIK_CONFIG_XML_WALK_H
#define PELORIK_CONFIG_XML_WALK_H

#include "config/vpnxml.h"

#include <cstddef>
#include <vector>

namespace pelorikutil {

// The elements that a visit is in, each the parent of the next, with its next child.
template<class Element>
struct WalkStep {
    Element* element;
    std::size_t nextChild;
};
template<class Element>
using WalkPath = std::vector<WalkStep<Element>>;

// For `top` and everything below it, in document order: calls enter(element, depth), with depth 0
// for `top`, then visits the element's children, then calls leave(element, depth). Null children
// are passed over. Neither may change the children of an element. `path` is empty before and after;
// a second visit with it takes no memory.
template<class Element, class Enter, class Leave>
void visitElements(Element& top, WalkPath<Element>& path, Enter enter, Leave leave) {
    const auto descend = [&](Element& element) {
        enter(element, path.size());
        path.push_back({&element, 0});
    };

    descend(top);
    while (!path.empty()) {
        WalkStep<Element>& step = path.back();
        const auto& children = step.element->GetChildren();
        if (step.nextChild == children.size()) {
            Element& finished = *step.element;
            path.pop_back();
            leave(finished, path.size());
        } else if (Element* const child = children[step.nextChild++]; child != nullptr) {
            descend(*child);
        }
    }
}

template<class Element, class Enter, class Leave>
void visitElements(Element& top, Enter enter, Leave leave) {
    WalkPath<Element> path;
    visitElements(top, path, enter, leave);
}

// As above, without anything to do after the children.
template<class Element, class Enter>
void visitElements(Element& top, Enter enter) {
    visitElements(top, enter, [](Element&, std::size_t) {});
}

} // namespace pelorikutil

#endif
