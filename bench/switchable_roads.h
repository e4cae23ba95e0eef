// Opens and closes the roads for newer processors in a benchmark program, in place of the library's
// own choice.

#ifndef PELORIK_BENCH_SWITCHABLE_ROADS_H
#define PELORIK_BENCH_SWITCHABLE_ROADS_H

namespace bench {

// Whether this processor has every road.
bool hasRoads();

// With false, the digests take the portable road from now on.
void openRoads(bool open);

} // namespace bench

#endif
