#include "text/wildcard.h"

namespace wildcard {

thread_local Search::Memory* Search::innermost_ = nullptr;

Search::Search(const void* object, std::string_view pattern, std::string_view text)
    : pattern_(pattern), text_(text), memory_(innermost_) {
    if (memory_ == nullptr || !memory_->covers(object, pattern, text)) {
        const std::size_t depth = memory_ == nullptr ? 0 : memory_->depth;
        own_.emplace(Memory{object, pattern, text, std::vector<std::size_t>(pattern.size() + 1),
                            depth, memory_});
        memory_ = &*own_;
        innermost_ = memory_;
    }
    ++memory_->depth;
}

Search::~Search() {
    --memory_->depth;
    if (own_)
        innermost_ = own_->enclosing;
}

} // namespace wildcard
