// A file, a pipe or standard input as the stream that the library's readers take.

#ifndef PELORIK_CLI_FILES_TEXT_READER_H
#define PELORIK_CLI_FILES_TEXT_READER_H

#include "cli/files/file_source.h"

#include <cstddef>
#include <istream>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

// Failures to read leave the stream as `Error`, and SIGINT as `Interrupted`: never as a text that
// seems to end.
class TextStream {
public:
    // Opens `name`; "-" is standard input. Throws `Error`, also for a directory.
    explicit TextStream(const std::string& name);

    // Reads `source`, whose name is `name`.
    TextStream(FileSource source, const std::string& name);

    std::istream& in() { return stream_; }

    // The first byte that was not taken yet, as "line 3, column 14". Both count from 1, the column
    // in bytes.
    std::string place() const { return buffer_.place(); }

private:
    class Buffer : public std::streambuf {
    public:
        Buffer(FileSource source, const std::string& name);
        std::string place() const;

    protected:
        int_type underflow() override;

    private:
        struct Position {
            std::size_t line = 1;
            std::size_t column = 1;
        };

        Position positionAfter(std::string_view taken) const;
        std::size_t fill();

        std::string name_;
        FileSource source_;
        Position blockStart_;
        bool ended_ = false;
        std::vector<unsigned char> block_ = std::vector<unsigned char>(65536);
    };

    Buffer buffer_;
    std::istream stream_;
};

} // namespace cli

#endif
