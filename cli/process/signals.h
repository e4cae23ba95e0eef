// Signals as a flag that long work looks at, or as an error of the call that they came from.

#ifndef PELORIK_CLI_PROCESS_SIGNALS_H
#define PELORIK_CLI_PROCESS_SIGNALS_H

#include <csignal>

namespace cli {

// Thrown out of reading when a signal that is watched for has come.
struct Interrupted {};

// From now on the first SIGINT raises the flag and breaks off system calls that wait; the second
// one ends the process. A SIGINT that the parent had ignored stays ignored.
void watchForInterrupt();

// The same for SIGTERM and SIGHUP, for commands that have something to put in order before they
// end; `endAsTerminated` ends the process by the signal that came, if one did.
void watchForTermination();
void endAsTerminated();

// From now on writing beyond the size that the process may give a file fails, instead of ending the
// process.
void failWritesBeyondLimit();

// Undoes that in a process that is about to become another program.
void restoreWriteLimit();

// Holds SIGINT, SIGTERM and SIGHUP back, and SIGQUIT, as long as it lives.
class SignalsBlocked {
public:
    SignalsBlocked();
    ~SignalsBlocked();
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

bool interruptRequested() noexcept;

// Throws `Interrupted` when the flag is up.
void stopIfInterrupted();

} // namespace cli

#endif
