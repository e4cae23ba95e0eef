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

using gost3411::C3;
using gost3411::S;

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

// The standard's psi on sixteen 16-bit words, word 0 in the lowest bits of quadword 0.
class MixingRegister {
public:
    explicit MixingRegister(const Vector& v)
        : q0_(v.word[0]), q1_(v.word[1]), q2_(v.word[2]), q3_(v.word[3]) {}

    void add(const Vector& v) {
        q0_ ^= v.word[0];
        q1_ ^= v.word[1];
        q2_ ^= v.word[2];
        q3_ ^= v.word[3];
    }

    void step() {
        const std::uint64_t sum = q0_ ^ q0_ >> 16 ^ q0_ >> 32 ^ q0_ >> 48 ^ q3_ ^ q3_ >> 48;
        q0_ = q0_ >> 16 | q1_ << 48;
        q1_ = q1_ >> 16 | q2_ << 48;
        q2_ = q2_ >> 16 | q3_ << 48;
        q3_ = q3_ >> 16 | sum << 48;
    }

    // Four steps at once. Each of the four new words adds the one before it, the first one the
    // register's last, so that they are the running sums of what they add besides.
    void fourSteps() {
        std::uint64_t sum = q0_ ^ (q0_ >> 16 | q1_ << 48) ^ (q0_ >> 32 | q1_ << 32) ^
                            (q0_ >> 48 | q1_ << 16) ^ q3_ ^ q3_ >> 48;
        sum ^= sum << 16;
        sum ^= sum << 32;
        q0_ = q1_;
        q1_ = q2_;
        q2_ = q3_;
        q3_ = sum;
    }

    Vector value() const { return {{q0_, q1_, q2_, q3_}}; }

private:
    std::uint64_t q0_, q1_, q2_, q3_;
};

// The standard's f: psi^61(H ^ psi(M ^ psi^12(S))).
Vector step(const Vector& h, const Vector& m) {
    MixingRegister mixing(encrypt(h, generateKeys(h, m)));
    for (int i = 0; i < 3; ++i)
        mixing.fourSteps();
    mixing.add(m);
    mixing.step();
    mixing.add(h);
    mixing.step();
    for (int i = 0; i < 15; ++i)
        mixing.fourSteps();
    return mixing.value();
}

} // namespace

void gost3411::step_portable(unsigned char* hash, const unsigned char* blocks, std::size_t count) {
    Vector h = load(hash);
    for (; count > 0; --count, blocks += kBlockSize)
        h = step(h, load(blocks));
    std::memcpy(hash, &h, sizeof h);
}
