#include "bench/switchable_roads.h"

#include "digest/roads.h"

namespace {

bool roadsOpen = true;

} // namespace

bool bench::hasRoads() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
           __builtin_cpu_supports("gfni");
}

void bench::openRoads(bool open) {
    roadsOpen = open;
}

bool roads::avx512Gost() {
    return roadsOpen && bench::hasRoads();
}

bool roads::avx512Md5() {
    return roadsOpen && bench::hasRoads();
}
