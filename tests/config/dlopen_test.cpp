// The library in a program that loads it at run time.

#include "tests/support/fault_injection.h"
#include "tests/support/leak_check.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

namespace {

class Plugin {
public:
    Plugin() : handle_(dlopen(PELORIK_PLUGIN, RTLD_NOW | RTLD_LOCAL)) {}
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    template<class Function>
    Function* function(const char* name) const {
        return reinterpret_cast<Function*>(dlsym(handle_, name));
    }

    bool loaded() const { return handle_ != nullptr; }

private:
    void* handle_; // for as long as the process runs
};

struct Erasure {
    unsigned long (*erase)(void* document);
    void* document;
    unsigned long left;
};

// A library that had memory of its own for each thread would need it here.
void* eraseWithoutMemory(void* argument) {
    auto& erasure = *static_cast<Erasure*>(argument);
    const support::FailingCall noMemory(support::CallKind::kMemory, 1, 0);
    erasure.left = erasure.erase(erasure.document);
    return nullptr;
}

TEST(Dlopen, AThreadsFirstErasureTakesNoMemory) {
    support::allowLeaks(); // of the loader
    const Plugin plugin;
    ASSERT_TRUE(plugin.loaded()) << dlerror();
    void* const document = plugin.function<void*()>("makeDocument")();
    Erasure erasure{plugin.function<unsigned long(void*)>("eraseDocument"), document, 1};
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, eraseWithoutMemory, &erasure), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_EQ(erasure.left, 0u);
    EXPECT_EQ(support::countedCalls(), 0);
    plugin.function<void(void*)>("deleteDocument")(document);
}

} // namespace
