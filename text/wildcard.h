// Wildcard matching for AGStr, and the failures that its virtual operations remember while they
// call each other. Not installed.

#ifndef PELORIK_TEXT_WILDCARD_H
#define PELORIK_TEXT_WILDCARD_H

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace pelorikutil::wildcard {

// Returns true when `pattern` matches the whole of `text`; `afterStar` puts a star before the
// pattern. `Text` is a pointer to char, or a class that reads, copies and increments like one.
//
// A retry returns only to the last star, because an earlier star cannot improve the match before
// it. So each byte of the text is compared at most once for each byte of the pattern.
template<class Text>
bool matches(const char* pattern, Text text, bool afterStar) {
    const char* retryPattern = afterStar ? pattern : nullptr;
    Text retryText = text;
    while (*text != '\0') {
        if (*pattern == '*') {
            retryPattern = ++pattern;
            retryText = text;
        } else if (*pattern == '?' || *pattern == *text) {
            ++pattern;
            ++text;
        } else if (retryPattern != nullptr) {
            pattern = retryPattern;
            text = ++retryText;
        } else {
            return false;
        }
    }
    while (*pattern == '*')
        ++pattern;
    return *pattern == '\0';
}

// One call of `Scan`, which searches a position in a text where the rest of a pattern matches. The
// calls for one object in one thread are nested, and the outermost remembers the failures of all.
//
// Texts are compared by their bytes, because an overriding operation may pass changed copies on.
class Search {
public:
    Search(const void* object, const char* pattern, const char* text);
    ~Search();
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;

    // Returns true when `matchesAt` does so for a position of the text. Skips positions where the
    // pattern failed before. Beyond the maximum depth it calls `matches` instead.
    template<class MatchesAt>
    bool find(MatchesAt matchesAt) {
        std::size_t& failed = memory_->failed[patternLength_];
        if (textLength_ < failed)
            return false;
        const bool found = memory_->depth > kMaxDepth ? matches(pattern_, text_, true)
                                                      : findBefore(failed, matchesAt);
        if (!found)
            failed = textLength_ + 1;
        return found;
    }

private:
    struct Memory {
        const void* object;
        std::string_view pattern;
        std::string_view text;
        // The number of positions, from the text's end, that do not match; indexed by the length of
        // the pattern's rest.
        std::vector<std::size_t> failed;
        std::size_t depth; // of nested calls
        Memory* enclosing;
    };

    bool isCoveredBy(const Memory& memory, const void* object);
    void begin(const void* object);

    template<class MatchesAt>
    bool findBefore(std::size_t failed, MatchesAt matchesAt) const {
        const std::size_t untried = textLength_ + 1 - failed;
        for (std::size_t i = 0; i < untried; ++i) {
            if (matchesAt(text_ + i))
                return true;
        }
        return false;
    }

    static constexpr std::size_t kMaxDepth = 1000;

    const char* pattern_;
    const char* text_;
    std::size_t patternLength_;
    std::size_t textLength_;
    std::optional<Memory> own_; // in the outermost call
    Memory* memory_;
};

} // namespace pelorikutil::wildcard

#endif
