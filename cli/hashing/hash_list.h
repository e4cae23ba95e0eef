// Hash lists: what stands in them, and how they are read and written.

#ifndef PELORIK_CLI_HASHING_HASH_LIST_H
#define PELORIK_CLI_HASHING_HASH_LIST_H

#include "cli/files/line_reader.h"
#include "cli/hashing/text_arena.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

// The longest line that the library reads, without its line feed.
inline constexpr std::size_t kLongestListLine = 4128;

// A hash list in memory: the bytes of its lines and 16 bytes a line.
//
// It is read more strictly than by the library: everything that the library ignores is an error.
class HashList {
public:
    enum class Lines { kRecords, kAll };

    // Reads the list `name` ("-" is standard input), with or without the lines that are no records.
    // Never waits for a FIFO. Throws `Error`, with the number of the line if there is one, for a
    // list that cannot be opened or read to its end, that holds no record, or that has a line with
    // a zero byte, too many characters, no `=` or CRLF at its end.
    explicit HashList(const std::string& name, Lines lines = Lines::kRecords)
        : HashList(openList(name), name, lines) {}

    // The same for `source`, whose name is `name`.
    HashList(FileSource source, const std::string& name, Lines lines);

    std::size_t size() const { return lines_.size(); }
    std::size_t records() const { return records_; }

    // Returns whether the line is a record, and not a section header or empty.
    bool isRecord(std::size_t line) const { return lines_[line].digestLength != kNoDigest; }

    // Returns a record's name with a zero byte after it, or the whole of another line.
    std::string_view name(std::size_t line) const {
        return {lines_[line].text, lines_[line].nameLength};
    }

    // Returns a record's digest.
    std::string_view digest(std::size_t line) const {
        const Line& found = lines_[line];
        return {found.text + found.nameLength + 1, found.digestLength};
    }

private:
    static constexpr std::uint16_t kNoDigest = 0xffff;

    struct Line {
        char* text; // of a record: with a zero byte in the place of the `=`
        std::uint16_t nameLength;
        std::uint16_t digestLength;
    };

    void add(const std::string& line, Lines lines);

    TextArena texts_;
    std::deque<Line> lines_;
    std::size_t records_ = 0;
};

// Returns why a list cannot hold a file's name with a digest's text of that length; empty when it
// can.
std::string validationError(std::string_view name, std::size_t digestLength);

} // namespace cli

#endif
