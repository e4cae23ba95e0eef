// The C library's calls for memory and of the system, counted, one of which can be made to fail.
//
// A test program that lists failing_calls.cpp among its sources gets stand-ins for these calls,
// which its libraries reach too. They pass everything on, except for the one call that a
// `FailingCall` names.

#ifndef PELORIK_TESTS_SUPPORT_FAILING_CALLS_H
#define PELORIK_TESTS_SUPPORT_FAILING_CALLS_H

#include <string>

namespace support {

enum class CallKind { kMemory, kSystem };

// While it lives, calls of one kind are counted, and call `number`, from 1, fails in its way `way`,
// from 0: with one of the errors that are to be expected of it, or by doing less than it was asked.
class FailingCall {
public:
    FailingCall(CallKind kind, long number, unsigned way);
    ~FailingCall();
    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;

    // Whether that call was made, and whether it has such a way.
    bool reached() const;
    bool failed() const;
};

// While it lives, calls are the test's own: they are not counted and do not fail.
class Uncounted {
public:
    Uncounted();
    ~Uncounted();
    Uncounted(const Uncounted&) = delete;
    Uncounted& operator=(const Uncounted&) = delete;

private:
    bool before_;
};

// How many calls were made while the last `FailingCall` lived. One of number 0 only counts.
long countedCalls();

// The call that was last to fail, for messages: "read, call 3, EIO".
std::string failedCall();

// How many blocks are allocated now.
long liveBlocks();

// Writes a line for each call from now on to `descriptor`: its number, its name and the number of
// its ways. A process that is started by fork counts from 1000001 on.
void logCalls(CallKind kind, int descriptor);

// Lets call `number` fail until the process ends.
void failCall(CallKind kind, long number, unsigned way);

} // namespace support

#endif
