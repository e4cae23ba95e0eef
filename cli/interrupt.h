// SIGINT as a flag that long work looks at.

#ifndef PELORIK_CLI_INTERRUPT_H
#define PELORIK_CLI_INTERRUPT_H

namespace cli {

// Thrown out of reading when SIGINT has come.
struct Interrupted {};

// From now on the first SIGINT raises the flag and breaks off system calls that wait; the second
// one ends the process. A SIGINT that the parent had ignored stays ignored.
void watchForInterrupt();

bool interruptRequested() noexcept;

// Throws `Interrupted` when the flag is up.
void stopIfInterrupted();

} // namespace cli

#endif
