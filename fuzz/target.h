// What every fuzz target defines.

#ifndef PELORIK_FUZZ_TARGET_H
#define PELORIK_FUZZ_TARGET_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// Feeds one input to the unit under test and stops the process when the unit breaks a promise.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

// Stops the process, with `promise` on standard error, unless it was kept.
inline void require(bool kept, const char* promise) {
    if (kept)
        return;
    std::fprintf(stderr, "Not kept: %s\n", promise);
    std::abort();
}

} // namespace fuzz

#endif
