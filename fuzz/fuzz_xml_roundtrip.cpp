// The XML writer: a tree of any strings is written, and one of strings that can be written comes
// back from its text as it was, with a digest that holds until a byte of its content changes.

#include "config/vpnxml.h"
#include "fuzz/target.h"

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

using std::string;

// The input, taken piece by piece; zeros behind its end.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

    bool empty() const { return next_ == end_; }
    unsigned number() { return empty() ? 0 : *next_++; }

    string text() {
        const std::size_t wanted = number() % 32;
        const std::size_t length = std::min(wanted, static_cast<std::size_t>(end_ - next_));
        const string text(next_, next_ + length);
        next_ += length;
        return text;
    }

private:
    const std::uint8_t* next_;
    const std::uint8_t* end_;
};

string without(string text, const char* bytes, std::size_t count) {
    const auto unwanted = [=](char byte) { return std::memchr(bytes, byte, count) != nullptr; };
    text.erase(std::remove_if(text.begin(), text.end(), unwanted), text.end());
    return text;
}

string name(const string& text, bool any) {
    return any ? text : "n" + without(text, "\0\t\n\r /;<=>", 10);
}

string value(const string& text, bool any) {
    return any ? text : without(text, "", 1);
}

string body(const string& text, bool any) {
    const string whole = value(text, any);
    return any || whole.empty() ? whole : "b" + whole;
}

// Builds a tree that the input describes as steps: an attribute, a body, a child to go down to, or
// back up.
void build(XMLDocument& document, Input& input, bool any) {
    document.SetName(name(input.text(), any));
    std::vector<XMLDeclaration*> path{&document};
    while (!input.empty()) {
        XMLDeclaration& element = *path.back();
        switch (input.number() % 5) {
        case 0:
            element.AddAttr(name(input.text(), any), value(input.text(), any));
            break;
        case 1:
            path.push_back(element.AddChild(new XMLDeclaration(name(input.text(), any))));
            element.SetBody(any ? element.GetBody() : string());
            break;
        case 2:
            if (any || element.GetChildren().empty())
                element.SetBody(body(input.text(), any));
            break;
        case 3:
            element.SetIndentLevel(input.number() % 8);
            break;
        default:
            if (path.size() > 1)
                path.pop_back();
        }
    }
}

bool same(const XMLDeclaration& one, const XMLDeclaration& other) {
    const auto& children = one.GetChildren();
    const auto& others = other.GetChildren();
    if (one.GetName() != other.GetName() || one.GetAttributes() != other.GetAttributes() ||
        one.GetBody() != other.GetBody() || children.size() != others.size())
        return false;
    for (std::size_t i = 0; i < children.size(); ++i) {
        if (!same(*children[i], *others[i]))
            return false;
    }
    return true;
}

string written(XMLDocument& document) {
    std::ostringstream text;
    document.Write(text);
    return text.str();
}

bool holds(const string& text) {
    std::istringstream in(text);
    XMLDocument document("", true);
    try {
        document.Read(in);
        return true;
    } catch (const XMLHashError&) {
        return false;
    }
}

void readAgain(XMLDocument& document, const string& text) {
    std::istringstream in(text);
    XMLDocument again("", true);
    again.Read(in);
    fuzz::require(same(document, again), "a tree comes back as it was");
    fuzz::require(again.GetChildren().empty() || again.GetChildren()[0]->GetIndentLevel() == 0,
                  "what was read is not indented");

    string changed = text;
    changed.insert(changed.find('<') + 1, "n"); // the root's name, and its end
    changed.insert(changed.rfind('/') + 1, "n");
    fuzz::require(!holds(changed), "a changed name is noticed");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const bool any = input.number() % 2 == 1;
    XMLDocument document("", true);
    build(document, input, any);

    const auto before = document.GetAttributes().size();
    const string text = written(document);
    fuzz::require(document.GetAttributes().size() == before, "writing leaves as many attributes");
    fuzz::require(!text.empty() && text.back() == '\n', "a document ends its last line");
    if (!any && std::none_of(document.GetAttributes().begin(), document.GetAttributes().end(),
                             [](const auto& attribute) { return attribute.first == "Hash"; }))
        readAgain(document, text);
    return 0;
}
