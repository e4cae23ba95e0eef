// The roads of GOST R 34.11-94: one signature, a suffix a road. Not installed.

#ifndef PELORIK_DIGEST_GOST3411_ROADS_H
#define PELORIK_DIGEST_GOST3411_ROADS_H

#include <stddef.h>

namespace pelorikutil::gost3411 {

// The standard's step function over `count` blocks of 32 bytes: hash = f(hash, block) for each.
void step_portable(unsigned char* hash, const unsigned char* blocks, size_t count);
void step_avx512(unsigned char* hash, const unsigned char* blocks, size_t count);

} // namespace pelorikutil::gost3411

#endif
