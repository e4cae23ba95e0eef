// What is different when a person looks on: escapes for what a terminal would obey, and colour.

#ifndef PELORIK_CLI_OUTPUT_TERMINAL_H
#define PELORIK_CLI_OUTPUT_TERMINAL_H

#include <cstddef>
#include <string>
#include <string_view>

namespace cli {

enum class Colour { kNone, kRed, kYellow, kGreen, kMagenta };

bool isTerminal(int descriptor);

// Columns of the terminal at `descriptor`; 80 when it does not say.
std::size_t terminalWidth(int descriptor);

// `text` with everything replaced that a terminal would obey or could not show: control characters
// (C0, DEL and C1), the marks that reorder what stands beside them, and bytes that are not UTF-8.
// A line feed becomes \n, a tab \t, every other byte \xHH.
std::string printable(std::string_view text);

// Returns `text` with the same replacements, but with bytes that are not UTF-8 unchanged: for lines
// that programs read.
std::string withoutControls(std::string_view text);

// The same for `json`, JSON on one line: in place of the characters stand \uXXXX, so that it means
// what it did.
std::string printableJson(std::string_view json);

// `text` in a colour, for terminals only. Plain when NO_COLOR is set to anything but the empty
// text, or TERM is "dumb".
std::string colorized(std::string text, Colour colour);

// Bytes of the UTF-8 sequence that `text` starts with; 0 when it starts with none.
std::size_t utf8Length(std::string_view text);

} // namespace cli

#endif
