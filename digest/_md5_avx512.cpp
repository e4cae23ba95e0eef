// MD5 with AVX-512 F and VL: each of the four words in a register of its own, of which the lowest
// lane counts. One ternary operation is a whole round function, which leaves four operations from
// one step's word to the next.
//
// This file is compiled for those instructions: it includes nothing that could leave an inline
// function behind for the rest of the library to share.

#include "digest/_md5_roads.h"
#include "digest/_md5_steps.h"

#include <immintrin.h>
#include <string.h>

namespace {

inline __m128i word(uint32_t value) {
    return _mm_cvtsi32_si128(static_cast<int>(value));
}

struct VectorSteps {
    template<int Shift>
    static void f(__m128i& a, __m128i x, __m128i y, __m128i z, uint32_t addend) {
        step<Shift, 0xca>(a, x, y, z, addend);
    }

    template<int Shift>
    static void g(__m128i& a, __m128i x, __m128i y, __m128i z, uint32_t addend) {
        step<Shift, 0xe4>(a, x, y, z, addend);
    }

    template<int Shift>
    static void h(__m128i& a, __m128i x, __m128i y, __m128i z, uint32_t addend) {
        step<Shift, 0x96>(a, x, y, z, addend);
    }

    template<int Shift>
    static void i(__m128i& a, __m128i x, __m128i y, __m128i z, uint32_t addend) {
        step<Shift, 0x39>(a, x, y, z, addend);
    }

private:
    // `TruthTable` is the round's function of x, y and z.
    template<int Shift, int TruthTable>
    static void step(__m128i& a, __m128i x, __m128i y, __m128i z, uint32_t addend) {
        const __m128i known = _mm_add_epi32(a, word(addend));
        const __m128i function = _mm_ternarylogic_epi32(x, y, z, TruthTable);
        a = _mm_add_epi32(x, _mm_rol_epi32(_mm_add_epi32(known, function), Shift));
    }
};

inline uint32_t lowest(__m128i value) {
    return static_cast<uint32_t>(_mm_cvtsi128_si32(value));
}

} // namespace

void pelorikutil::md5::compress_avx512(uint32_t* state, const unsigned char* blocks, size_t count) {
    __m128i a = word(state[0]);
    __m128i b = word(state[1]);
    __m128i c = word(state[2]);
    __m128i d = word(state[3]);
    for (; count > 0; --count, blocks += 64) {
        const auto message = [blocks](int k) {
            uint32_t value;
            memcpy(&value, blocks + 4 * k, sizeof value);
            return value;
        };
        const __m128i before[4] = {a, b, c, d};
        md5Steps<VectorSteps>(a, b, c, d, message);
        a = _mm_add_epi32(a, before[0]);
        b = _mm_add_epi32(b, before[1]);
        c = _mm_add_epi32(c, before[2]);
        d = _mm_add_epi32(d, before[3]);
    }
    state[0] = lowest(a);
    state[1] = lowest(b);
    state[2] = lowest(c);
    state[3] = lowest(d);
}
