#include "text/wildcard.h"

#include <cstdint>
#include <cstring>

namespace wildcard {

namespace {

// Whether `part` is what `whole` ends with, and how long it is then. In most calls it stands in
// `whole` itself, and need not be read.
bool isEndOf(std::string_view whole, const char* part, std::size_t& length) {
    const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(whole.data());
    const std::uintptr_t offset = reinterpret_cast<std::uintptr_t>(part) - start;
    if (offset <= whole.size()) {
        length = whole.size() - offset;
        return true;
    }
    length = std::strlen(part);
    return whole.ends_with(std::string_view(part, length));
}

} // namespace

thread_local Search::Memory* Search::innermost_ = nullptr;

Search::Search(const void* object, const char* pattern, const char* text)
    : pattern_(pattern), text_(text), patternLength_(0), textLength_(0), memory_(innermost_) {
    if (memory_ == nullptr || !isCoveredBy(*memory_, object))
        begin(object);
    ++memory_->depth;
}

Search::~Search() {
    --memory_->depth;
    if (own_)
        innermost_ = own_->enclosing;
}

bool Search::isCoveredBy(const Memory& memory, const void* object) {
    return memory.object == object && isEndOf(memory.pattern, pattern_, patternLength_) &&
           isEndOf(memory.text, text_, textLength_);
}

// Makes this the outermost call for its texts.
void Search::begin(const void* object) {
    patternLength_ = std::strlen(pattern_);
    textLength_ = std::strlen(text_);
    const std::size_t depth = innermost_ == nullptr ? 0 : innermost_->depth;
    own_.emplace(Memory{object,
                        {pattern_, patternLength_},
                        {text_, textLength_},
                        std::vector<std::size_t>(patternLength_ + 1),
                        depth,
                        innermost_});
    memory_ = &*own_;
    innermost_ = memory_;
}

} // namespace wildcard
