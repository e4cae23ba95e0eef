// The roads of GOST R 34.11-2012: one signature, a suffix a road. Not installed.

#ifndef PELORIK_DIGEST_GOST34_11_2012_ROADS_H
#define PELORIK_DIGEST_GOST34_11_2012_ROADS_H

#include "digest/gost34_11_2012.h"

#include <stddef.h>

namespace pelorikutil::gost34_11_2012 {

// Takes `count` full blocks at `data` into h, N and Sigma.
void addBlocks_portable(UInt512& h, UInt512& n, UInt512& sigma, const unsigned char* data,
                        size_t count);
void addBlocks_avx512(UInt512& h, UInt512& n, UInt512& sigma, const unsigned char* data,
                      size_t count);

// The final stage: takes the padded last block, which holds `bits` bits of message.
void finish_portable(UInt512& h, UInt512& n, UInt512& sigma, const unsigned char* lastBlock,
                     unsigned long bits);
void finish_avx512(UInt512& h, UInt512& n, UInt512& sigma, const unsigned char* lastBlock,
                   unsigned long bits);

} // namespace pelorikutil::gost34_11_2012

#endif
