// A plugin that uses documents, for programs that load it at run time.

#include "config/vpnxml.h"

extern "C" {

__attribute__((visibility("default"))) void* makeDocument() {
    auto* const document = new XMLDocument("root");
    document->AddChild(new XMLDeclaration("a"))->AddChild(new XMLDeclaration("b"));
    return document;
}

__attribute__((visibility("default"))) unsigned long eraseDocument(void* document) {
    auto& erased = *static_cast<XMLDocument*>(document);
    erased.EraseAll();
    return erased.GetChildren().size();
}

__attribute__((visibility("default"))) void deleteDocument(void* document) {
    delete static_cast<XMLDocument*>(document);
}
}
