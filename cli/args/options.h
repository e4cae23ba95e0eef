// Parses a command's args: options, operands and --help, by the same rules for every command.

#ifndef PELORIK_CLI_ARGS_OPTIONS_H
#define PELORIK_CLI_ARGS_OPTIONS_H

#include "cli/args/help.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace cli {

// Thrown by `OptionParser::parse` when help was asked for.
struct HelpRequested {
    CommandSpec spec;
};

// Declare the options, then `parse`. What an option writes to has to live that long.
//
// An option with a value takes exactly one word a use, `--name=` gives it the empty value, and
// everything else that does not start with `-` is an operand as it stands; so is "-" and every word
// behind "--".
class OptionParser {
public:
    // `usage` is what --help shows behind "Usage: ", `about` a paragraph.
    OptionParser(std::string usage, std::string about);
    ~OptionParser();

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
    void subcommand(const std::string& name, const std::string& text);

    // What --help says of an exit status, and the examples that it ends with, one a line.
    void status(int number, const std::string& text);
    void examples(const std::string& lines);

    // Fills the targets and returns the operands. Throws `UsageError` and `HelpRequested`.
    std::vector<std::string> parse(const std::vector<std::string>& args);

private:
    std::optional<std::string> attachedValue(const std::string& arg) const;
    std::vector<std::string> prepared(const std::vector<std::string>& args) const;
    std::vector<std::string> operands() const;
    CommandSpec spec() const;

    std::unique_ptr<CLI::App> app_;
    CommandSpec spec_;
};

} // namespace cli

#endif
