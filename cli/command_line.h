// The words behind a command's name: options, operands and --help, under one set of house rules.

#ifndef PELORIK_CLI_COMMAND_LINE_H
#define PELORIK_CLI_COMMAND_LINE_H

#include "cli/description.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace cli {

// Thrown by `CommandLine::parse` when help was asked for.
struct HelpWanted {
    Description description;
};

// Declare the options, then `parse`. What an option writes to has to live that long.
//
// An option with a value takes exactly one word a use, `--name=` gives it the empty value, and
// everything else that does not start with `-` is an operand as it stands; so is "-" and every word
// behind "--".
class CommandLine {
public:
    // `usage` is what --help shows behind "Usage: ", `about` a paragraph.
    CommandLine(std::string usage, std::string about);
    ~CommandLine();

    // `names` as in "-a,--algorithm"; `what` names the value in --help.
    void flag(const std::string& names, bool& target, const std::string& text);
    void value(const std::string& names, const std::string& what,
               std::optional<std::string>& target, const std::string& text);
    void number(const std::string& names, const std::string& what, unsigned& target,
                const std::string& text);

    // An option that may be used several times.
    void values(const std::string& names, const std::string& what, std::vector<std::string>& target,
                const std::string& text);

    // A verb that stands where options could: --help lists it before them.
    void verb(const std::string& name, const std::string& text);

    // What --help says of an exit status, and the examples that it ends with, one a line.
    void status(int number, const std::string& text);
    void examples(const std::string& lines);

    // Fills the targets and returns the operands. Throws `UsageError` and `HelpWanted`.
    std::vector<std::string> parse(const std::vector<std::string>& words);

private:
    std::vector<std::string> prepared(const std::vector<std::string>& words) const;
    std::vector<std::string> operands() const;
    Description described() const;

    std::unique_ptr<CLI::App> app_;
    Description description_;
};

} // namespace cli

#endif
