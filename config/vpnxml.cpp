#include "config/vpnxml.h"

#include "config/digit_value.h"
#include "config/xml_walk.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <string_view>
#include <utility>

namespace {

using Attribute = XMLDeclaration::Attribute;
using Attributes = std::list<Attribute>;
using Elements = std::vector<XMLDeclaration*>;

template<class List>
auto findKey(List& attributes, const std::string& key) {
    return std::find_if(attributes.begin(), attributes.end(),
                        [&](const Attribute& attribute) { return attribute.first == key; });
}

template<class Wanted>
XMLDeclaration* firstOf(const Elements& children, Wanted wanted) {
    const auto found = std::find_if(children.begin(), children.end(), [&](XMLDeclaration* child) {
        return child != nullptr && wanted(*child);
    });
    return found == children.end() ? nullptr : *found;
}

// One run over elements that are to be deleted. The destructor of the element that a run is
// deleting leaves the element's children to the run, so that depth costs no stack, while every
// destructor still finds the children of its own element in place.
class Erasure {
public:
    // Deletes the elements of `doomed` in their order, and all that is below them.
    explicit Erasure(Elements& doomed) : pending_(std::move(doomed)), outer_(running) {
        doomed.clear();
        std::reverse(pending_.begin(), pending_.end());
        running = this;
    }

    Erasure(const Erasure&) = delete;
    Erasure& operator=(const Erasure&) = delete;
    ~Erasure() { running = outer_; }

    void run() {
        while (!pending_.empty()) {
            current_ = pending_.back();
            pending_.pop_back();
            delete current_;
        }
    }

    static bool isDeleting(const XMLDeclaration* element) {
        return running != nullptr && running->current_ == element;
    }

    // Leaves `children` to the run that is deleting their parent; false when there is no memory.
    static bool takeOver(const Elements& children) {
        try {
            running->pending_.insert(running->pending_.end(), children.rbegin(), children.rend());
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

private:
    Elements pending_; // the next one last
    XMLDeclaration* current_ = nullptr;
    Erasure* outer_;

    static thread_local Erasure* running;
};

thread_local Erasure* Erasure::running = nullptr;

// The children of an element that is to be deleted and that nobody looks at any more.
Elements& childrenOf(XMLDeclaration& element) {
    return const_cast<Elements&>(element.GetChildren());
}

// Deletes everything below `top`, children before their parents. Takes no memory, and depth costs
// no stack: where the way goes down, the way back up stands in the place of the child.
void eraseBelow(XMLDeclaration& top) {
    XMLDeclaration* element = &top;
    XMLDeclaration* parent = nullptr; // only `top` has none
    for (;;) {
        Elements& children = childrenOf(*element);
        if (!children.empty()) {
            XMLDeclaration* const child = children.back();
            if (child == nullptr) {
                children.pop_back();
                continue;
            }
            children.back() = parent;
            parent = std::exchange(element, child);
        } else if (parent != nullptr) {
            delete element;
            element = parent;
            parent = childrenOf(*element).back();
            childrenOf(*element).pop_back();
        } else {
            return;
        }
    }
}

} // namespace

XMLParserError::~XMLParserError() noexcept = default;

XMLHashError::~XMLHashError() noexcept = default;

const std::string XMLDocument::HashAttrKey = "Hash";

XMLDocument::~XMLDocument() = default;

XMLDeclaration::~XMLDeclaration() {
    if (children_.empty())
        return;
    if (!Erasure::isDeleting(this))
        EraseAll();
    else if (!Erasure::takeOver(children_))
        eraseBelow(*this);
}

void XMLDeclaration::EraseAll() {
    Erasure(children_).run();
    tag_->attributes_.clear();
    body_.clear();
}

std::string XMLDeclaration::GetAttr(const std::string& key) const {
    const auto found = findKey(tag_->attributes_, key);
    return found == tag_->attributes_.end() ? std::string() : found->second;
}

void XMLDeclaration::DelAttr(const std::string& key) {
    const auto found = findKey(tag_->attributes_, key);
    if (found != tag_->attributes_.end())
        tag_->attributes_.erase(found);
}

XMLDeclaration* XMLDeclaration::GetElementByName(const std::string& name) const {
    return firstOf(children_, [&](const XMLDeclaration& child) { return child.GetName() == name; });
}

XMLDeclaration* XMLDeclaration::GetElementByAttr(const std::string& name, const std::string& key,
                                                 const std::string& value) const {
    return firstOf(children_, [&](const XMLDeclaration& child) {
        const auto& attributes = child.GetAttributes();
        return child.GetName() == name &&
               std::any_of(attributes.begin(), attributes.end(), [&](const Attribute& attribute) {
                   return attribute.first == key && attribute.second == value;
               });
    });
}

bool XMLDeclaration::GetBinBody(unsigned index, std::string& out) const {
    const XMLDeclaration* const child = GetElementByName(std::to_string(index));
    if (child == nullptr)
        return false;
    fromHexString(out, child->GetBody());
    return true;
}

bool XMLDeclaration::GetBinBody(unsigned index, long& out) const {
    const XMLDeclaration* const child = GetElementByName(std::to_string(index));
    if (child == nullptr)
        return false;
    out = static_cast<std::int32_t>(std::strtol(child->GetBody().c_str(), nullptr, 10));
    return true;
}

void XMLDeclaration::FormatLineIndents(unsigned level) {
    xml_walk::visit(*this, [=](XMLDeclaration& element, std::size_t depth) {
        if (depth > 0)
            element.SetIndentLevel(level + static_cast<unsigned>(depth - 1));
    });
}

void toHexString(std::string& out, const char* data, unsigned long length) {
    // A length that no memory holds makes resize throw instead of wrapping around.
    out.resize(std::min(length, out.max_size()) * 2);
    auto next = out.begin();
    for (const char byte : std::string_view(data, length)) {
        const auto bits = static_cast<unsigned char>(byte);
        *next++ = "0123456789abcdef"[bits >> 4];
        *next++ = "0123456789abcdef"[bits & 15];
    }
}

void fromHexString(std::string& out, const std::string& in) {
    if (in.size() % 2 != 0)
        return;
    const std::size_t count = in.size() / 2;
    if (&out != &in)
        out.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        const int high = config::digitValue(in[2 * i], 16);
        const int low = config::digitValue(in[2 * i + 1], 16);
        if (high < 0 || low < 0)
            break;
        out[i] = static_cast<char>(high * 16 + low);
    }
    out.resize(count); // where it is `in` itself, whose digits were needed until now
}
