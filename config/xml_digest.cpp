#include "config/xml_digest.h"

#include "config/xml_walk.h"

#include <algorithm>

namespace {

void feed(HashMD5_Calc& calc, const std::string& text) {
    calc.Update(text.data(), text.size());
}

} // namespace

void XMLHashFunctor::operator()(const XMLDeclaration::Attribute& attribute) const {
    feed(*calc_, attribute.first);
    feed(*calc_, attribute.second);
}

void XMLHashFunctor::operator()(const XMLDeclaration* element) const {
    if (element == nullptr)
        return;
    pelorikutil::visitElements(*element, [this](const XMLDeclaration& visited, std::size_t) {
        feed(*calc_, visited.GetName());
        std::for_each(visited.GetAttributes().begin(), visited.GetAttributes().end(), *this);
        if (visited.GetChildren().empty())
            feed(*calc_, visited.GetBody());
    });
}

HashMD5 pelorikutil::digestOf(const XMLDeclaration& root) {
    HashMD5_Calc calc;
    calc.Reset();
    XMLHashFunctor functor(&calc);
    functor(&root); // the root is digested by the rule for its children
    return HashMD5(calc, true);
}
