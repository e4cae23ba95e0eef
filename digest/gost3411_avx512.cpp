// GOST R 34.11-94 with AVX-512 F, BW, VL and VBMI, and GFNI.
//
// The four encryptions of a step run in the four lanes of a 128-bit register. A round extracts the
// low and the high nibbles of the sum and looks each up in one table of 64 bytes: the box's number
// stands in the upper bits of the index.
//
// The mixing is linear over the bits: psi^74(S) ^ psi^62(M) ^ psi^61(H), each term a 16 x 16 bit
// matrix over the sixteen 16-bit words. The words' low and high bytes are gathered apart, eight
// bytes to a quadword; one affine transform with a constant transposes such a quadword's 8 x 8
// bits, and a second one multiplies the matrix by it. The terms of M and H do not wait for the
// encryption.
//
// Between steps the chaining value stays as the mixing leaves it (the mixed order): quadword 4b +
// 2g holds byte b of each of the words 8g to 8g + 7, and the quadwords between them are zero.
//
// This file is compiled for those instructions: it includes nothing that could leave an inline
// function behind for the rest of the library to share.

#include "digest/gost3411_roads.h"
#include "digest/gost3411_tables.h"

#include <immintrin.h>
#include <stdint.h>

namespace {

using pelorikutil::gost3411::C3;
using pelorikutil::gost3411::S;

struct alignas(64) Bytes {
    uint8_t at[64];
};

// Tells where byte `i` of a value stands in a register.
using Place = unsigned (*)(unsigned i);

// Where byte `i` of a 256-bit value stands in the mixed order, and a place that is always zero
// there.
consteval unsigned placeInMixedOrder(unsigned i) {
    const unsigned word = i / 2;
    return 8 * (4 * (i % 2) + 2 * (word / 8)) + word % 8;
}
constexpr unsigned kZeroInMixedOrder = 8;

// The same in the plain order, loaded into the low half of a register.
consteval unsigned placeInPlainOrder(unsigned i) {
    return i;
}
constexpr unsigned kZeroInPlainOrder = 32;

// Box `2 byte + high` for each byte of a word, the entries in the nibble that they substitute.
consteval Bytes boxes(unsigned high) {
    Bytes table{};
    for (unsigned byte = 0; byte < 4; ++byte) {
        for (unsigned value = 0; value < 16; ++value)
            table.at[16 * byte + value] =
                static_cast<uint8_t>(S[2 * byte + high][value] << (4 * high));
    }
    return table;
}

// The quadwords of a 256-bit value whose sum is each quadword of a key's U or V, as sets of bits.
struct Sums {
    unsigned quadword[4];
};

consteval Sums transformA(Sums y) {
    return {{y.quadword[1], y.quadword[2], y.quadword[3], y.quadword[0] ^ y.quadword[1]}};
}

// The sets for key 0 to 3 after `times` transforms A a key.
consteval Sums sumsOfKey(unsigned key, unsigned times) {
    Sums sums{{1, 2, 4, 8}};
    for (unsigned i = 0; i < key * times; ++i)
        sums = transformA(sums);
    return sums;
}

// The number of the `nth` quadword in a set, or 4 when there are not so many.
consteval unsigned member(unsigned set, unsigned nth) {
    for (unsigned i = 0; i < 4; ++i) {
        if ((set >> i & 1) != 0 && nth-- == 0)
            return i;
    }
    return 4;
}

// The permutation that brings the `nth` term of the sums to the key words: 32-bit lane 4j + i is
// word `4 half + j` of key i, made of byte `4 half + j` of each of the four quadwords (the
// standard's P).
consteval Bytes keyTerm(unsigned half, unsigned times, unsigned nth, Place place, unsigned zero) {
    Bytes permutation{};
    for (unsigned at = 0; at < 64; ++at) {
        const Sums sums = sumsOfKey(at / 4 % 4, times);
        const unsigned quadword = member(sums.quadword[at % 4], nth);
        const unsigned byte = 4 * half + at / 16;
        permutation.at[at] =
            static_cast<uint8_t>(quadword == 4 ? zero : place(8 * quadword + byte));
    }
    return permutation;
}

consteval Bytes keyTermOfHash(unsigned half, unsigned nth) {
    return keyTerm(half, 1, nth, placeInMixedOrder, kZeroInMixedOrder);
}

consteval Bytes keyTermOfBlock(unsigned half, unsigned nth) {
    return keyTerm(half, 2, nth, placeInPlainOrder, kZeroInPlainOrder);
}

// What C3 adds to the key words: it enters U with key 2 and goes through one A more for key 3.
consteval Bytes keyConstant(unsigned half) {
    const uint64_t ofKey[4][4] = {
        {}, {}, {C3[0], C3[1], C3[2], C3[3]}, {C3[1], C3[2], C3[3], C3[0] ^ C3[1]}};
    Bytes constant{};
    for (unsigned at = 0; at < 64; ++at) {
        const unsigned byte = 4 * half + at / 16;
        constant.at[at] = static_cast<uint8_t>(ofKey[at / 4 % 4][at % 4] >> (8 * byte));
    }
    return constant;
}

// The permutation from the mixed order to the low or high halves of the four quadwords.
consteval Bytes halves(unsigned high) {
    Bytes permutation{};
    for (unsigned at = 0; at < 16; ++at)
        permutation.at[at] =
            static_cast<uint8_t>(placeInMixedOrder(8 * (at / 4) + 4 * high + at % 4));
    return permutation;
}

// Gathers for the affine transforms: quadword 4b + 2t + g is byte b of the words 8g + 7 to 8g, in
// that order, for t = 0 and 1. `place` tells where a byte of the value stands.
consteval Bytes gathering(Place place) {
    Bytes permutation{};
    for (unsigned at = 0; at < 64; ++at) {
        const unsigned word = 8 * (at / 8 % 2) + 7 - at % 8;
        permutation.at[at] = static_cast<uint8_t>(place(2 * word + at / 32));
    }
    return permutation;
}

// Of the two registers that the encryption ends with, the low halves of the quadwords count from 0
// and the high halves from 64.
consteval unsigned placeInHalves(unsigned i) {
    return i % 4 + 4 * (i / 8) + (i % 8 < 4 ? 0 : 64);
}

consteval Bytes toPlainOrder() {
    Bytes permutation{};
    for (unsigned i = 0; i < 32; ++i)
        permutation.at[i] = static_cast<uint8_t>(placeInMixedOrder(i));
    return permutation;
}

consteval Bytes toMixedOrder() {
    Bytes permutation{};
    for (unsigned at = 0; at < 64; ++at)
        permutation.at[at] = kZeroInPlainOrder;
    for (unsigned i = 0; i < 32; ++i)
        permutation.at[placeInMixedOrder(i)] = static_cast<uint8_t>(i);
    return permutation;
}

// The words, as sets of bits, whose sum is each word of psi^count.
struct Matrix {
    unsigned row[16];
};

consteval Matrix psi(unsigned count) {
    Matrix matrix{};
    for (unsigned word = 0; word < 16; ++word)
        matrix.row[word] = 1u << word;
    for (; count > 0; --count) {
        const unsigned sum = matrix.row[0] ^ matrix.row[1] ^ matrix.row[2] ^ matrix.row[3] ^
                             matrix.row[12] ^ matrix.row[15];
        for (unsigned word = 0; word < 15; ++word)
            matrix.row[word] = matrix.row[word + 1];
        matrix.row[15] = sum;
    }
    return matrix;
}

// The rows of psi^count for the affine transform: byte i of quadword 4b + 2t + g says which of the
// words 8g to 8g + 7 word 8t + i takes in.
consteval Bytes rowsOfPsi(unsigned count) {
    const Matrix matrix = psi(count);
    Bytes rows{};
    for (unsigned at = 0; at < 64; ++at) {
        const unsigned group = at / 8 % 2;
        rows.at[at] = static_cast<uint8_t>(matrix.row[8 * (at / 16 % 2) + at % 8] >> (8 * group));
    }
    return rows;
}

constexpr Bytes kLowBoxes = boxes(0);
constexpr Bytes kHighBoxes = boxes(1);
constexpr Bytes kHashToKeys[2][2] = {{keyTermOfHash(0, 0), keyTermOfHash(0, 1)},
                                     {keyTermOfHash(1, 0), keyTermOfHash(1, 1)}};
constexpr Bytes kBlockToKeys[2][3] = {
    {keyTermOfBlock(0, 0), keyTermOfBlock(0, 1), keyTermOfBlock(0, 2)},
    {keyTermOfBlock(1, 0), keyTermOfBlock(1, 1), keyTermOfBlock(1, 2)}};
constexpr Bytes kKeyConstant[2] = {keyConstant(0), keyConstant(1)};
constexpr Bytes kLowHalves = halves(0);
constexpr Bytes kHighHalves = halves(1);
constexpr Bytes kGatherPlain = gathering(placeInPlainOrder);
constexpr Bytes kGatherMixed = gathering(placeInMixedOrder);
constexpr Bytes kGatherHalves = gathering(placeInHalves);
constexpr Bytes kToPlainOrder = toPlainOrder();
constexpr Bytes kToMixedOrder = toMixedOrder();
constexpr Bytes kPsi74 = rowsOfPsi(74);
constexpr Bytes kPsi62 = rowsOfPsi(62);
constexpr Bytes kPsi61 = rowsOfPsi(61);

constexpr int kXor3 = 0x96;       // the truth table of a ^ b ^ c
constexpr int kMaskAndSet = 0xea; // the truth table of (a & b) | c

inline __m512i table(const Bytes& values) {
    return _mm512_load_si512(&values);
}

inline __m512i permute(__m512i value, const Bytes& permutation) {
    return _mm512_permutexvar_epi8(table(permutation), value);
}

inline __m512i xor3(__m512i a, __m512i b, __m512i c) {
    return _mm512_ternarylogic_epi64(a, b, c, kXor3);
}

// The key words that stand in four 128-bit lanes, and the four that follow.
struct KeyWords {
    __m512i half[2];
};

inline KeyWords keyTermsOfBlock(__m512i block) {
    KeyWords words;
    for (int half = 0; half < 2; ++half)
        words.half[half] = _mm512_xor_si512(xor3(permute(block, kBlockToKeys[half][0]),
                                                 permute(block, kBlockToKeys[half][1]),
                                                 permute(block, kBlockToKeys[half][2])),
                                            table(kKeyConstant[half]));
    return words;
}

// The eight words of the four keys, key i in lane i.
struct Keys {
    __m128i word[8];
};

inline Keys generateKeys(__m512i hash, const KeyWords& ofBlock) {
    Keys keys;
    for (int half = 0; half < 2; ++half) {
        const __m512i words = xor3(permute(hash, kHashToKeys[half][0]),
                                   permute(hash, kHashToKeys[half][1]), ofBlock.half[half]);
        keys.word[4 * half] = _mm512_castsi512_si128(words);
        keys.word[4 * half + 1] = _mm512_extracti32x4_epi32(words, 1);
        keys.word[4 * half + 2] = _mm512_extracti32x4_epi32(words, 2);
        keys.word[4 * half + 3] = _mm512_extracti32x4_epi32(words, 3);
    }
    return keys;
}

// Substitutes the nibbles of `x` that the mask leaves and rotates the result.
inline __m128i substitute(__m128i x, const Bytes& box) {
    const __m128i nibbles = _mm_set1_epi32(0x0f0f0f0f);
    const __m128i boxNumbers = _mm_set1_epi32(0x30201000);
    const __m128i index = _mm_ternarylogic_epi32(x, nibbles, boxNumbers, kMaskAndSet);
    const __m512i found = _mm512_permutexvar_epi8(_mm512_castsi128_si512(index), table(box));
    return _mm_rol_epi32(_mm512_castsi512_si128(found), 11);
}

inline __m128i round(__m128i target, __m128i source, __m128i key) {
    const __m128i sum = _mm_add_epi32(source, key);
    return _mm_ternarylogic_epi32(target, substitute(sum, kLowBoxes),
                                  substitute(_mm_srli_epi32(sum, 4), kHighBoxes), kXor3);
}

// The four encryptions; the result is gathered for the mixing.
inline __m512i encrypt(__m512i hash, const Keys& keys) {
    __m128i n1 = _mm512_castsi512_si128(permute(hash, kLowHalves));
    __m128i n2 = _mm512_castsi512_si128(permute(hash, kHighHalves));
    for (int pass = 0; pass < 3; ++pass) {
        for (int j = 0; j < 8; j += 2) {
            n2 = round(n2, n1, keys.word[j]);
            n1 = round(n1, n2, keys.word[j + 1]);
        }
    }
    for (int j = 7; j > 0; j -= 2) {
        n2 = round(n2, n1, keys.word[j]);
        n1 = round(n1, n2, keys.word[j - 1]);
    }
    // The last round does not swap the halves, which here have never moved.
    return _mm512_permutex2var_epi8(_mm512_castsi128_si512(n2), table(kGatherHalves),
                                    _mm512_castsi128_si512(n1));
}

// Each half of the sums of psi^count over gathered words.
inline __m512i mix(__m512i gathered, const Bytes& rows) {
    const __m512i unitVectors = _mm512_set1_epi64(0x0102040810204080);
    const __m512i transposed = _mm512_gf2p8affine_epi64_epi8(unitVectors, gathered, 0);
    return _mm512_gf2p8affine_epi64_epi8(table(rows), transposed, 0);
}

// The standard's f, from and to the mixed order.
inline __m512i step(__m512i hash, __m512i block) {
    const Keys keys = generateKeys(hash, keyTermsOfBlock(block));
    const __m512i known = _mm512_xor_si512(mix(permute(block, kGatherPlain), kPsi62),
                                           mix(permute(hash, kGatherMixed), kPsi61));
    const __m512i sums = _mm512_xor_si512(mix(encrypt(hash, keys), kPsi74), known);
    const __m512i swapped = _mm512_shuffle_epi32(sums, _MM_PERM_BADC);
    return _mm512_maskz_xor_epi64(0x55, sums, swapped);
}

inline __m512i load(const unsigned char* bytes) {
    return _mm512_maskz_loadu_epi64(0x0f, bytes);
}

} // namespace

void pelorikutil::gost3411::step_avx512(unsigned char* hash, const unsigned char* blocks,
                                        size_t count) {
    __m512i chain = permute(load(hash), kToMixedOrder);
    for (; count > 0; --count, blocks += 32)
        chain = step(chain, load(blocks));
    _mm512_mask_storeu_epi64(hash, 0x0f, permute(chain, kToPlainOrder));
}
