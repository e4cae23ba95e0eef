// What a command is: the one source of its --help, its manual page and its completions.

#ifndef PELORIK_CLI_ARGS_HELP_H
#define PELORIK_CLI_ARGS_HELP_H

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

struct CommandSpec {
    struct Option {
        std::vector<std::string> names; // "-a", "--algorithm"
        std::string value;              // the name of its value; empty when it has none
        std::string text;
    };
    struct Subcommand {
        std::string name;
        std::string text;
    };
    struct Status {
        int number;
        std::string text;
    };

    std::string usage; // behind "pelorik "
    std::string about; // a paragraph
    std::vector<Subcommand> subcommands;
    std::vector<Option> options;
    std::vector<Status> statuses;
    std::vector<std::string> examples; // lines for a shell
};

// `text` broken into lines of at most `columns` that start in `column`, the first one without that
// indentation.
std::string wrapped(const std::string& text, std::size_t column, std::size_t columns);

// What --help shows, in lines of at most `columns`.
std::string helpText(const CommandSpec& spec, std::size_t columns);

} // namespace cli

#endif
