// GOST R 34.11-94 for any x86-64 processor.

#include "digest/gost3411_roads.h"
#include "digest/gost3411_tables.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <emmintrin.h>

static_assert(std::endian::native == std::endian::little);

namespace {

using pelorikutil::gost3411::C3;
using pelorikutil::gost3411::S;

constexpr std::size_t kBlockSize = 32;

using SubstitutionTable = std::array<std::array<std::uint32_t, 256>, 4>;

// Table k substitutes byte k of a word: both of its nibbles at once, already in their place in the
// word and rotated left by 11, so that a round only has to combine four entries.
consteval SubstitutionTable makeSubstitutionTable() {
    SubstitutionTable table{};
    for (unsigned k = 0; k < 4; ++k) {
        for (unsigned byte = 0; byte < 256; ++byte) {
            const auto substituted =
                static_cast<std::uint32_t>(S[2 * k + 1][byte >> 4] << 4 | S[2 * k][byte & 15]);
            table[k][byte] = std::rotl(substituted << (8 * k), 11);
        }
    }
    return table;
}

constexpr SubstitutionTable SQ = makeSubstitutionTable();

// A 256-bit value, quadword 0 least significant.
struct Vector {
    std::uint64_t word[4];
};

Vector load(const unsigned char* bytes) {
    Vector v;
    std::memcpy(&v, bytes, sizeof v);
    return v;
}

// The keys of the four encryptions: word j of key i is word[j][i].
struct Keys {
    std::uint32_t word[8][4];
};

__m128i pair(std::uint64_t low) {
    return _mm_cvtsi64_si128(static_cast<long long>(low));
}

// The standard's P of one value: key word j is made of byte j of each of the four quadwords.
struct KeyWords {
    __m128i low;  // words 0 to 3
    __m128i high; // words 4 to 7
};

KeyWords transformP(std::uint64_t w0, std::uint64_t w1, std::uint64_t w2, std::uint64_t w3) {
    const __m128i lower = _mm_unpacklo_epi8(pair(w0), pair(w1));
    const __m128i upper = _mm_unpacklo_epi8(pair(w2), pair(w3));
    return {_mm_unpacklo_epi16(lower, upper), _mm_unpackhi_epi16(lower, upper)};
}

// Stores four key words of each of the four keys, word by word.
void storeTransposed(std::uint32_t (*out)[4], __m128i k0, __m128i k1, __m128i k2, __m128i k3) {
    const __m128i low01 = _mm_unpacklo_epi32(k0, k1);
    const __m128i low23 = _mm_unpacklo_epi32(k2, k3);
    const __m128i high01 = _mm_unpackhi_epi32(k0, k1);
    const __m128i high23 = _mm_unpackhi_epi32(k2, k3);
    auto* const rows = reinterpret_cast<__m128i*>(out);
    _mm_storeu_si128(rows, _mm_unpacklo_epi64(low01, low23));
    _mm_storeu_si128(rows + 1, _mm_unpackhi_epi64(low01, low23));
    _mm_storeu_si128(rows + 2, _mm_unpacklo_epi64(high01, high23));
    _mm_storeu_si128(rows + 3, _mm_unpackhi_epi64(high01, high23));
}

// The standard's key generation with its transforms A written down: each quadword of U and V is a
// sum of a few quadwords of H and M.
Keys generateKeys(const Vector& hash, const Vector& block) {
    const auto [h0, h1, h2, h3] = hash.word;
    const auto [m0, m1, m2, m3] = block.word;
    const std::uint64_t h01 = h0 ^ h1;
    const std::uint64_t h12 = h1 ^ h2;
    const std::uint64_t m01 = m0 ^ m1;
    const std::uint64_t m12 = m1 ^ m2;
    const std::uint64_t m23 = m2 ^ m3;
    const std::uint64_t m013 = m01 ^ m3;

    const KeyWords k0 = transformP(h0 ^ m0, h1 ^ m1, h2 ^ m2, h3 ^ m3);
    const KeyWords k1 = transformP(h1 ^ m2, h2 ^ m3, h3 ^ m01, h01 ^ m12);
    const KeyWords k2 =
        transformP(h2 ^ m01 ^ C3[0], h3 ^ m12 ^ C3[1], h01 ^ m23 ^ C3[2], h12 ^ m013 ^ C3[3]);
    const KeyWords k3 = transformP(h3 ^ m23 ^ C3[1], h01 ^ m013 ^ C3[2], h12 ^ m0 ^ m2 ^ C3[3],
                                   h2 ^ h3 ^ m1 ^ m3 ^ C3[0] ^ C3[1]);
    Keys keys;
    storeTransposed(keys.word, k0.low, k1.low, k2.low, k3.low);
    storeTransposed(keys.word + 4, k0.high, k1.high, k2.high, k3.high);
    return keys;
}

std::uint32_t substituteAndRotate(std::uint32_t word) {
    const std::uint64_t x = word; // an index of 64 bits needs no extension
    return SQ[0][x & 0xff] ^ SQ[1][x >> 8 & 0xff] ^ SQ[2][x >> 16 & 0xff] ^ SQ[3][x >> 24];
}

// One half of the blocks of the four encryptions.
struct Halves {
    std::uint32_t a, b, c, d;
};

// A round of all four encryptions, which do not depend on each other.
inline void round(Halves& target, const Halves& source, const std::uint32_t (&key)[4]) {
    target.a ^= substituteAndRotate(source.a + key[0]);
    target.b ^= substituteAndRotate(source.b + key[1]);
    target.c ^= substituteAndRotate(source.c + key[2]);
    target.d ^= substituteAndRotate(source.d + key[3]);
}

Halves lowHalves(const Vector& v) {
    return {static_cast<std::uint32_t>(v.word[0]), static_cast<std::uint32_t>(v.word[1]),
            static_cast<std::uint32_t>(v.word[2]), static_cast<std::uint32_t>(v.word[3])};
}

Halves highHalves(const Vector& v) {
    return {
        static_cast<std::uint32_t>(v.word[0] >> 32), static_cast<std::uint32_t>(v.word[1] >> 32),
        static_cast<std::uint32_t>(v.word[2] >> 32), static_cast<std::uint32_t>(v.word[3] >> 32)};
}

std::uint64_t join(std::uint32_t low, std::uint32_t high) {
    return std::uint64_t{high} << 32 | low;
}

// GOST 28147-89 in simple substitution over each quadword of `hash` under its own key.
Vector encrypt(const Vector& hash, const Keys& keys) {
    Halves n1 = lowHalves(hash);
    Halves n2 = highHalves(hash);
    for (int pass = 0; pass < 3; ++pass) {
        for (int j = 0; j < 8; j += 2) {
            round(n2, n1, keys.word[j]);
            round(n1, n2, keys.word[j + 1]);
        }
    }
    for (int j = 7; j > 0; j -= 2) {
        round(n2, n1, keys.word[j]);
        round(n1, n2, keys.word[j - 1]);
    }
    // The last round does not swap the halves, which here have never moved.
    return {{join(n2.a, n1.a), join(n2.b, n1.b), join(n2.c, n1.c), join(n2.d, n1.d)}};
}

// The standard's psi on sixteen 16-bit words y0 to y15, y0 in the lowest bits of quadword 0: the
// register moves on by one word and ends with y16 = y0 ^ y1 ^ y2 ^ y3 ^ y12 ^ y15.
Vector psi(const Vector& v) {
    const auto [q0, q1, q2, q3] = v.word;
    const std::uint64_t sum = q0 ^ q0 >> 16 ^ q0 >> 32 ^ q0 >> 48 ^ q3 ^ q3 >> 48;
    return {{q0 >> 16 | q1 << 48, q1 >> 16 | q2 << 48, q2 >> 16 | q3 << 48, q3 >> 16 | sum << 48}};
}

// The next four words of a register of these quadwords. Each of them adds the one before it, the
// first one the register's last, so that they are the running sums of what they add besides.
std::uint64_t nextWords(std::uint64_t q0, std::uint64_t q1, std::uint64_t q3) {
    std::uint64_t sum =
        q0 ^ (q0 >> 16 | q1 << 48) ^ (q0 >> 32 | q1 << 32) ^ (q0 >> 48 | q1 << 16) ^ q3 ^ q3 >> 48;
    sum ^= sum << 16;
    return sum ^ sum << 32;
}

Vector psi12(const Vector& v) {
    const auto [q0, q1, q2, q3] = v.word;
    const std::uint64_t q4 = nextWords(q0, q1, q3);
    const std::uint64_t q5 = nextWords(q1, q2, q4);
    return {{q3, q4, q5, nextWords(q2, q3, q5)}};
}

Vector operator^(const Vector& a, const Vector& b) {
    return {{a.word[0] ^ b.word[0], a.word[1] ^ b.word[1], a.word[2] ^ b.word[2],
             a.word[3] ^ b.word[3]}};
}

// psi^61 is a sum of lower powers of psi: x^61 modulo psi's polynomial is this one, bit j for x^j.
consteval unsigned x61() {
    constexpr unsigned kPolynomial = 0x1900f;
    unsigned power = 1;
    for (int i = 0; i < 61; ++i) {
        power <<= 1;
        power ^= (power >> 16 & 1) * kPolynomial;
    }
    return power;
}

// 64 bits from word `shift` of two neighbouring quadwords on.
template<unsigned shift>
std::uint64_t wordsFrom(std::uint64_t low, std::uint64_t high) {
    static_assert(shift > 0, "a whole quadword needs no shift, and cannot be shifted out");
    return low >> 16 * shift | high << (64 - 16 * shift);
}

// Quadword `k` of the sum of those powers of psi that x61 names and that move by `shift` words
// beyond whole quadwords.
template<unsigned shift>
std::uint64_t sumOfPowers(const std::uint64_t (&q)[8], unsigned k) {
    std::uint64_t sum = 0;
    if constexpr (x61() >> shift & 1)
        sum ^= q[k];
    if constexpr (x61() >> (4 + shift) & 1)
        sum ^= q[k + 1];
    if constexpr (x61() >> (8 + shift) & 1)
        sum ^= q[k + 2];
    if constexpr (x61() >> (12 + shift) & 1)
        sum ^= q[k + 3];
    return sum;
}

Vector psi61(const Vector& v) {
    std::uint64_t q[8] = {v.word[0], v.word[1], v.word[2], v.word[3]};
    for (int k = 0; k < 4; ++k)
        q[k + 4] = nextWords(q[k], q[k + 1], q[k + 3]);
    Vector result;
    for (unsigned k = 0; k < 4; ++k) {
        result.word[k] = sumOfPowers<0>(q, k) ^
                         wordsFrom<1>(sumOfPowers<1>(q, k), sumOfPowers<1>(q, k + 1)) ^
                         wordsFrom<2>(sumOfPowers<2>(q, k), sumOfPowers<2>(q, k + 1)) ^
                         wordsFrom<3>(sumOfPowers<3>(q, k), sumOfPowers<3>(q, k + 1));
    }
    return result;
}

// The standard's f.
Vector step(const Vector& h, const Vector& m) {
    return psi61(h ^ psi(m ^ psi12(encrypt(h, generateKeys(h, m)))));
}

} // namespace

void pelorikutil::gost3411::step_portable(unsigned char* hash, const unsigned char* blocks,
                                          std::size_t count) {
    Vector h = load(hash);
    for (; count > 0; --count, blocks += kBlockSize)
        h = step(h, load(blocks));
    std::memcpy(hash, &h, sizeof h);
}
