#include "digest/roads.h"

// The compiler's run-time support looks at both the processor and the saved registers. Each test is
// a load and a mask, so nothing is kept here.

// coverage off: what the processor has is the same in every run

bool pelorikutil::roads::avx512Gost() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
           __builtin_cpu_supports("gfni");
}

bool pelorikutil::roads::avx512Md5() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl");
}

// coverage on
