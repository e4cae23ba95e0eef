// Opens and closes the roads for newer processors in a benchmark program, in place of the library's
// own choice.

#ifndef PELORIK_BENCH_SWITCHABLE_ROADS_H
#define PELORIK_BENCH_SWITCHABLE_ROADS_H

#include <string_view>

namespace bench {

// Whether this processor has the newer road of the digest with whose name that of a race ends.
bool hasRoad(std::string_view race);

// With false, the digests take the portable road from now on.
void openRoads(bool open);

} // namespace bench

#endif
