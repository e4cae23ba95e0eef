// XML from a stream to a tree. expat builds no tree: it fills one of the same shape as ours.

#include "bench/race.h"
#include "bench/xml_document.h"
#include "config/vpnxml.h"

#include <expat.h>
#include <list>
#include <memory>
#include <sstream>
#include <string>
#include <tinyxml2.h>
#include <utility>
#include <vector>

namespace {

struct Element {
    std::string name;
    std::string body;
    std::list<std::pair<std::string, std::string>> attributes;
    std::vector<std::unique_ptr<Element>> children;
};

struct Tree {
    Element root;
    std::vector<Element*> open = {&root};
};

void startElement(void* tree, const XML_Char* name, const XML_Char** attributes) {
    auto& open = static_cast<Tree*>(tree)->open;
    auto element = std::make_unique<Element>();
    element->name = name;
    for (; *attributes != nullptr; attributes += 2)
        element->attributes.emplace_back(attributes[0], attributes[1]);
    open.back()->children.push_back(std::move(element));
    open.push_back(open.back()->children.back().get());
}

void endElement(void* tree, const XML_Char*) {
    static_cast<Tree*>(tree)->open.pop_back();
}

void text(void* tree, const XML_Char* bytes, int length) {
    static_cast<Tree*>(tree)->open.back()->body.append(bytes, static_cast<std::size_t>(length));
}

void expats(const std::string& content) {
    constexpr int kPiece = 65536;
    std::istringstream in(content);
    Tree tree;
    const XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &tree);
    XML_SetElementHandler(parser, startElement, endElement);
    XML_SetCharacterDataHandler(parser, text);
    do {
        in.read(static_cast<char*>(XML_GetBuffer(parser, kPiece)), kPiece);
        XML_ParseBuffer(parser, static_cast<int>(in.gcount()), in.gcount() < kPiece);
    } while (in);
    XML_ParserFree(parser);
}

void tinyxml2s(const std::string& content) {
    std::istringstream in(content);
    std::string whole(content.size(), '\0');
    in.read(whole.data(), static_cast<std::streamsize>(whole.size()));
    tinyxml2::XMLDocument tree;
    tree.Parse(whole.data(), whole.size());
}

void ours(const std::string& content) {
    std::istringstream in(content);
    XMLDocument tree;
    tree.Read(in);
}

const bool registered = [] {
    for (const std::size_t size : {std::size_t{2048}, std::size_t{10} << 20}) {
        const auto content = std::make_shared<std::string>(bench::xmlDocument(size));
        bench::enter("xml", size, "pelorik", [content] { ours(*content); });
        bench::enter("xml", size, "tinyxml2", [content] { tinyxml2s(*content); });
        bench::enter("xml", size, "expat", [content] { expats(*content); });
    }
    return true;
}();

} // namespace
