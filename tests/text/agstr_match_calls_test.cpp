// Matching in subclasses where the C library has no slot for a thread's pointer.

#include "text/agstr.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <new>
#include <pthread.h>

namespace {

// What the next calls of the interposed functions return instead of calling the real ones.
int createError = 0;
int setError = 0;

struct Subclass : AGStr {};

bool matches(const char* pattern, const char* text) {
    return Subclass().Match(pattern, text);
}

class AGStrMatchCalls : public testing::Test {
protected:
    ~AGStrMatchCalls() override { createError = setError = 0; }
};

} // namespace

extern "C" int __real_pthread_key_create(pthread_key_t* key, void (*destructor)(void*));
extern "C" int __wrap_pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) {
    return createError != 0 ? createError : __real_pthread_key_create(key, destructor);
}

extern "C" int __real_pthread_setspecific(pthread_key_t key, const void* value);
extern "C" int __wrap_pthread_setspecific(pthread_key_t key, const void* value) {
    return setError != 0 ? setError : __real_pthread_setspecific(key, value);
}

// Runs first, because the first match creates the key.
TEST_F(AGStrMatchCalls, ThrowsBadAllocWhileNoKeyIsFree) {
    createError = EAGAIN;
    EXPECT_THROW(matches("*a*b", "ab"), std::bad_alloc);
    EXPECT_THROW(matches("*a*b", "ab"), std::bad_alloc);
    createError = 0;
    EXPECT_TRUE(matches("*a*b", "ab"));
}

TEST_F(AGStrMatchCalls, ThrowsBadAllocWithoutMemoryForTheSlot) {
    setError = ENOMEM;
    EXPECT_THROW(matches("*a*b", "ab"), std::bad_alloc);
    setError = 0;
    EXPECT_TRUE(matches("*a*b", "ab"));
    EXPECT_FALSE(matches("*a*b", "ac"));
}

TEST_F(AGStrMatchCalls, GivesTheSameAnswersAfterTheKeyWasDeleted) {
    setError = EINVAL;
    EXPECT_TRUE(matches("*a*b?*c", "aabbabxbc"));
    EXPECT_FALSE(matches("*a*b?*c", "aabbabxb"));
}
