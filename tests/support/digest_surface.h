// What the three pairs of calculator and digest have in common, as one suite of typed tests that
// each unit's test file instantiates with a description of its pair:
//
//     struct Md5Pair {
//         using Calc = HashMD5_Calc;
//         using Digest = HashMD5;
//         static constexpr std::size_t size = 16;         // bytes of digest
//         static constexpr std::size_t splitUnit = 1;     // calls of a multiple of it may be split
//         static constexpr support::Peer peer = support::Peer::Md5;
//         static Calc newCalc();                          // ready for use
//     };

#ifndef PELORIK_TESTS_SUPPORT_DIGEST_SURFACE_H
#define PELORIK_TESTS_SUPPORT_DIGEST_SURFACE_H

#include "tests/support/bytes.h"
#include "tests/support/leak_check.h"
#include "tests/support/peer_digest.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace support {

template<class Digest>
std::string textOf(const Digest& digest, bool upperCase = false) {
    char text[65];
    return digest.ToCSTR(text, upperCase);
}

template<class Pair>
class DigestSurface : public testing::Test {
protected:
    static std::string expected(const std::string& message) {
        return peerDigest(Pair::peer, message);
    }

    // Our digest of a message that ends at a wall.
    static std::string actual(const std::string& message) {
        const WalledBytes bytes(message);
        return textOf(typename Pair::Digest(bytes.data(), bytes.size()));
    }

    // Our digest of a message that is fed in pieces of random sizes.
    static std::string actualInPieces(const std::string& message, std::mt19937_64& random) {
        auto calc = Pair::newCalc();
        std::size_t longest = Pair::splitUnit * (1 + random() % 200);
        for (std::size_t done = 0; done < message.size();) {
            const std::size_t piece = random() % (longest + 1) / Pair::splitUnit * Pair::splitUnit;
            const std::size_t taken = std::min(piece, message.size() - done);
            calc.Update(message.data() + done, taken);
            done += taken;
        }
        return textOf(typename Pair::Digest(calc, true));
    }

    static auto fed(const std::string& message) {
        auto calc = Pair::newCalc();
        calc.Update(message.data(), message.size());
        return calc;
    }
};

TYPED_TEST_SUITE_P(DigestSurface);

TYPED_TEST_P(DigestSurface, AgreesWithLibgcryptOnEveryLengthTo300) {
    for (std::size_t length = 0; length <= 300; ++length) {
        const std::string message = pattern(length);
        EXPECT_EQ(this->actual(message), this->expected(message)) << length;
    }
}

TYPED_TEST_P(DigestSurface, AgreesWithLibgcryptOnRandomMessages) {
    std::mt19937_64 random(1);
    for (unsigned magnitude = 9; magnitude <= 20; ++magnitude) {
        const std::size_t length =
            (std::size_t{1} << magnitude) - random() % (1U << (magnitude - 1));
        const std::string message = randomBytes(length, random);
        EXPECT_EQ(this->actual(message), this->expected(message)) << length;
    }
}

// Every bit set makes the sums carry through all their words.
TYPED_TEST_P(DigestSurface, AgreesWithLibgcryptWhenSumsOverflow) {
    for (const char byte : {'\xff', '\x80', '\x01'}) {
        const std::string message(4096, byte);
        EXPECT_EQ(this->actual(message), this->expected(message));
    }
}

TYPED_TEST_P(DigestSurface, DoesNotDependOnWhereAMessageIsSplit) {
    std::mt19937_64 random(2);
    for (int round = 0; round < 200; ++round) {
        const std::string message = randomBytes(random() % 3000, random);
        EXPECT_EQ(this->actualInPieces(message, random), this->expected(message)) << round;
    }
}

TYPED_TEST_P(DigestSurface, TakesBytesAtAnyAddress) {
    const std::string message = pattern(200);
    for (std::size_t offset = 0; offset < 64; ++offset) {
        const std::string padded = std::string(offset, 'x') + message;
        EXPECT_EQ(textOf(typename TypeParam::Digest(padded.data() + offset, message.size())),
                  this->expected(message));
    }
}

TYPED_TEST_P(DigestSurface, NullDataAddsNothingWhateverItsLength) {
    auto calc = this->fed(pattern(64));
    calc.Update(nullptr, 0);
    calc.Update(nullptr, 1);
    calc.Update(nullptr, std::string::npos);
    calc.Update("x", 1);
    EXPECT_EQ(textOf(typename TypeParam::Digest(calc, true)), this->expected(pattern(64) + "x"));
    EXPECT_EQ(textOf(typename TypeParam::Digest(nullptr, 77)), this->expected(""));
}

TYPED_TEST_P(DigestSurface, AnEmptyUpdateAddsNothing) {
    auto calc = TypeParam::newCalc();
    calc.Update("", 0);
    calc.Update(pattern(32).data(), 32);
    calc.Update("x", 0);
    EXPECT_EQ(textOf(typename TypeParam::Digest(calc, true)), this->expected(pattern(32)));
}

TYPED_TEST_P(DigestSurface, ADigestOfACopyLeavesTheCalculatorUsable) {
    const std::string begin = pattern(96);
    auto calc = this->fed(begin);
    using Digest = typename TypeParam::Digest;
    EXPECT_EQ(textOf(Digest(calc, false)), this->expected(begin));
    EXPECT_EQ(textOf(Digest(calc, false)), this->expected(begin));
    calc.Update("more", 4);
    EXPECT_EQ(textOf(Digest(calc, false)), this->expected(begin + "more"));
    EXPECT_EQ(textOf(Digest(calc, true)), this->expected(begin + "more"));
}

TYPED_TEST_P(DigestSurface, ACopiedCalculatorGoesItsOwnWay) {
    auto one = this->fed(pattern(96));
    auto other = one;
    one.Update("one", 3);
    other.Update("other", 5);
    using Digest = typename TypeParam::Digest;
    EXPECT_EQ(textOf(Digest(one, true)), this->expected(pattern(96) + "one"));
    EXPECT_EQ(textOf(Digest(other, true)), this->expected(pattern(96) + "other"));
}

TYPED_TEST_P(DigestSurface, BothClassesArePlainValues) {
    using Calc = typename TypeParam::Calc;
    using Digest = typename TypeParam::Digest;
    EXPECT_TRUE(std::is_trivially_copyable<Calc>::value);
    EXPECT_TRUE(std::is_trivially_copyable<Digest>::value);
    EXPECT_TRUE(std::is_standard_layout<Calc>::value);
    EXPECT_TRUE(std::is_standard_layout<Digest>::value);
    EXPECT_FALSE(std::is_polymorphic<Calc>::value);
    EXPECT_EQ(sizeof(Digest), TypeParam::size);
}

TYPED_TEST_P(DigestSurface, FinalizeHashStoresTheDigestsBytes) {
    auto calc = this->fed("abc");
    typename TypeParam::Digest digest(nullptr, 0);
    calc.FinalizeHash(digest);
    EXPECT_EQ(toHex(&digest, sizeof digest), this->expected("abc"));
}

TYPED_TEST_P(DigestSurface, ToCSTR_WritesTheDigitsAndATerminatorAndNothingElse) {
    const std::string digits = this->expected("abc");
    const typename TypeParam::Digest digest("abc", 3);
    for (const bool upper : {false, true}) {
        const WalledBytes out(digits.size() + 1);
        std::memset(out.data(), '?', out.size());
        EXPECT_EQ(digest.ToCSTR(out.data(), upper), out.data());
        EXPECT_EQ(std::string(out.data(), out.size()), (upper ? upperCase(digits) : digits) + '\0');
    }
}

TYPED_TEST_P(DigestSurface, Check_AcceptsExactlyItsDigits) {
    const typename TypeParam::Digest digest("abc", 3);
    const std::string digits = this->expected("abc");
    EXPECT_TRUE(digest.Check(digits.c_str(), false));
    EXPECT_TRUE(digest.Check(upperCase(digits).c_str(), true));
    EXPECT_FALSE(digest.Check((digits + "0").c_str(), false));
    EXPECT_FALSE(digest.Check((digits + "\n").c_str(), false));
    EXPECT_FALSE(digest.Check((" " + digits).c_str(), false));
    EXPECT_FALSE(digest.Check(digits.substr(1).c_str(), false));
    EXPECT_FALSE(digest.Check("", false));
    EXPECT_FALSE(digest.Check(nullptr, false));
    EXPECT_FALSE(digest.Check(nullptr, true));
}

TYPED_TEST_P(DigestSurface, Check_RefusesDigitsOfTheOtherOrOfMixedCase) {
    const typename TypeParam::Digest digest("abc", 3);
    std::string digits = this->expected("abc");
    EXPECT_FALSE(digest.Check(digits.c_str(), true));
    EXPECT_FALSE(digest.Check(upperCase(digits).c_str(), false));
    char& lastLetter = digits[digits.find_last_of("abcdef")];
    lastLetter = static_cast<char>(std::toupper(lastLetter));
    EXPECT_FALSE(digest.Check(digits.c_str(), false));
    EXPECT_FALSE(digest.Check(digits.c_str(), true));
}

TYPED_TEST_P(DigestSurface, Check_NoticesEveryDigit) {
    const typename TypeParam::Digest digest("abc", 3);
    const std::string digits = this->expected("abc");
    for (std::size_t i = 0; i < digits.size(); ++i) {
        std::string wrong = digits;
        wrong[i] = wrong[i] == '0' ? '1' : '0';
        EXPECT_FALSE(digest.Check(wrong.c_str(), false)) << i;
    }
}

TYPED_TEST_P(DigestSurface, Check_ReadsNothingBehindTheFirstDifference) {
    const typename TypeParam::Digest digest("abc", 3);
    const std::string digits = this->expected("abc");
    for (std::size_t length = 0; length <= digits.size(); ++length) {
        const WalledBytes ended(digits.substr(0, length) + '\0');
        EXPECT_EQ(digest.Check(ended.data(), false), length == digits.size());
        const WalledBytes wrong(digits.substr(0, length) + '?');
        EXPECT_FALSE(digest.Check(wrong.data(), false));
    }
}

TYPED_TEST_P(DigestSurface, ObjectsOfDifferentThreadsDoNotMeet) {
    allowLeaks(); // what the system keeps of a finished thread
    constexpr std::size_t threads = 4;
    std::vector<std::string> messages;
    for (std::size_t i = 0; i < threads; ++i)
        messages.push_back(pattern(20000 + i));
    std::vector<std::string> digests(threads);
    std::vector<std::thread> running;
    for (std::size_t i = 0; i < threads; ++i)
        running.emplace_back([&, i] { digests[i] = this->actual(messages[i]); });
    for (std::thread& thread : running)
        thread.join();
    for (std::size_t i = 0; i < threads; ++i)
        EXPECT_EQ(digests[i], this->expected(messages[i]));
}

REGISTER_TYPED_TEST_SUITE_P(
    DigestSurface, AgreesWithLibgcryptOnEveryLengthTo300, AgreesWithLibgcryptOnRandomMessages,
    AgreesWithLibgcryptWhenSumsOverflow, DoesNotDependOnWhereAMessageIsSplit,
    TakesBytesAtAnyAddress, NullDataAddsNothingWhateverItsLength, AnEmptyUpdateAddsNothing,
    ADigestOfACopyLeavesTheCalculatorUsable, ACopiedCalculatorGoesItsOwnWay,
    BothClassesArePlainValues, FinalizeHashStoresTheDigestsBytes,
    ToCSTR_WritesTheDigitsAndATerminatorAndNothingElse, Check_AcceptsExactlyItsDigits,
    Check_RefusesDigitsOfTheOtherOrOfMixedCase, Check_NoticesEveryDigit,
    Check_ReadsNothingBehindTheFirstDifference, ObjectsOfDifferentThreadsDoNotMeet);

} // namespace support

#endif
