// Operators new[] and delete[] that a test can question. A test program that lists array_new.cpp
// among its sources gets them in place of the usual ones, under the sanitizers too.

#ifndef PELORIK_TESTS_SUPPORT_ARRAY_NEW_H
#define PELORIK_TESTS_SUPPORT_ARRAY_NEW_H

#include <cstddef>

namespace support {

// The size that was asked for the array at `block`, 0 when no array stands there.
std::size_t arraySize(const void* block);

// How many arrays there are now, and how many were made since the start.
std::size_t liveArrays();
std::size_t madeArrays();

// While it lives, new[] fails as soon as `successes` arrays were made.
class FailingArrays {
public:
    explicit FailingArrays(std::size_t successes);
    ~FailingArrays();
    FailingArrays(const FailingArrays&) = delete;
    FailingArrays& operator=(const FailingArrays&) = delete;
};

} // namespace support

#endif
