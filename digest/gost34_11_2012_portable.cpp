#include "digest/gost34_11_2012_roads.h"
#include "digest/gost34_11_2012_tables.h"
#include "digest/wide_sum.h"

#include <bit>
#include <cstring>

static_assert(std::endian::native == std::endian::little);

namespace {

using pelorikutil::gost34_11_2012::C;
using pelorikutil::gost34_11_2012::premult;

UInt512 load(const void* bytes) {
    UInt512 value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

// Word `row` of the LPS of a value.
inline std::uint64_t lpsRow(const UInt512& value, unsigned row) {
    const unsigned shift = 8 * row;
    return premult[0][value.word[0] >> shift & 0xff] ^ premult[1][value.word[1] >> shift & 0xff] ^
           premult[2][value.word[2] >> shift & 0xff] ^ premult[3][value.word[3] >> shift & 0xff] ^
           premult[4][value.word[4] >> shift & 0xff] ^ premult[5][value.word[5] >> shift & 0xff] ^
           premult[6][value.word[6] >> shift & 0xff] ^ premult[7][value.word[7] >> shift & 0xff];
}

UInt512 sum(const UInt512& x, const UInt512& y) {
    return {x.word[0] ^ y.word[0], x.word[1] ^ y.word[1], x.word[2] ^ y.word[2],
            x.word[3] ^ y.word[3], x.word[4] ^ y.word[4], x.word[5] ^ y.word[5],
            x.word[6] ^ y.word[6], x.word[7] ^ y.word[7]};
}

// out = L(P(S(x ^ y))), where `out` may be x or y. The rows are written out: a loop's variable
// shift would double the time.
void lps(UInt512& out, const UInt512& x, const UInt512& y) {
    const UInt512 value = sum(x, y);
    out.word[0] = lpsRow(value, 0);
    out.word[1] = lpsRow(value, 1);
    out.word[2] = lpsRow(value, 2);
    out.word[3] = lpsRow(value, 3);
    out.word[4] = lpsRow(value, 4);
    out.word[5] = lpsRow(value, 5);
    out.word[6] = lpsRow(value, 6);
    out.word[7] = lpsRow(value, 7);
}

// A round of E, then the next round key.
void round(UInt512& K, UInt512& m, const UInt512& constant) {
    lps(m, m, K);
    lps(K, K, constant);
}

// The standard's E(K, m), stored in m. K becomes the thirteenth round key.
void EKm(UInt512& K, UInt512& m) {
    round(K, m, C[0]);
    round(K, m, C[1]);
    round(K, m, C[2]);
    round(K, m, C[3]);
    round(K, m, C[4]);
    round(K, m, C[5]);
    round(K, m, C[6]);
    round(K, m, C[7]);
    round(K, m, C[8]);
    round(K, m, C[9]);
    round(K, m, C[10]);
    round(K, m, C[11]);
    m = sum(m, K);
}

// The standard's g_N(h, m), stored in h.
void compress(UInt512& h, const UInt512& n, const UInt512& m) {
    UInt512 K;
    UInt512 t = m;
    lps(K, h, n);
    EKm(K, t);
    h = sum(sum(t, h), m);
}

// g_N(h, m), then adds the block to the count of bits and to the control sum.
void addBlock(UInt512& h, UInt512& n, UInt512& sigma, const UInt512& block, const UInt512& bits) {
    compress(h, n, block);
    addWide(n.word, bits.word);
    addWide(sigma.word, block.word);
}

} // namespace

void pelorikutil::gost34_11_2012::addBlocks_portable(UInt512& h, UInt512& n, UInt512& sigma,
                                                     const unsigned char* data, std::size_t count) {
    for (; count > 0; --count, data += sizeof(UInt512))
        addBlock(h, n, sigma, load(data), vector_0_512);
}

void pelorikutil::gost34_11_2012::finish_portable(UInt512& h, UInt512& n, UInt512& sigma,
                                                  const unsigned char* lastBlock,
                                                  unsigned long bits) {
    addBlock(h, n, sigma, load(lastBlock), {{bits}});
    compress(h, vector_0, n);
    compress(h, vector_0, sigma);
}
