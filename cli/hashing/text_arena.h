// Texts that stay where they are until all of them go.

#ifndef PELORIK_CLI_HASHING_TEXT_ARENA_H
#define PELORIK_CLI_HASHING_TEXT_ARENA_H

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace cli {

// Keeps many short texts with hardly more memory than their bytes.
class TextArena {
public:
    // Copies `text` and a zero byte after it. Returns the copy.
    char* add(std::string_view text) {
        char* const copy = allocate(text.size() + 1);
        copy[text.copy(copy, text.size())] = '\0';
        return copy;
    }

private:
    static constexpr std::size_t kBlock = std::size_t{1} << 18;

    char* allocate(std::size_t size) {
        if (size > free_) {
            free_ = size > kBlock ? size : kBlock;
            // Not std::make_unique: what is never used is never touched.
            blocks_.push_back(std::unique_ptr<char[]>(new char[free_]));
            next_ = blocks_.back().get();
        }
        char* const allocated = next_;
        next_ += size;
        free_ -= size;
        return allocated;
    }

    std::vector<std::unique_ptr<char[]>> blocks_;
    char* next_ = nullptr;
    std::size_t free_ = 0;
};

} // namespace cli

#endif
