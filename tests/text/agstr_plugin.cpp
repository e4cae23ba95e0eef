// A plugin that links the library: matches a text in a subclass.

#include "text/agstr.h"

#include <new>

namespace {

struct Subclass : AGStr {};

} // namespace

// Returns 1 for a match, 0 for none, -1 without memory.
extern "C" __attribute__((visibility("default"))) int matchInPlugin() {
    try {
        return Subclass().Match("*a*b", "xxaxb") ? 1 : 0;
    } catch (const std::bad_alloc&) {
        return -1;
    }
}
