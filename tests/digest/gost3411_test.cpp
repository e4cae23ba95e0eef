#include "digest/gost3411.h"
#include "tests/support/bytes.h"
#include "tests/support/digest_surface.h"
#include "tests/support/vectors.h"

#include <cstring>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>

namespace {

using support::pattern;
using support::textOf;

struct Gost94Pair {
    using Calc = HashGOST3411_Calc;
    using Digest = HashGOST3411;
    static constexpr std::size_t size = 32;
    static constexpr std::size_t splitUnit = 32;
    static constexpr support::Peer peer = support::Peer::Gost94;
    static Calc newCalc() {
        Calc calc;
        calc.Reset();
        return calc;
    }
};

} // namespace

namespace support {
INSTANTIATE_TYPED_TEST_SUITE_P(Gost94, DigestSurface, Gost94Pair);
}

namespace {

std::string expected(const std::string& message) {
    return support::peerDigest(support::Peer::Gost94, message);
}

std::string digestOfCalls(std::initializer_list<std::string> calls) {
    HashGOST3411_Calc calc = Gost94Pair::newCalc();
    for (const std::string& call : calls)
        calc.Update(call.data(), call.size());
    return textOf(HashGOST3411(calc, true));
}

std::string calcText(const char* text) {
    const support::WalledBytes out(65);
    EXPECT_EQ(HashGOST3411::calc(text, out.data()), out.data());
    return out.data();
}

TEST(Gost94, GivesThePublishedDigests) {
    support::expectVectors("gost94.txt", [](const std::string& message) {
        return textOf(HashGOST3411(message.data(), message.size()));
    });
}

TEST(Gost94, ResetStartsANewMessage) {
    HashGOST3411_Calc calc;
    std::memset(static_cast<void*>(&calc), 0xa5, sizeof calc);
    calc.Reset();
    EXPECT_EQ(textOf(HashGOST3411(calc, true)), expected(""));
    calc.Reset();
    calc.Update("abc", 3);
    EXPECT_EQ(textOf(HashGOST3411(calc, true)), expected("abc"));
}

// Block, hash, sum, length: what a caller that copies the calculator's memory relies on.
TEST(Gost94, KeepsItsFieldsInOrder) {
    static_assert(sizeof(HashGOST3411_Calc) == 136);
    static_assert(alignof(HashGOST3411_Calc) == 8);
    HashGOST3411_Calc calc;
    std::memset(static_cast<void*>(&calc), 0xa5, sizeof calc);
    calc.Reset();
    EXPECT_EQ(support::toHex(&calc, sizeof calc), std::string(2 * sizeof calc, '0'));

    const std::string block = pattern(32);
    calc.Update(block.data(), block.size());
    std::string fields(sizeof calc, '\0');
    std::memcpy(fields.data(), &calc, sizeof calc);
    EXPECT_EQ(fields.substr(0, 64), std::string(64, '\0'));
    EXPECT_NE(fields.substr(64, 32), std::string(32, '\0'));
    EXPECT_EQ(fields.substr(96, 32), block);
    EXPECT_EQ(fields.substr(128), std::string("\x20\0\0\0\0\0\0\0", 8));
}

// Two blocks of the greatest value add up to 2^256 - 2 once the carry out of the top is dropped.
TEST(Gost94, DropsTheSumsLastCarry) {
    HashGOST3411_Calc calc = Gost94Pair::newCalc();
    const std::string block(32, '\xff');
    calc.Update(block.data(), block.size());
    calc.Update(block.data(), block.size());
    EXPECT_EQ(support::toHex(reinterpret_cast<const char*>(&calc) + 96, 32),
              "fe" + std::string(62, 'f'));
}

TEST(Gost94, AnEmptyMessageAndNullDataProcessNoBlock) {
    HashGOST3411_Calc calc = Gost94Pair::newCalc();
    calc.Update(nullptr, 5);
    calc.Update("", 0);
    EXPECT_EQ(support::toHex(&calc, sizeof calc), std::string(2 * sizeof calc, '0'));
    EXPECT_EQ(textOf(HashGOST3411(calc, true)),
              "981e5f3ca30c841487830f84fb433e13ac1101569b9c13584ac483234cd656c0"); // gost94.txt
}

TEST(Gost94, CallsOfWholeBlocksContinueTheMessage) {
    EXPECT_EQ(digestOfCalls({pattern(32), "x"}), expected(pattern(32) + "x"));
    EXPECT_EQ(digestOfCalls({pattern(32), pattern(64), pattern(5)}),
              expected(pattern(32) + pattern(64) + pattern(5)));
}

// Calls that are filled up by hand give the same blocks and the same sum.
TEST(Gost94, Deliberate_EveryCallIsFilledUpWithZerosOnItsOwn) {
    EXPECT_NE(digestOfCalls({"ab", "cd"}), expected("abcd"));
    const auto blocksOf = [](std::initializer_list<std::string> calls) {
        HashGOST3411_Calc calc = Gost94Pair::newCalc();
        for (const std::string& call : calls)
            calc.Update(call.data(), call.size());
        return support::toHex(&calc, 128); // all fields but the length
    };
    const auto filled = [](std::string text) {
        text.resize((text.size() + 31) / 32 * 32);
        return text;
    };
    for (const std::size_t first : {1U, 2U, 31U, 33U, 63U, 65U}) {
        const std::string one = pattern(first);
        EXPECT_EQ(blocksOf({one, "cd"}), blocksOf({filled(one) + filled("cd")})) << first;
    }
}

TEST(Gost94, Deliberate_TheLengthCountsOnlyRealBytes) {
    HashGOST3411_Calc calc = Gost94Pair::newCalc();
    calc.Update("ab", 2);
    calc.Update("cde", 3);
    std::uint64_t length;
    std::memcpy(&length, reinterpret_cast<const char*>(&calc) + 128, sizeof length);
    EXPECT_EQ(length, 5U);
}

// Its hash takes the block with the length in, 24 bits here, and is the digest's last but one.
TEST(Gost94, FinishingInPlaceChangesTheHash) {
    const auto hash = [](const HashGOST3411_Calc& calc) {
        return support::toHex(reinterpret_cast<const char*>(&calc) + 64, 32);
    };
    HashGOST3411_Calc calc = Gost94Pair::newCalc();
    calc.Update("abc", 3);
    const std::string before = hash(calc);
    const HashGOST3411 ofCopy(calc, false);
    EXPECT_EQ(hash(calc), before);

    HashGOST3411_Calc consumed = calc;
    const HashGOST3411 ofItself(consumed, true);
    EXPECT_NE(hash(consumed), before);

    HashGOST3411 out = ofCopy;
    calc.FinalizeHash(out);
    EXPECT_EQ(hash(calc), hash(consumed));

    const std::string lengthBlock = "\x18" + std::string(31, '\0');
    HashGOST3411_Calc byHand = Gost94Pair::newCalc();
    byHand.Update("abc", 3);
    byHand.Update(lengthBlock.data(), lengthBlock.size());
    EXPECT_EQ(hash(byHand), hash(consumed));
}

// The bit count wraps: 2^61 bytes more are no bits more. Set through the calculator's memory.
TEST(Gost94, CountsBitsModulo2To64) {
    HashGOST3411_Calc calc = Gost94Pair::newCalc();
    const std::uint64_t wrapped = std::uint64_t{1} << 61;
    std::memcpy(reinterpret_cast<char*>(&calc) + 128, &wrapped, sizeof wrapped);
    calc.Update("abc", 3);
    EXPECT_EQ(textOf(HashGOST3411(calc, true)), expected("abc"));
}

TEST(Gost94, OperatorEqualsComparesAllBytes) {
    const HashGOST3411 digest("abc", 3);
    EXPECT_TRUE(digest == HashGOST3411("abc", 3));
    for (std::size_t i = 0; i < sizeof digest; ++i) {
        HashGOST3411 other = digest;
        reinterpret_cast<unsigned char*>(&other)[i] ^= 0x80;
        EXPECT_FALSE(digest == other) << i;
    }
}

TEST(Gost94Calc, Deliberate_HashesAShortTextAsAWholeBlock) {
    // Agrees with libgcrypt on "abc" and 29 zero bytes, as the loop below shows.
    EXPECT_EQ(calcText("abc"), "B28164608A820D1FF37933D2102D17314A1664569A53FD9E2C9175B9C414508A");
    for (std::size_t length = 0; length < 32; ++length) {
        const std::string text(length, 'x');
        const support::WalledBytes walled(text + '\0');
        const std::string block = text + std::string(32 - length, '\0');
        EXPECT_EQ(calcText(walled.data()), support::upperCase(expected(block))) << length;
    }
}

TEST(Gost94Calc, HashesALongerTextAsItIs) {
    for (const std::size_t length : {32U, 33U, 63U, 64U, 65U, 1000U}) {
        const std::string text(length, 'x');
        const support::WalledBytes walled(text + '\0');
        EXPECT_EQ(calcText(walled.data()), support::upperCase(expected(text))) << length;
    }
}

TEST(Gost94Calc, Deliberate_TakesNullForTheEmptyText) {
    const std::string block(32, '\0');
    EXPECT_EQ(calcText(nullptr), support::upperCase(expected(block)));
    EXPECT_EQ(calcText(""), support::upperCase(expected(block)));
}

TEST(Gost94Calc, HashesTheWholeOfATextBeyond2GiB) {
#ifdef PELORIK_SANITIZED
    GTEST_SKIP() << "hashes 4 GiB, too slow under a sanitizer";
#endif
    constexpr std::size_t length = (std::size_t{1} << 31) + 1;
    const auto text = std::make_unique<char[]>(length + 1);
    std::memset(text.get(), 'x', length);
    HashGOST3411_Calc calc = Gost94Pair::newCalc();
    calc.Update(text.get(), std::size_t{1} << 31);
    calc.Update("x", 1);
    const HashGOST3411 expectedDigest(calc, true);
    EXPECT_EQ(calcText(text.get()), textOf(expectedDigest, true));
}

} // namespace
