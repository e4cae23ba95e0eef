// Operators new[] and delete[] that record the sizes of arrays. A test program that lists
// array_new.cpp among its sources gets them, under the sanitizers too.

#ifndef PELORIK_TESTS_SUPPORT_ARRAY_NEW_H
#define PELORIK_TESTS_SUPPORT_ARRAY_NEW_H

#include <cstddef>

namespace support {

// The size that was asked for the array at `block`, 0 when no array stands there.
std::size_t arraySize(const void* block);

// How many arrays there are now, and how many were made since the start.
std::size_t liveArrays();
std::size_t madeArrays();

} // namespace support

#endif
