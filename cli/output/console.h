// Where a command writes: results to standard output, everything else to standard error.

#ifndef PELORIK_CLI_OUTPUT_CONSOLE_H
#define PELORIK_CLI_OUTPUT_CONSOLE_H

#include "cli/output/progress.h"
#include "cli/output/terminal.h"

#include <string>
#include <string_view>

namespace cli {

// On a terminal, text is made printable and may have a colour.
class Console {
public:
    // `prefix` opens every line on standard error: "pelorik: hash".
    explicit Console(std::string prefix);

    // Adds `text`, which is data, and a line feed to standard output. It goes to a pipe or a file
    // byte for byte. Throws `Error` when writing fails, and `Interrupted` when a signal comes while
    // it waits for the reader.
    void print(std::string_view text, Colour colour = Colour::kNone);

    // The same for a line of a report, in which control characters are escaped everywhere: a name
    // cannot forge another line.
    void report(std::string_view text, Colour colour = Colour::kNone);

    // The same for text that may hold line feeds of its own, such as help.
    void printBlock(std::string_view text);

    // How wide help should be: as the terminal, 80 columns at most and elsewhere.
    std::size_t helpColumns() const;

    // Writes what `print` has buffered. Throws like `print`.
    void flush();

    // Writes a line to standard error, after what was printed so far. Control characters are
    // escaped.
    void error(std::string_view text, Colour colour = Colour::kNone);

    // Writes the summary of what was done, which holds no names, to standard error. On a terminal
    // it is broken between words where it does not fit.
    void summarise(std::string_view text, Colour colour = Colour::kNone);

    Progress& progress() { return progress_; }

private:
    void append(std::string_view text);
    void writeError(const std::string& line);

    std::string prefix_;
    bool terminalOut_;
    bool terminalError_;
    std::string pending_;
    Progress progress_;
};

} // namespace cli

#endif
