#include "cli/commands.h"

namespace cli {

const std::vector<Command>& allCommands() {
    static const std::vector<Command> commands = {
        {"hash", "print the digests of files", runHash},
        {"list", "make a hash list of files", runList},
        {"check", "check files against a hash list", runCheck},
        {"update", "bring a hash list up to date", runUpdate},
        {"compare", "tell how two hash lists differ", runCompare},
        {"interfaces", "list the network interfaces", runInterfaces},
        {"lock", "run a command while holding a lock", runLock},
        {"xml", "check, seal and query XML documents", runXml},
        {"ini", "look up values in INI texts", runIni},
        {"base64", "encode bytes as base64 text, and back", runBase64},
        {"pem", "put certificates into PEM framing, and back", runPem},
        {"bench", "measure the speed of the digests", runBench},
    };
    return commands;
}

} // namespace cli
