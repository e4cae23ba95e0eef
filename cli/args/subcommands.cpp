#include "cli/args/subcommands.h"

#include "cli/args/options.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"

#include <algorithm>

namespace cli {

namespace {

// Handles args that do not begin with a subcommand: shows help on request, and refuses the rest.
[[noreturn]] void explain(const SubcommandGroup& group, const Args& args) {
    const std::string command = group.command;
    OptionParser line(command + " VERB [OPTION]... OPERAND...",
                      group.about + (" pelorik " + command) + " VERB --help tells more of a verb.");
    for (const Subcommand& subcommand : group.subcommands)
        line.subcommand(subcommand.name, subcommand.text);
    line.status(kDone, "it was done");
    line.status(kFailed, group.failed);
    line.status(kTrouble, "a file or standard output could not be read or written; wrong usage");
    line.status(kInterrupted, "interrupted");
    line.examples(group.examples);
    line.parse(args);
    throw UsageError(args.empty() ? "which verb?" : "unknown verb '" + args.front() + "'");
}

} // namespace

int runSubcommand(const SubcommandGroup& group, const Args& args, Console& console) {
    const std::string first = args.empty() ? std::string() : args.front();
    const auto subcommand =
        std::find_if(group.subcommands.begin(), group.subcommands.end(),
                     [&](const Subcommand& known) { return first == known.name; });
    if (subcommand == group.subcommands.end())
        explain(group, args);
    try {
        return subcommand->run(Args(args.begin() + 1, args.end()), console);
    } catch (const UsageError& error) {
        throw Error(std::string(error.what()) + " (try: pelorik " + group.command + " " + first +
                    " --help)");
    }
}

void requireOperands(const Args& operands, std::initializer_list<const char*> names) {
    if (operands.size() < names.size())
        throw UsageError(std::string(names.begin()[operands.size()]) + " is missing");
    if (operands.size() > names.size())
        throw UsageError("unexpected operand '" + operands[names.size()] + "'");
}

} // namespace cli
