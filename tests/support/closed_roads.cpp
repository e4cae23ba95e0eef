// Closes every road for newer processors in a program that links the static library: linked in its
// place, these are the answers that the digests get.

#include "digest/roads.h"

bool pelorikutil::roads::avx512Gost() {
    return false;
}

bool pelorikutil::roads::avx512Md5() {
    return false;
}
