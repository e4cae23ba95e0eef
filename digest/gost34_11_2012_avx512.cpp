// GOST R 34.11-2012 with AVX-512 F, BW, VL and VBMI, and GFNI.
//
// A 512-bit value lies in one register and transposed: quadword k holds byte k of all eight words.
// The standard's S is then two look-ups in 128 entries each and a choice by the top bit; P costs
// nothing; and L, which maps each word by a 64 x 64 bit matrix, is 8 x 8 matrices of 8 x 8 bits
// that the affine transform applies to a quadword at a time.
//
// Byte j of the words (a column) has to reach all eight quadwords. Four permutations bring column
// 2m to the even and column 2m + 1 to the odd quadwords; one affine transform then gives what a
// quadword's column adds to the quadword itself, a second one what it adds to its neighbour, and
// the sum of the second kind is swapped over between neighbours at the end.
//
// This file is compiled for those instructions: it includes nothing that could leave an inline
// function behind for the rest of the library to share.

#include "digest/gost34_11_2012_roads.h"
#include "digest/gost34_11_2012_tables.h"
#include "digest/wide_sum.h"

#include <immintrin.h>
#include <string.h>

namespace {

using pelorikutil::gost34_11_2012::kPi;

struct alignas(64) Bytes {
    uint8_t at[64];
};

struct alignas(64) Quadwords {
    uint64_t at[8];
};

consteval Bytes quarterOfPi(unsigned quarter) {
    Bytes table{};
    for (unsigned i = 0; i < 64; ++i)
        table.at[i] = kPi[64 * quarter + i];
    return table;
}

// The permutation that brings column 2 pair to the even and column 2 pair + 1 to the odd quadwords.
consteval Bytes columnPair(unsigned pair) {
    Bytes permutation{};
    for (unsigned k = 0; k < 8; ++k) {
        for (unsigned i = 0; i < 8; ++i)
            permutation.at[8 * k + i] = static_cast<uint8_t>(8 * i + 2 * pair + k % 2);
    }
    return permutation;
}

// The 8 x 8 bits of L by which byte `from` of a word adds to byte `to`, as the affine transform
// wants them: the row of result bit i is byte 7 - i.
consteval uint64_t matrixOfL(unsigned to, unsigned from) {
    uint64_t matrix = 0;
    for (unsigned bit = 0; bit < 8; ++bit) {
        const uint64_t image =
            pelorikutil::gost34_11_2012::linearTransform(uint64_t{1} << (8 * from + bit)) >>
            (8 * to);
        for (unsigned i = 0; i < 8; ++i)
            matrix |= (image >> i & 1) << (8 * (7 - i) + bit);
    }
    return matrix;
}

// The matrices for the columns that `columnPair` brings: what they add to quadword k itself when
// `distance` is 0, or to its neighbour when it is 1.
consteval Quadwords matrices(unsigned pair, unsigned distance) {
    Quadwords result{};
    for (unsigned k = 0; k < 8; ++k)
        result.at[k] = matrixOfL(k ^ distance, 2 * pair + k % 2);
    return result;
}

consteval Bytes transposition() {
    Bytes permutation{};
    for (unsigned i = 0; i < 64; ++i)
        permutation.at[i] = static_cast<uint8_t>(8 * (i % 8) + i / 8);
    return permutation;
}

consteval Bytes transposedConstant(unsigned number) {
    Bytes constant{};
    for (unsigned k = 0; k < 8; ++k) {
        for (unsigned i = 0; i < 8; ++i)
            constant.at[8 * k + i] =
                static_cast<uint8_t>(pelorikutil::gost34_11_2012::C[number].word[i] >> (8 * k));
    }
    return constant;
}

constexpr Bytes kQuarterOfPi[] = {quarterOfPi(0), quarterOfPi(1), quarterOfPi(2), quarterOfPi(3)};
constexpr Bytes kColumnPair[] = {columnPair(0), columnPair(1), columnPair(2), columnPair(3)};
constexpr Quadwords kOwn[] = {matrices(0, 0), matrices(1, 0), matrices(2, 0), matrices(3, 0)};
constexpr Quadwords kNeighbour[] = {matrices(0, 1), matrices(1, 1), matrices(2, 1), matrices(3, 1)};
constexpr Bytes kTransposition = transposition();
constexpr Bytes kConstant[] = {
    transposedConstant(0), transposedConstant(1), transposedConstant(2),  transposedConstant(3),
    transposedConstant(4), transposedConstant(5), transposedConstant(6),  transposedConstant(7),
    transposedConstant(8), transposedConstant(9), transposedConstant(10), transposedConstant(11)};

constexpr int kXor3 = 0x96; // the truth table of a ^ b ^ c

template<class Table>
inline __m512i table(const Table& values) {
    return _mm512_load_si512(&values);
}

inline __m512i xor3(__m512i a, __m512i b, __m512i c) {
    return _mm512_ternarylogic_epi64(a, b, c, kXor3);
}

inline __m512i transposed(__m512i value) {
    return _mm512_permutexvar_epi8(table(kTransposition), value);
}

inline __m512i load(const void* bytes) {
    return transposed(_mm512_loadu_si512(bytes));
}

inline __m512i substitute(__m512i x) {
    const __m512i low = _mm512_permutex2var_epi8(table(kQuarterOfPi[0]), x, table(kQuarterOfPi[1]));
    const __m512i high =
        _mm512_permutex2var_epi8(table(kQuarterOfPi[2]), x, table(kQuarterOfPi[3]));
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(x), low, high);
}

inline __m512i affine(__m512i x, const Quadwords& matrix) {
    return _mm512_gf2p8affine_epi64_epi8(x, table(matrix), 0);
}

// The standard's L(P(S(x))) ^ a ^ b.
inline __m512i lps(__m512i x, __m512i a, __m512i b) {
    const __m512i s = substitute(x);
    const __m512i c0 = _mm512_permutexvar_epi8(table(kColumnPair[0]), s);
    const __m512i c1 = _mm512_permutexvar_epi8(table(kColumnPair[1]), s);
    const __m512i c2 = _mm512_permutexvar_epi8(table(kColumnPair[2]), s);
    const __m512i c3 = _mm512_permutexvar_epi8(table(kColumnPair[3]), s);
    const __m512i neighbour = _mm512_xor_si512(
        xor3(affine(c0, kNeighbour[0]), affine(c1, kNeighbour[1]), affine(c2, kNeighbour[2])),
        affine(c3, kNeighbour[3]));
    const __m512i own = xor3(affine(c0, kOwn[0]), affine(c1, kOwn[1]), affine(c2, kOwn[2]));
    const __m512i swapped = _mm512_shuffle_epi32(neighbour, _MM_PERM_BADC);
    return xor3(xor3(own, affine(c3, kOwn[3]), a), b, swapped);
}

// The standard's g_N(h, m). `key` is each round's key with the next constant in it already; the
// text, which takes the key in, takes the constant in once more.
inline __m512i compress(__m512i h, __m512i n, __m512i m) {
    const __m512i none = _mm512_setzero_si512();
    __m512i key = lps(_mm512_xor_si512(h, n), table(kConstant[0]), none);
    __m512i text = xor3(key, m, table(kConstant[0]));
    for (int round = 1; round < 12; ++round) {
        key = lps(key, table(kConstant[round]), none);
        text = lps(text, key, table(kConstant[round]));
    }
    key = lps(key, none, none);
    text = lps(text, key, none);
    return xor3(text, h, m);
}

} // namespace

void pelorikutil::gost34_11_2012::addBlocks_avx512(UInt512& h, UInt512& n, UInt512& sigma,
                                                   const unsigned char* data, size_t count) {
    __m512i chain = load(&h);
    for (; count > 0; --count, data += 64) {
        UInt512 block;
        memcpy(&block, data, sizeof block);
        chain = compress(chain, load(&n), load(data));
        addWide(n.word, pelorikutil::gost34_11_2012::vector_0_512.word);
        addWide(sigma.word, block.word);
    }
    _mm512_storeu_si512(&h, transposed(chain));
}

void pelorikutil::gost34_11_2012::finish_avx512(UInt512& h, UInt512& n, UInt512& sigma,
                                                const unsigned char* lastBlock,
                                                unsigned long bits) {
    UInt512 block;
    memcpy(&block, lastBlock, sizeof block);
    __m512i chain = compress(load(&h), load(&n), load(lastBlock));
    addWide(n.word, {bits, 0, 0, 0, 0, 0, 0, 0});
    addWide(sigma.word, block.word);
    chain = compress(chain, _mm512_setzero_si512(), load(&n));
    chain = compress(chain, _mm512_setzero_si512(), load(&sigma));
    _mm512_storeu_si512(&h, transposed(chain));
}
