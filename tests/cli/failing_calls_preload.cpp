// Makes the tool's calls fail as the environment says, from the making of its static objects on,
// when this is loaded before everything else.
//
// PELORIK_CALLS is the kind of calls, "memory" or "system", and either a file that every call is
// logged in or a call's number and way: "system log FILE", "memory fail 7 0". Programs that the
// tool starts are left alone.

#include "tests/support/failing_calls.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace {

using support::CallKind;

using Main = int (*)(int count, char** words, char** variables);
using Procedure = void (*)();

void begin() {
    const char* const order = std::getenv("PELORIK_CALLS");
    if (order == nullptr)
        return;
    char kind[16];
    char path[256];
    long number = 0;
    unsigned way = 0;
    const bool fails = std::sscanf(order, "%15s fail %ld %u", kind, &number, &way) == 3;
    const bool logs = std::sscanf(order, "%15s log %255s", kind, path) == 2;
    unsetenv("PELORIK_CALLS");
    const CallKind calls =
        kind == std::string_view("memory") ? CallKind::kMemory : CallKind::kSystem;
    if (logs)
        support::logCalls(calls, open(path, O_WRONLY | O_APPEND | O_CLOEXEC));
    if (fails)
        support::failCall(calls, number, way);
}

} // namespace

// What a program's first instructions call. Its static objects are made in there, then it is run.
extern "C" __attribute__((visibility("default"))) int
__libc_start_main(Main main, int count, char** words, Procedure initialise, Procedure finish,
                  Procedure unload, void* stackEnd) {
    auto* const next =
        reinterpret_cast<decltype(&__libc_start_main)>(dlsym(RTLD_NEXT, "__libc_start_main"));
    begin();
    return next(main, count, words, initialise, finish, unload, stackEnd);
}
