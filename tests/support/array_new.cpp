#include "tests/support/array_new.h"

#include "tests/support/fault_injection.h"

#include <cstdint>
#include <cstdlib>
#include <map>
#include <new>

namespace {

std::size_t made = 0;

// Never destroyed, since arrays may be deleted after everything else.
std::map<const void*, std::size_t>& sizes() {
    static auto* const map = new std::map<const void*, std::size_t>;
    return *map;
}

// Makes it before the first test, which would be blamed for it.
const bool ready = sizes().empty();

} // namespace

void* operator new[](std::size_t size) {
    // A sanitizer's malloc takes a size that is out of all reason for a fault of the program.
    const bool possible = size <= PTRDIFF_MAX;
    void* const block = possible ? std::malloc(size == 0 ? 1 : size) : nullptr;
    if (block == nullptr)
        throw std::bad_alloc();
    ++made;
    const support::Uncounted own;
    sizes()[block] = size;
    return block;
}

void operator delete[](void* block) noexcept {
    sizes().erase(block);
    std::free(block);
}

void operator delete[](void* block, std::size_t) noexcept {
    operator delete[](block);
}

std::size_t support::arraySize(const void* block) {
    const auto found = sizes().find(block);
    return found == sizes().end() ? 0 : found->second;
}

std::size_t support::liveArrays() {
    return sizes().size();
}

std::size_t support::madeArrays() {
    return made;
}
