// Runs code on a thread with a small stack.

#ifndef PELORIK_TESTS_SUPPORT_SMALL_STACK_H
#define PELORIK_TESTS_SUPPORT_SMALL_STACK_H

#include <cstddef>
#include <functional>
#include <gtest/gtest.h>
#include <pthread.h>

namespace support {

// The sanitizers' frames are several times as large.
#ifdef PELORIK_SANITIZED
constexpr std::size_t kSmallStack = 4 << 20;
#else
constexpr std::size_t kSmallStack = 1 << 20;
#endif

// Runs `action` in a thread of its own, on a stack of `kSmallStack` bytes, and waits for its end.
inline void onSmallStack(std::function<void()> action) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, kSmallStack), 0);
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &action), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
}

} // namespace support

#endif
