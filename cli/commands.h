// The tool's commands, one source file each.
//
// A command gets the args after its name, writes through `console`, and returns an exit status.
// It may throw `HelpRequested`, `UsageError`, `Error` and `CheckFailed`.

#ifndef PELORIK_CLI_COMMANDS_H
#define PELORIK_CLI_COMMANDS_H

#include "cli/output/console.h"

#include <string>
#include <vector>

namespace cli {

using Args = std::vector<std::string>;

int runHash(const Args& args, Console& console);
int runList(const Args& args, Console& console);
int runCheck(const Args& args, Console& console);
int runCompare(const Args& args, Console& console);
int runUpdate(const Args& args, Console& console);
int runBench(const Args& args, Console& console);
int runInterfaces(const Args& args, Console& console);
int runLock(const Args& args, Console& console);
int runXml(const Args& args, Console& console);
int runIni(const Args& args, Console& console);
int runBase64(const Args& args, Console& console);
int runPem(const Args& args, Console& console);

struct Command {
    const char* name;
    const char* text; // for pelorik --help
    int (*run)(const Args& args, Console& console);
};

// In the order in which they are shown.
const std::vector<Command>& allCommands();

} // namespace cli

#endif
