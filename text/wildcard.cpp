#include "text/wildcard.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <pthread.h>

namespace pelorikutil::wildcard {

namespace {

// Returns true when `whole` ends with `part`, and sets the length of `part`. In most calls `part`
// points into `whole`, so it need not be read.
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

// A pointer for each thread, at first null. This is not a thread_local variable, because the
// process ends when there is no memory for such a variable of a library that dlopen loaded.
class ThreadSlot {
public:
    ThreadSlot() {
        if (pthread_key_create(&key_, nullptr) != 0)
            throw std::bad_alloc();
    }
    ~ThreadSlot() { pthread_key_delete(key_); }
    ThreadSlot(const ThreadSlot&) = delete;
    ThreadSlot& operator=(const ThreadSlot&) = delete;

    void* get() const { return pthread_getspecific(key_); }

    // Returns 0, ENOMEM, or EINVAL after the destructor.
    int set(const void* value) const { return pthread_setspecific(key_, value); }

private:
    pthread_key_t key_;
};

// The innermost memory of the thread. Static destructors may still match after that of the slot.
// Then every call is an outermost one, with the same answers.
ThreadSlot& innermost() {
    static ThreadSlot slot;
    return slot;
}

} // namespace

Search::Search(const void* object, const char* pattern, const char* text)
    : pattern_(pattern), text_(text), patternLength_(0), textLength_(0),
      memory_(static_cast<Memory*>(innermost().get())) {
    if (memory_ == nullptr || !isCoveredBy(*memory_, object))
        begin(object);
    ++memory_->depth;
}

Search::~Search() {
    --memory_->depth;
    if (own_)
        innermost().set(own_->enclosing);
}

bool Search::isCoveredBy(const Memory& memory, const void* object) {
    return memory.object == object && isEndOf(memory.pattern, pattern_, patternLength_) &&
           isEndOf(memory.text, text_, textLength_);
}

// Makes this the outermost call for its texts.
void Search::begin(const void* object) {
    patternLength_ = std::strlen(pattern_);
    textLength_ = std::strlen(text_);
    const std::size_t depth = memory_ == nullptr ? 0 : memory_->depth;
    own_.emplace(Memory{object,
                        {pattern_, patternLength_},
                        {text_, textLength_},
                        std::vector<std::size_t>(patternLength_ + 1),
                        depth,
                        memory_});
    memory_ = &*own_;
    if (innermost().set(memory_) == ENOMEM)
        throw std::bad_alloc();
}

} // namespace pelorikutil::wildcard
