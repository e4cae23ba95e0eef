// The lines of a text that comes from a file or a pipe.

#ifndef PELORIK_CLI_FILES_LINE_READER_H
#define PELORIK_CLI_FILES_LINE_READER_H

#include "cli/files/file_source.h"

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

// Opens `name` to be read as a text; "-" is standard input. Waits for the writer of a FIFO. Throws
// `Error` when it cannot be opened or is a directory.
FileSource openText(const std::string& name);

// The same for a list on which the result of a check depends: never waits for somebody to open the
// other end. Throws `Error` also for a FIFO or a device, but not when `name` stands for one of this
// process's own descriptors (/dev/fd/63).
FileSource openList(const std::string& name);

// Everything here throws `Error`, with the text's name and the line's number, and `Interrupted`.
class LineReader {
public:
    // Reads `source`, whose name is `name`. Lines end with `separator`, the last one perhaps
    // without. One that is longer than `longest` characters is cut there: `line` is then
    // `longest` + 1 long and nothing may be read after it.
    LineReader(FileSource source, std::string name, char separator, std::size_t longest);

    // Reads the next line; false at the end.
    bool next();

    // Returns the line without its separator.
    const std::string& line() const { return line_; }

    // Throws `Error` with what is wrong with the line.
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
