// The roads for newer processors beside the portable one, over the same blocks. A road that this
// processor does not have is skipped by name.

#include "digest/_md5_roads.h"
#include "digest/gost3411_roads.h"
#include "digest/gost34_11_2012_roads.h"
#include "digest/roads.h"
#include "tests/support/bytes.h"

#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace {

using support::WalledBytes;

// The state that a road leaves of `start` after `count` blocks.
template<class Road>
std::string after(Road road, const std::string& start, const std::string& blocks,
                  std::size_t count) {
    const WalledBytes state(start);
    const WalledBytes data(blocks);
    road(state.data(), reinterpret_cast<const unsigned char*>(data.data()), count);
    return std::string(state.data(), state.size());
}

// Compares two roads on every number of blocks below 20 and on a few larger ones, from random
// states.
template<class Road, class Portable>
void expectSameResults(Road road, Portable portable, std::size_t stateSize, std::size_t blockSize) {
    std::mt19937_64 random(20261121);
    for (std::size_t round = 0; round < 60; ++round) {
        const std::size_t count = round < 20 ? round : 1 + random() % 300;
        const std::string start = support::randomBytes(stateSize, random);
        const std::string blocks = support::randomBytes(count * blockSize, random);
        ASSERT_EQ(support::toHex(after(road, start, blocks, count)),
                  support::toHex(after(portable, start, blocks, count)))
            << count << " blocks";
    }
}

template<void Road(std::uint32_t*, const unsigned char*, std::size_t)>
void md5Road(char* state, const unsigned char* blocks, std::size_t count) {
    std::uint32_t words[4];
    std::memcpy(words, state, sizeof words);
    Road(words, blocks, count);
    std::memcpy(state, words, sizeof words);
}

template<void Road(unsigned char*, const unsigned char*, std::size_t)>
void gost94Road(char* state, const unsigned char* blocks, std::size_t count) {
    Road(reinterpret_cast<unsigned char*>(state), blocks, count);
}

// h, N and Sigma one after the other.
struct Gost2012State {
    UInt512 h, n, sigma;
};

template<void Road(UInt512&, UInt512&, UInt512&, const unsigned char*, std::size_t)>
void gost2012Road(char* state, const unsigned char* blocks, std::size_t count) {
    Gost2012State values;
    std::memcpy(&values, state, sizeof values);
    Road(values.h, values.n, values.sigma, blocks, count);
    std::memcpy(state, &values, sizeof values);
}

// One final stage a call, on the first block; its number of bits comes from `count`.
template<void Road(UInt512&, UInt512&, UInt512&, const unsigned char*, unsigned long)>
void gost2012Finish(char* state, const unsigned char* blocks, std::size_t count) {
    if (count > 0)
        gost2012Road<Road>(state, blocks, 8 * (count % 64));
}

TEST(Roads, Md5WithAvx512EqualsThePortableRoad) {
    if (!pelorikutil::roads::avx512Md5())
        GTEST_SKIP() << "this processor has no AVX-512 F and VL";
    expectSameResults(md5Road<pelorikutil::md5::compress_avx512>,
                      md5Road<pelorikutil::md5::compress_portable>, 16, 64);
}

TEST(Roads, Gost94WithAvx512EqualsThePortableRoad) {
    if (!pelorikutil::roads::avx512Gost())
        GTEST_SKIP() << "this processor has no AVX-512 F, BW, VL and VBMI with GFNI";
    expectSameResults(gost94Road<pelorikutil::gost3411::step_avx512>,
                      gost94Road<pelorikutil::gost3411::step_portable>, 32, 32);
}

TEST(Roads, Gost2012WithAvx512EqualsThePortableRoad) {
    if (!pelorikutil::roads::avx512Gost())
        GTEST_SKIP() << "this processor has no AVX-512 F, BW, VL and VBMI with GFNI";
    expectSameResults(gost2012Road<pelorikutil::gost34_11_2012::addBlocks_avx512>,
                      gost2012Road<pelorikutil::gost34_11_2012::addBlocks_portable>,
                      sizeof(Gost2012State), 64);
    expectSameResults(gost2012Finish<pelorikutil::gost34_11_2012::finish_avx512>,
                      gost2012Finish<pelorikutil::gost34_11_2012::finish_portable>,
                      sizeof(Gost2012State), 64);
}

} // namespace
