// Loads a plugin that links the library, and calls it first in a thread without memory.
//
// usage: agstr_plugin_host PLUGIN

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <dlfcn.h>
#include <thread>

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);

namespace {

thread_local bool hasMemory = true;

void* noMemory() {
    errno = ENOMEM;
    return nullptr;
}

} // namespace

// clang++ hides these definitions without the attribute.
extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept {
    return hasMemory ? __libc_malloc(size) : noMemory();
}

extern "C" __attribute__((visibility("default"))) void* calloc(std::size_t count,
                                                               std::size_t size) noexcept {
    return hasMemory ? __libc_calloc(count, size) : noMemory();
}

int main(int argumentCount, char** arguments) {
    void* const plugin = argumentCount == 2 ? dlopen(arguments[1], RTLD_NOW) : nullptr;
    void* const symbol = plugin == nullptr ? nullptr : dlsym(plugin, "matchInPlugin");
    if (symbol == nullptr) {
        std::puts("plugin not loaded");
        return 1;
    }
    const auto match = reinterpret_cast<int (*)()>(symbol);
    int withoutMemory = 0;
    int withMemory = 0;
    std::thread([&] {
        hasMemory = false;
        withoutMemory = match();
        hasMemory = true;
        withMemory = match();
    }).join();
    std::printf("%d without memory, %d with memory\n", withoutMemory, withMemory);
    return withoutMemory == -1 && withMemory == 1 ? 0 : 1;
}
