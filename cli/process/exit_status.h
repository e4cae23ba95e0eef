// What the tool's exit statuses mean.

#ifndef PELORIK_CLI_PROCESS_EXIT_STATUS_H
#define PELORIK_CLI_PROCESS_EXIT_STATUS_H

namespace cli {

enum ExitStatus : int {
    kDone = 0,         // everything that was asked was done and verified
    kFailed = 1,       // something failed verification, or one of several files could not be read
    kTrouble = 2,      // the tool could not do its job
    kInterrupted = 130 // by SIGINT
};

} // namespace cli

#endif
