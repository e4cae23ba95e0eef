#include "config/vpnxml.h"

#include "config/digit_value.h"
#include "config/xml_walk.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
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

// How deep deletion recurses.
constexpr std::uint64_t kRecursiveLevels = 1000;

// What a tag has room for: a level, or an address of user space, which is above all levels.
constexpr std::uint64_t kDeletionBits = (std::uint64_t{1} << 56) - 1;

} // namespace

XMLParserError::~XMLParserError() noexcept = default;

XMLHashError::~XMLHashError() noexcept = default;

const std::string XMLDocument::HashAttrKey = "Hash";

XMLDocument::~XMLDocument() = default;

// Deletes the elements below one.
//
// Down to `kRecursiveLevels` an element's destructor deletes its children, which is plain
// recursion. Each element knows its level from the one above. Below, the children are deleted
// first, in a loop that finds its way back up through the addresses that the elements keep of their
// parents. Neither needs memory, and an element under deletion is listed nowhere.
class XMLDeclaration::Deletion {
public:
    static void ofChildren(XMLDeclaration& element) {
        const std::uint64_t level = element.tag_->deletion_;
        if (level < kRecursiveLevels)
            recurse(element, level + 1);
        else
            ascend(element);
    }

private:
    static void recurse(XMLDeclaration& parent, std::uint64_t level) {
        do {
            for (std::size_t i = 0; i < parent.children_.size(); ++i) {
                XMLDeclaration* const child = parent.children_[i];
                parent.children_[i] = nullptr;
                if (child != nullptr)
                    deleteAt(level, child);
            }
        } while (hasChild(parent)); // which a destructor has added
        parent.children_.clear();
    }

    static bool hasChild(const XMLDeclaration& parent) {
        return firstOf(parent.children_, [](const XMLDeclaration&) { return true; }) != nullptr;
    }

    static void ascend(XMLDeclaration& top) {
        XMLDeclaration* element = &top;
        for (;;) {
            if (XMLDeclaration* const child = takeLastChild(*element)) {
                setParent(*child, element);
                element = child;
            } else if (element != &top) {
                XMLDeclaration* const parent = parentOf(*element);
                deleteAt(kRecursiveLevels, element);
                element = parent;
            } else {
                return;
            }
        }
    }

    static void deleteAt(std::uint64_t level, XMLDeclaration* element) {
        element->tag_->deletion_ = level & kDeletionBits;
        delete element;
    }

    // Null when there is none.
    static XMLDeclaration* takeLastChild(XMLDeclaration& element) {
        XMLDeclaration* child = nullptr;
        while (child == nullptr && !element.children_.empty()) {
            child = element.children_.back();
            element.children_.pop_back();
        }
        return child;
    }

    static void setParent(XMLDeclaration& element, XMLDeclaration* parent) {
        // A copy of the bytes, because clang-tidy 14 crashes where it follows a cast.
        std::uint64_t address = 0;
        std::memcpy(&address, &parent, sizeof address);
        element.tag_->deletion_ = address & kDeletionBits;
    }

    static XMLDeclaration* parentOf(const XMLDeclaration& element) {
        return std::bit_cast<XMLDeclaration*>(std::uint64_t{element.tag_->deletion_});
    }
};

XMLDeclaration::~XMLDeclaration() {
    Deletion::ofChildren(*this);
}

void XMLDeclaration::EraseAll() {
    Deletion::ofChildren(*this);
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
    const auto nothing = [](XMLDeclaration&, std::size_t) {};
    pelorikutil::WalkPath<XMLDeclaration> path;
    pelorikutil::visitElements(*this, path, nothing, nothing); // takes all the memory
    const auto setLevel = [=](XMLDeclaration& element, std::size_t depth) {
        if (depth > 0)
            element.SetIndentLevel(level + static_cast<unsigned>(depth - 1));
    };
    pelorikutil::visitElements(*this, path, setLevel, nothing);
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
        const int high = pelorikutil::digitValue(in[2 * i], 16);
        const int low = pelorikutil::digitValue(in[2 * i + 1], 16);
        if (high < 0 || low < 0)
            break;
        out[i] = static_cast<char>(high * 16 + low);
    }
    out.resize(count); // where it is `in` itself, whose digits were needed until now
}
