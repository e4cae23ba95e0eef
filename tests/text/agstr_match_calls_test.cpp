// Matching in subclasses where the C library has no slot for a thread's pointer.

#include "tests/support/fault_injection.h"
#include "text/agstr.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <new>

namespace {

namespace calls = support::calls;
using support::Replacement;

struct Subclass : AGStr {};

bool matches(const char* pattern, const char* text) {
    return Subclass().Match(pattern, text);
}

// What replaces a function that returns its error.
auto failing(int error) {
    return [error](auto...) { return error; };
}

// Runs first, because the first match creates the key.
TEST(AGStrMatchCalls, ThrowsBadAllocWhileNoKeyIsFree) {
    {
        const Replacement create(calls::pthread_key_create, failing(EAGAIN));
        EXPECT_THROW(matches("*a*b", "ab"), std::bad_alloc);
        EXPECT_THROW(matches("*a*b", "ab"), std::bad_alloc);
    }
    EXPECT_TRUE(matches("*a*b", "ab"));
}

TEST(AGStrMatchCalls, ThrowsBadAllocWithoutMemoryForTheSlot) {
    {
        const Replacement set(calls::pthread_setspecific, failing(ENOMEM));
        EXPECT_THROW(matches("*a*b", "ab"), std::bad_alloc);
    }
    EXPECT_TRUE(matches("*a*b", "ab"));
    EXPECT_FALSE(matches("*a*b", "ac"));
}

TEST(AGStrMatchCalls, GivesTheSameAnswersAfterTheKeyWasDeleted) {
    const Replacement set(calls::pthread_setspecific, failing(EINVAL));
    EXPECT_TRUE(matches("*a*b?*c", "aabbabxbc"));
    EXPECT_FALSE(matches("*a*b?*c", "aabbabxb"));
}

} // namespace
