#include "cli/files/text_reader.h"

#include "cli/files/line_reader.h"
#include "cli/process/error.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace cli {

TextStream::TextStream(const std::string& name) : TextStream(openText(name), name) {}

TextStream::TextStream(FileSource source, const std::string& name)
    : buffer_(std::move(source), name), stream_(&buffer_) {
    stream_.exceptions(std::ios::badbit); // passes on what the buffer throws
}

TextStream::Buffer::Buffer(FileSource source, const std::string& name)
    : name_(name), source_(std::move(source)) {}

TextStream::Buffer::Position TextStream::Buffer::positionAfter(std::string_view taken) const {
    const std::size_t lastBreak = taken.rfind('\n');
    if (lastBreak == std::string_view::npos)
        return {blockStart_.line, blockStart_.column + taken.size()};
    const auto breaks = std::count(taken.begin(), taken.end(), '\n');
    return {blockStart_.line + static_cast<std::size_t>(breaks), taken.size() - lastBreak};
}

std::string TextStream::Buffer::place() const {
    const Position next = positionAfter({eback(), gptr()});
    return "line " + std::to_string(next.line) + ", column " + std::to_string(next.column);
}

std::size_t TextStream::Buffer::fill() {
    try {
        return source_.read(block_.data(), block_.size());
    } catch (const std::system_error& error) {
        throw Error(name_, error.code().value());
    }
}

TextStream::Buffer::int_type TextStream::Buffer::underflow() {
    blockStart_ = positionAfter({eback(), gptr()});
    setg(nullptr, nullptr, nullptr);
    const std::size_t filled = ended_ ? 0 : fill();
    // A terminal would go on behind its end.
    ended_ = filled < block_.size();
    char* const begin = reinterpret_cast<char*>(block_.data());
    setg(begin, begin, begin + filled);
    return filled == 0 ? traits_type::eof() : traits_type::to_int_type(*begin);
}

} // namespace cli
