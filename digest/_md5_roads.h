// The roads of MD5: one signature, a suffix a road. Not installed.

#ifndef PELORIK_DIGEST_MD5_ROADS_H
#define PELORIK_DIGEST_MD5_ROADS_H

#include <stddef.h>
#include <stdint.h>

namespace pelorikutil::md5 {

// Takes `count` blocks of 64 bytes into the chaining words A, B, C and D.
void compress_portable(uint32_t* state, const unsigned char* blocks, size_t count);
void compress_avx512(uint32_t* state, const unsigned char* blocks, size_t count);

} // namespace pelorikutil::md5

#endif
