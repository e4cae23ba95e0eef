// Signals that end a process set a flag that long operations poll.

#ifndef PELORIK_CLI_PROCESS_SIGNALS_H
#define PELORIK_CLI_PROCESS_SIGNALS_H

#include <csignal>

namespace cli {

// Thrown when an operation stops because of a signal.
struct Interrupted {};

// True for every signal that ends a process by default and is sent on purpose: SIGINT, SIGTERM,
// SIGHUP, SIGUSR1, real-time signals and so on.
bool isTerminating(int signal);

// From now on the first signal of each of these kinds sets the flag and interrupts blocking system
// calls; the second one ends the process. Signals that the parent ignores stay ignored.
void watchForTermination();

// Ends the process by the signal that came, unless that was SIGINT, which has an exit status.
void endAsTerminated();

// From now on writing beyond the process's file size limit fails instead of ending the process.
void failWritesBeyondLimit();

// Undoes both in a process that is about to execute another program.
void restoreSignals();

// Blocks all signals as long as it lives, so that none ends the process in between.
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

// Throws `Interrupted` when the flag is set.
void stopIfInterrupted();

} // namespace cli

#endif
