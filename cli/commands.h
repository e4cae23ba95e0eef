// The tool's commands, one source file each.
//
// A command gets the words behind its name, writes through `console`, and returns an exit status.
// It may throw `HelpWanted`, `UsageError`, `Failure` and `Refusal`.

#ifndef PELORIK_CLI_COMMANDS_H
#define PELORIK_CLI_COMMANDS_H

#include "cli/console.h"

#include <string>
#include <vector>

namespace cli {

using Words = std::vector<std::string>;

int runHash(const Words& words, Console& console);
int runList(const Words& words, Console& console);
int runCheck(const Words& words, Console& console);
int runCompare(const Words& words, Console& console);
int runUpdate(const Words& words, Console& console);
int runBench(const Words& words, Console& console);
int runInterfaces(const Words& words, Console& console);
int runLock(const Words& words, Console& console);
int runXml(const Words& words, Console& console);
int runIni(const Words& words, Console& console);
int runBase64(const Words& words, Console& console);
int runPem(const Words& words, Console& console);

struct Command {
    const char* name;
    const char* text; // for pelorik --help
    int (*run)(const Words& words, Console& console);
};

// In the order in which they are shown.
const std::vector<Command>& allCommands();

} // namespace cli

#endif
