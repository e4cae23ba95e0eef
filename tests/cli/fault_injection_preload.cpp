// Injects faults into the tool as the environment says, from the making of its static objects on,
// when this is loaded before everything else.
//
// PELORIK_FAULTS is one of these, where KIND is "memory" or "system":
//     KIND log FILE               logs every call of the kind in the file
//     KIND fail NUMBER WAY        call NUMBER fails in its way WAY
//     short MOST                  reads and writes move at most MOST bytes or items
//     read OFFSET ERROR FILE      reads of the file fail from the offset on, with that error number
//
// Programs that the tool starts are left alone.

#include "tests/support/fault_injection.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace {

using support::CallKind;

using Main = int (*)(int count, char** args, char** variables);
using Procedure = void (*)();

void inject(const char* order) {
    char kind[16];
    char path[256];
    long number = 0;
    int error = 0;
    unsigned way = 0;
    std::size_t most = 0;
    const auto callKind = [&] {
        return kind == std::string_view("memory") ? CallKind::kMemory : CallKind::kSystem;
    };
    if (std::sscanf(order, "short %zu", &most) == 1)
        support::limitCounts(most);
    else if (std::sscanf(order, "read %ld %d %255[^\n]", &number, &error, path) == 3)
        support::failReads(path, number, error);
    else if (std::sscanf(order, "%15s fail %ld %u", kind, &number, &way) == 3)
        support::failCall(callKind(), number, way);
    else if (std::sscanf(order, "%15s log %255[^\n]", kind, path) == 2)
        support::logCalls(callKind(), open(path, O_WRONLY | O_APPEND | O_CLOEXEC));
    else
        std::abort();
}

void begin() {
    if (const char* const order = std::getenv("PELORIK_FAULTS")) {
        const std::string kept = order;
        unsetenv("PELORIK_FAULTS");
        // A program without the sanitizer would free by its malloc what it allocated by the C
        // library's.
        unsetenv("LD_PRELOAD");
        inject(kept.c_str());
    }
}

} // namespace

// What a program's first instructions call. Its static objects are made in there, then it is run.
extern "C" __attribute__((visibility("default"))) int
__libc_start_main(Main main, int count, char** args, Procedure initialise, Procedure finish,
                  Procedure unload, void* stackEnd) {
    auto* const next =
        reinterpret_cast<decltype(&__libc_start_main)>(dlsym(RTLD_NEXT, "__libc_start_main"));
    begin();
    return next(main, count, args, initialise, finish, unload, stackEnd);
}
