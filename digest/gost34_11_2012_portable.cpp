#include "digest/gost34_11_2012_roads.h"
#include "digest/gost34_11_2012_tables.h"
#include "digest/wide_sum.h"

#include <bit>
#include <cstring>

static_assert(std::endian::native == std::endian::little);

namespace {

using gost34_11_2012::C;
using gost34_11_2012::premult;

constexpr UInt512 kZero = {};

UInt512 load(const void* bytes) {
    UInt512 value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

// What word `Column` of a value adds to the eight words of its LPS.
//
// The empty assembly statements emit nothing. They keep the compiler from sorting the look-ups by
// row, which costs a copy and a shift for each of them, where a word taken apart on the spot costs
// one shift for two; docs/performance.md has the measurement.
template<unsigned Row>
inline void addRows(UInt512& sum, const std::uint64_t* table, std::uint64_t& word) {
    sum.word[Row] ^= table[word & 0xff];
    sum.word[Row + 1] ^= table[word >> 8 & 0xff];
    word >>= 16;
    asm("" : "+r"(word));
}

template<unsigned Column>
inline void addColumn(UInt512& sum, std::uint64_t word) {
    const std::uint64_t* const table = premult[Column].data();
    addRows<0>(sum, table, word);
    addRows<2>(sum, table, word);
    addRows<4>(sum, table, word);
    addRows<6>(sum, table, word);
    asm(""
        : "+r"(sum.word[0]), "+r"(sum.word[1]), "+r"(sum.word[2]), "+r"(sum.word[3]),
          "+r"(sum.word[4]), "+r"(sum.word[5]), "+r"(sum.word[6]), "+r"(sum.word[7]));
}

// out = L(P(S(x ^ y))), where `out` may be x or y.
inline void lps(UInt512& out, const UInt512& x, const UInt512& y) {
    UInt512 sum = {};
    addColumn<0>(sum, x.word[0] ^ y.word[0]);
    addColumn<1>(sum, x.word[1] ^ y.word[1]);
    addColumn<2>(sum, x.word[2] ^ y.word[2]);
    addColumn<3>(sum, x.word[3] ^ y.word[3]);
    addColumn<4>(sum, x.word[4] ^ y.word[4]);
    addColumn<5>(sum, x.word[5] ^ y.word[5]);
    addColumn<6>(sum, x.word[6] ^ y.word[6]);
    addColumn<7>(sum, x.word[7] ^ y.word[7]);
    out = sum;
}

// The standard's g_N(h, m), stored back into h.
void compress(UInt512& h, const UInt512& n, const UInt512& m) {
    UInt512 key;
    UInt512 text = m;
    lps(key, h, n);
    for (const UInt512& constant : C) {
        lps(text, text, key);
        lps(key, key, constant);
    }
    for (int i = 0; i < 8; ++i)
        h.word[i] ^= text.word[i] ^ key.word[i] ^ m.word[i];
}

// g_N(h, m), with the count of bits and the control sum moved on by the block.
void addBlock(UInt512& h, UInt512& n, UInt512& sigma, const UInt512& block, unsigned long bits) {
    compress(h, n, block);
    addWide(n.word, {bits, 0, 0, 0, 0, 0, 0, 0});
    addWide(sigma.word, block.word);
}

} // namespace

void gost34_11_2012::addBlocks_portable(UInt512& h, UInt512& n, UInt512& sigma,
                                        const unsigned char* data, std::size_t count) {
    for (; count > 0; --count, data += sizeof(UInt512))
        addBlock(h, n, sigma, load(data), 8 * sizeof(UInt512));
}

void gost34_11_2012::finish_portable(UInt512& h, UInt512& n, UInt512& sigma,
                                     const unsigned char* lastBlock, unsigned long bits) {
    addBlock(h, n, sigma, load(lastBlock), bits);
    compress(h, kZero, n);
    compress(h, kZero, sigma);
}
