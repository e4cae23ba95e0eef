#include "digest/gost34_11_2012_i.h"
#include "tests/support/bytes.h"
#include "tests/support/digest_surface.h"
#include "tests/support/vectors.h"

#include <cstring>
#include <gtest/gtest.h>
#include <vector>

namespace {

using support::pattern;
using support::textOf;
using support::toHex;

struct Gost2012Pair {
    using Calc = Hash_Calc_GOST_34_11_2012;
    using Digest = Hash_GOST_34_11_2012;
    static constexpr std::size_t size = 32;
    static constexpr std::size_t splitUnit = 1;
    static constexpr support::Peer peer = support::Peer::Gost2012Bits256;
    static Calc newCalc() { return Calc(); }
};

} // namespace

namespace support {
INSTANTIATE_TYPED_TEST_SUITE_P(Gost2012, DigestSurface, Gost2012Pair);
}

namespace {

std::string expected(const std::string& message) {
    return support::peerDigest(support::Peer::Gost2012Bits256, message);
}

TEST(Gost2012, GivesThePublishedDigests) {
    support::expectVectors("gost2012_256.txt", [](const std::string& message) {
        return textOf(Hash_GOST_34_11_2012(message.data(), message.size()));
    });
}

TEST(Gost2012, AgreesWithLibgcryptOnEverySplitIntoThreeAroundTheBlockSize) {
    for (const std::size_t first : {0U, 1U, 31U, 63U, 64U, 65U}) {
        for (const std::size_t second : {0U, 1U, 62U, 63U, 64U, 65U, 127U, 128U, 129U}) {
            for (const std::size_t third : {0U, 1U, 63U, 64U}) {
                const std::string message = pattern(first + second + third);
                Hash_Calc_GOST_34_11_2012 calc;
                calc.Update(message.data(), first);
                calc.Update(message.data() + first, second);
                calc.Update(message.data() + first + second, third);
                EXPECT_EQ(textOf(Hash_GOST_34_11_2012(calc, true)), expected(message))
                    << first << ' ' << second << ' ' << third;
            }
        }
    }
}

// Core, buffer, fill count: what a caller that copies the calculator's memory relies on. A full
// buffer is compressed at once, so the count never stands at 64.
TEST(Gost2012, KeepsItsFieldsInOrderAndCompressesAFullBufferAtOnce) {
    static_assert(sizeof(Hash_Calc_GOST_34_11_2012) == 264 + 64 + 8);
    static_assert(alignof(Hash_Calc_GOST_34_11_2012) == 8);
    Hash_Calc_GOST_34_11_2012 calc;
    const auto* const memory = reinterpret_cast<const char*>(&calc);
    const auto fill = [&] {
        std::uint64_t count;
        std::memcpy(&count, memory + 264 + 64, sizeof count);
        return count;
    };
    const auto bits = [&] { return toHex(memory + 64, 8); };
    EXPECT_EQ(fill(), 0U);
    calc.Update("abc", 3);
    EXPECT_EQ(fill(), 3U);
    EXPECT_EQ(std::memcmp(memory + 264, "abc", 3), 0);
    EXPECT_EQ(bits(), "0000000000000000");
    calc.Update(pattern(61).data(), 61);
    EXPECT_EQ(fill(), 0U);
    EXPECT_EQ(bits(), "0002000000000000");
    calc.Update(pattern(64).data(), 64);
    EXPECT_EQ(fill(), 0U);
    EXPECT_EQ(bits(), "0004000000000000");
    calc.Update(pattern(130).data(), 130);
    EXPECT_EQ(fill(), 2U);
    EXPECT_EQ(bits(), "0008000000000000");
}

TEST(Gost2012, FinalizeHashAgainGivesTheSameDigest) {
    for (const std::size_t length : {0U, 1U, 63U, 64U, 100U}) {
        Hash_Calc_GOST_34_11_2012 calc;
        calc.Update(pattern(length).data(), length);
        Hash_GOST_34_11_2012 digest(nullptr, 0);
        calc.FinalizeHash(digest);
        EXPECT_EQ(textOf(digest), expected(pattern(length)));
        Hash_GOST_34_11_2012 again(nullptr, 0);
        calc.FinalizeHash(again);
        EXPECT_EQ(textOf(again), textOf(digest));
        EXPECT_EQ(textOf(Hash_GOST_34_11_2012(calc, true)), textOf(digest));
    }
}

// The core says whether it is finished behind its size.
TEST(Gost2012, FinishesACopyOrTheCalculatorItself) {
    const auto isFinished = [](const Hash_Calc_GOST_34_11_2012& calc) {
        return reinterpret_cast<const char*>(&calc)[4 * 64 + 4] != 0;
    };
    Hash_Calc_GOST_34_11_2012 calc;
    calc.Update("abc", 3);
    const Hash_GOST_34_11_2012 ofCopy(calc, false);
    EXPECT_FALSE(isFinished(calc));

    Hash_Calc_GOST_34_11_2012 consumed = calc;
    const Hash_GOST_34_11_2012 ofItself(consumed, true);
    EXPECT_TRUE(isFinished(consumed));

    Hash_GOST_34_11_2012 out = ofCopy;
    calc.FinalizeHash(out);
    EXPECT_TRUE(isFinished(calc));
}

// Meaningless, but harmless.
TEST(Gost2012, UpdatesAfterTheEndCorruptNoMemory) {
    Hash_Calc_GOST_34_11_2012 calc;
    Hash_GOST_34_11_2012 digest(nullptr, 0);
    for (std::size_t length = 0; length < 200; length += 13) {
        calc.Update(pattern(length).data(), length);
        calc.FinalizeHash(digest);
    }
    EXPECT_NE(textOf(digest), expected(""));
}

} // namespace
