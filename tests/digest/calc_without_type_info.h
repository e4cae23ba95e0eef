// A calculator of a class that is compiled with -fno-rtti.

#ifndef PELORIK_TESTS_DIGEST_CALC_WITHOUT_TYPE_INFO_H
#define PELORIK_TESTS_DIGEST_CALC_WITHOUT_TYPE_INFO_H

#include "digest/hash.h"

// One object for the whole program. Its `Update` does nothing.
IHash_Calc& calcWithoutTypeInfo();

#endif
