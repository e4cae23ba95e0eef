#include "cli/output/console.h"

#include "cli/args/help.h"
#include "cli/files/descriptor.h"
#include "cli/process/error.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>
#include <utility>

namespace cli {

namespace {

constexpr std::size_t kBuffered = 65536;

std::string forTerminal(std::string_view text, Colour colour) {
    return colorized(printable(text), colour);
}

} // namespace

Console::Console(std::string prefix)
    : prefix_(std::move(prefix)), terminalOut_(isTerminal(STDOUT_FILENO)),
      terminalError_(isTerminal(STDERR_FILENO)), progress_(STDERR_FILENO) {}

void Console::print(std::string_view text, Colour colour) {
    append(terminalOut_ ? forTerminal(text, colour) : std::string(text));
    append("\n");
    if (terminalOut_)
        flush();
}

void Console::report(std::string_view text, Colour colour) {
    append(terminalOut_ ? forTerminal(text, colour) : withoutControls(text));
    append("\n");
    if (terminalOut_)
        flush();
}

void Console::printBlock(std::string_view text) {
    append(text);
}

std::size_t Console::helpColumns() const {
    constexpr std::size_t kWidest = 80;
    return terminalOut_ ? std::min(terminalWidth(STDOUT_FILENO), kWidest) : kWidest;
}

void Console::append(std::string_view text) {
    pending_ += text;
    if (pending_.size() >= kBuffered)
        flush();
}

void Console::flush() {
    if (pending_.empty())
        return;
    if (terminalOut_)
        progress_.erase();
    const int error = writeAll(STDOUT_FILENO, std::exchange(pending_, std::string()));
    if (error == EINTR)
        throw Interrupted();
    if (error != 0)
        throw Error("standard output", error);
}

void Console::error(std::string_view text, Colour colour) {
    const std::string line = prefix_ + ": " + std::string(text);
    writeError(terminalError_ ? forTerminal(line, colour) : withoutControls(line));
}

void Console::summarise(std::string_view text, Colour colour) {
    const std::string line = prefix_ + ": " + std::string(text);
    if (!terminalError_) {
        writeError(line);
        return;
    }
    constexpr std::size_t kIndent = 2;
    writeError(colorized(wrapped(line, kIndent, terminalWidth(STDERR_FILENO)), colour));
}

void Console::writeError(const std::string& line) {
    try {
        flush();
    } catch (const Interrupted&) {
        // Nobody reads standard output; the line is still of use.
    }
    progress_.erase();
    writeAll(STDERR_FILENO, line + "\n");
}

} // namespace cli
