// MD5 for any x86-64 processor.
//
// The chain from one step's word to the next is the limit. What does not need the newest word, x,
// is added up first, and each function takes x as late as it can.

#include "digest/_md5_roads.h"
#include "digest/_md5_steps.h"

#include <bit>
#include <cstdint>
#include <cstring>

static_assert(std::endian::native == std::endian::little);

namespace {

using Word = std::uint32_t;

struct ScalarSteps {
    template<int Shift>
    static void f(Word& a, Word x, Word y, Word z, Word addend) {
        finish<Shift>(a, x, a + addend + (z ^ (x & (y ^ z))));
    }

    // The two terms have no bit in common, so that their sum is their union.
    template<int Shift>
    static void g(Word& a, Word x, Word y, Word z, Word addend) {
        finish<Shift>(a, x, a + addend + (y & ~z) + (x & z));
    }

    template<int Shift>
    static void h(Word& a, Word x, Word y, Word z, Word addend) {
        finish<Shift>(a, x, a + addend + (x ^ (y ^ z)));
    }

    template<int Shift>
    static void i(Word& a, Word x, Word y, Word z, Word addend) {
        finish<Shift>(a, x, a + addend + (y ^ (x | ~z)));
    }

private:
    template<int Shift>
    static void finish(Word& a, Word x, Word sum) {
        a = x + std::rotl(sum, Shift);
    }
};

} // namespace

void pelorikutil::md5::compress_portable(std::uint32_t* state, const unsigned char* blocks,
                                         std::size_t count) {
    Word a = state[0];
    Word b = state[1];
    Word c = state[2];
    Word d = state[3];
    for (; count > 0; --count, blocks += 64) {
        const auto message = [blocks](int k) {
            Word word;
            std::memcpy(&word, blocks + 4 * k, sizeof word);
            return word;
        };
        const Word before[4] = {a, b, c, d};
        md5Steps<ScalarSteps>(a, b, c, d, message);
        a += before[0];
        b += before[1];
        c += before[2];
        d += before[3];
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
}
