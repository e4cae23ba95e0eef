// What a test may say about the memory that it takes. See main.cpp.

#ifndef PELORIK_TESTS_SUPPORT_LEAKS_H
#define PELORIK_TESTS_SUPPORT_LEAKS_H

namespace support {

// Says that the running test allocates memory that rightly lives on after it, such as a cache that
// the standard library fills on first use.
void allowLastingMemory();

// False under the sanitizers, whose operator new is their own.
bool canFailAllocations();

// While it lives, every allocation throws std::bad_alloc.
class NoMemory {
public:
    NoMemory();
    ~NoMemory();
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
};

// While it lives, one allocation throws std::bad_alloc: the one that `before` others come before.
class FailingAllocation {
public:
    explicit FailingAllocation(long before);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    // True once it has thrown.
    bool failed() const;
};

} // namespace support

#endif
