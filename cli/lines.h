// The lines of a text that comes from a file or a pipe.

#ifndef PELORIK_CLI_LINES_H
#define PELORIK_CLI_LINES_H

#include "cli/file_source.h"

#include <array>
#include <cstddef>
#include <string>

namespace cli {

// Opens `name` to be read as a text; "-" is standard input. Throws `Failure` when it cannot be
// opened or is a directory.
FileSource openText(const std::string& name);

class Lines {
public:
    // Lines end with `separator`, the last one perhaps without. One that is longer than `longest`
    // characters is cut there: `line` is then `longest` + 1 long and nothing may be read after it.
    Lines(FileSource source, char separator, std::size_t longest);

    // Reads the next line; false at the end. Throws std::system_error and `Interrupted`.
    bool next();

    // Without its separator.
    const std::string& line() const { return line_; }

    // Counted from 1.
    std::size_t number() const { return number_; }

private:
    bool refill();

    FileSource source_;
    char separator_;
    std::size_t longest_;
    std::string line_;
    std::size_t number_ = 0;
    std::array<unsigned char, 65536> block_{};
    std::size_t at_ = 0;
    std::size_t filled_ = 0;
    bool ended_ = false;
};

} // namespace cli

#endif
