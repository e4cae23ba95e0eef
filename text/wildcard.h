// Matching of wildcards for AGStr: the matching itself, and what its virtual operations remember
// while they call each other. Not installed.

#ifndef PELORIK_TEXT_WILDCARD_H
#define PELORIK_TEXT_WILDCARD_H

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace wildcard {

// Whether `pattern` matches the whole of `text`; with `afterStar`, as if a star stood before it.
// `Text` is a pointer to char, or reads, copies and moves on like one.
//
// Only the star before the last one that was passed is ever gone back to, since what matched before
// it can be left as it is. So each byte of the text is compared at most once for each byte of the
// pattern.
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

// One call of an operation that looks for the place in a text where the rest of a pattern matches,
// by calls that come back to it. Of the calls that are nested in each other for one object, the
// outermost keeps what all of them found to fail.
//
// Texts are told apart by what they hold, not where they stand: an overriding operation may well
// pass changed copies on.
class Search {
public:
    Search(const void* object, const char* pattern, const char* text);
    ~Search();
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;

    // Whether `matchesAt` is true for a position of the text. Positions where the pattern failed
    // before are not tried again, and none when so many calls are nested that there had better be
    // no more: then the answer is that of `matches`.
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
        // By the length of the pattern's rest: how many positions, counted from the text's end, are
        // known not to match.
        std::vector<std::size_t> failed;
        std::size_t depth;
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
    static thread_local Memory* innermost_;

    const char* pattern_;
    const char* text_;
    std::size_t patternLength_;
    std::size_t textLength_;
    std::optional<Memory> own_;
    Memory* memory_;
};

} // namespace wildcard

#endif
