// A command that the tool runs and waits for.

#ifndef PELORIK_CLI_PROCESS_CHILD_H
#define PELORIK_CLI_PROCESS_CHILD_H

#include <string>
#include <vector>

namespace cli {

// How running a command has ended.
struct CommandEnd {
    int status;    // as a shell gives it: its own, 128 + the signal, 126 or 127 when it never ran
    int execError; // why it never ran, or 0
};

// Runs `command`, found along PATH, with its args, and waits for it. It inherits the descriptor
// `inherited` besides the standard ones.
//
// Terminating signals that are sent to the tool meanwhile go to the command, unless the terminal
// has sent them to the command as well. A command that outlives the tool is killed, because it may
// have closed `inherited`.
//
// Throws `Error` when there can be no child, and `Interrupted` when SIGINT came before.
CommandEnd runCommand(const std::vector<std::string>& command, int inherited);

} // namespace cli

#endif
