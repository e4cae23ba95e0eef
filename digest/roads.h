// Which of the roads for newer processors may be taken. Not installed.
//
// A road is open when the processor has its instructions and the operating system saves their
// registers. The functions stand in a source of their own, so that a test or benchmark program over
// the static library can define them itself and close roads.

#ifndef PELORIK_DIGEST_ROADS_H
#define PELORIK_DIGEST_ROADS_H

namespace pelorikutil::roads {

// AVX-512 F, BW, VL and VBMI, and GFNI.
bool avx512Gost();

// AVX-512 F and VL.
bool avx512Md5();

} // namespace pelorikutil::roads

#endif
