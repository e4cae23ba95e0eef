// What a test may say about what it leaves behind. See main.cpp.

#ifndef PELORIK_TESTS_SUPPORT_LEAKS_H
#define PELORIK_TESTS_SUPPORT_LEAKS_H

namespace support {

// Says that the running test allocates memory that rightly lives on after it, such as a cache that
// the standard library fills on first use.
void allowLastingMemory();

} // namespace support

#endif
