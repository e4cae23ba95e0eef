// The constants of GOST R 34.11-94 with the parameters of RFC 4357 (section 11.2). Not installed.

#ifndef PELORIK_DIGEST_GOST3411_TABLES_H
#define PELORIK_DIGEST_GOST3411_TABLES_H

#include <stdint.h>

namespace pelorikutil::gost3411 {

// id-GostR3411-94-CryptoProParamSet. Row 0 stands for the least significant nibble of a word.
inline constexpr unsigned char S[8][16] = {{10, 4, 5, 6, 8, 1, 3, 7, 13, 12, 14, 0, 9, 2, 11, 15},
                                           {5, 15, 4, 0, 2, 13, 11, 9, 1, 7, 6, 3, 12, 14, 10, 8},
                                           {7, 15, 12, 14, 9, 4, 1, 0, 3, 11, 5, 2, 6, 10, 8, 13},
                                           {4, 10, 7, 12, 0, 15, 2, 8, 14, 1, 6, 5, 13, 11, 9, 3},
                                           {7, 6, 4, 11, 9, 12, 2, 10, 1, 8, 0, 14, 15, 13, 3, 5},
                                           {7, 6, 2, 4, 13, 9, 15, 0, 10, 1, 5, 11, 8, 14, 12, 3},
                                           {13, 14, 4, 1, 7, 0, 5, 10, 3, 12, 8, 15, 6, 2, 9, 11},
                                           {1, 3, 10, 9, 5, 11, 4, 15, 8, 6, 7, 14, 13, 0, 2, 12}};

// The standard's C3, least significant quadword first; C2 and C4 are zero.
inline constexpr uint64_t C3[4] = {0xff00ff00ff00ff00, 0x00ff00ff00ff00ff, 0xff0000ff00ffff00,
                                   0xff00ffff000000ff};

} // namespace pelorikutil::gost3411

#endif
