// Leak checks: descriptors, child processes and, in programs that link main.cpp, memory.

#ifndef PELORIK_TESTS_SUPPORT_LEAK_CHECK_H
#define PELORIK_TESTS_SUPPORT_LEAK_CHECK_H

namespace support {

// How many descriptors the process has open.
int openDescriptors();

class LeakCheck {
public:
    // Prints what the process leaked since the construction: a descriptor or a child process.
    bool found() const;

private:
    int descriptors_ = openDescriptors();
};

// Lets the running test keep memory, such as a cache that the C++ library fills on first use.
// main.cpp defines it.
void allowLeaks();

} // namespace support

#endif
