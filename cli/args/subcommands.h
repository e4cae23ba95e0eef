// Commands that are families of subcommands: `pelorik xml check`, `pelorik xml seal`.

#ifndef PELORIK_CLI_ARGS_SUBCOMMANDS_H
#define PELORIK_CLI_ARGS_SUBCOMMANDS_H

#include "cli/commands.h"

#include <initializer_list>
#include <string>
#include <vector>

namespace cli {

struct Subcommand {
    const char* name;
    const char* text; // for --help
    int (*run)(const Args& args, Console& console);
};

struct SubcommandGroup {
    const char* command;
    const char* about; // a paragraph for --help
    std::vector<Subcommand> subcommands;
    const char* failed; // what exit status 1 means
    const char* examples;
};

// Runs the subcommand that `args` begin with. Its usage errors become `Error`, since their pointer
// to --help names the subcommand.
int runSubcommand(const SubcommandGroup& group, const Args& args, Console& console);

// Throws `UsageError` unless there is exactly one operand for each of `names`.
void requireOperands(const Args& operands, std::initializer_list<const char*> names);

} // namespace cli

#endif
