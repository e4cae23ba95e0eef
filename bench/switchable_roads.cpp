#include "bench/switchable_roads.h"

#include "digest/roads.h"

namespace {

bool roadsOpen = true;

bool hasMd5Road() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl");
}

bool hasGostRoads() {
    return hasMd5Road() && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("gfni");
}

} // namespace

bool bench::hasRoad(std::string_view race) {
    return race.ends_with("md5") ? hasMd5Road() : hasGostRoads();
}

void bench::openRoads(bool open) {
    roadsOpen = open;
}

bool pelorikutil::roads::avx512Gost() {
    return roadsOpen && hasGostRoads();
}

bool pelorikutil::roads::avx512Md5() {
    return roadsOpen && hasMd5Road();
}
