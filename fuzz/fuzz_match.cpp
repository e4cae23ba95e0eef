// Wildcards: the pattern and the text, parted by a NUL, match as a table of all their ends says,
// for a string and for objects of subclasses.

#include "fuzz/target.h"
#include "text/agstr.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

// Subclasses cost a call for each star and position.
constexpr std::size_t kLongestForSubclasses = 200;

struct Plain : AGStr {};

// Passes copies on.
struct Copying : AGStr {
    bool Match(const char* pattern, const char* text) const override {
        return AGStr::Match(std::string(pattern).c_str(), std::string(text).c_str());
    }
};

// Row by row: whether the pattern up to a byte matches the text up to each byte.
bool matchesByTable(const std::string& pattern, const std::string& text) {
    std::vector<char> row(text.size() + 1);
    row[0] = true;
    for (const char wanted : pattern) {
        std::vector<char> next(text.size() + 1);
        next[0] = wanted == '*' && row[0];
        for (std::size_t i = 1; i <= text.size(); ++i) {
            const bool fits = wanted == '?' || wanted == text[i - 1];
            next[i] = wanted == '*' ? row[i] || next[i - 1] : row[i - 1] && fits;
        }
        row = next;
    }
    return row[text.size()];
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(data, data + size);
    const std::string pattern = input.c_str();
    const std::string text = input.substr(std::min(pattern.size() + 1, size)).c_str();
    const bool expected = matchesByTable(pattern, text);
    fuzz::require(AGStr().Match(pattern.c_str(), text.c_str()) == expected,
                  "a string matches by the rules");
    if (size > kLongestForSubclasses)
        return 0;
    fuzz::require(Plain().Match(pattern.c_str(), text.c_str()) == expected,
                  "a subclass matches by the rules");
    fuzz::require(Copying().Match(pattern.c_str(), text.c_str()) == expected,
                  "a subclass that passes copies on matches by the rules");
    return 0;
}
