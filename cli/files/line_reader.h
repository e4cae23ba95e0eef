// The lines of a text that comes from a file or a pipe.

#ifndef PELORIK_CLI_FILES_LINE_READER_H
#define PELORIK_CLI_FILES_LINE_READER_H

#include "cli/files/file_source.h"

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

// Opens `name` to be read as a text; "-" is standard input. Throws `Error` when it cannot be
// opened or is a directory.
FileSource openText(const std::string& name);

// Everything here throws `Error`, with the text's name and the line's number, and `Interrupted`.
class Lines {
public:
    // Opens the text `name`; "-" is standard input. Lines end with `separator`, the last one
    // perhaps without. One that is longer than `longest` characters is cut there: `line` is then
    // `longest` + 1 long and nothing may be read after it.
    Lines(const std::string& name, char separator, std::size_t longest);

    // Reads the next line; false at the end.
    bool next();

    // Without its separator.
    const std::string& line() const { return line_; }

    // Says what is wrong with the line.
    [[noreturn]] void refuse(const std::string& why) const;

private:
    std::string place() const;
    bool refill();

    std::string name_;
    FileSource source_;
    char separator_;
    std::size_t longest_;
    std::string line_;
    std::size_t number_ = 0; // counted from 1
    std::vector<unsigned char> block_ = std::vector<unsigned char>(65536);
    std::size_t at_ = 0;
    std::size_t filled_ = 0;
    bool ended_ = false;
};

} // namespace cli

#endif
