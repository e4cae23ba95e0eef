// Addition of wide numbers: words least significant first, the last carry dropped. Not installed.
//
// Of internal linkage, since sources that are compiled for newer processors include it too: a
// shared copy could be one that others cannot run.

#ifndef PELORIK_DIGEST_WIDE_SUM_H
#define PELORIK_DIGEST_WIDE_SUM_H

#include <cstddef>
#include <cstdint>

template<std::size_t Words>
static inline void addWide(std::uint64_t (&sum)[Words], const std::uint64_t (&value)[Words]) {
    std::uint64_t carry = 0;
    for (std::size_t i = 0; i < Words; ++i) {
        const std::uint64_t withCarry = sum[i] + carry;
        carry = withCarry < carry;
        sum[i] = withCarry + value[i];
        carry += sum[i] < withCarry;
    }
}

#endif
