#include "digest/_md5.h"
#include "tests/support/bytes.h"
#include "tests/support/digest_surface.h"
#include "tests/support/peer_digest.h"
#include "tests/support/vectors.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <future>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using support::textOf;

struct Md5Pair {
    using Calc = HashMD5_Calc;
    using Digest = HashMD5;
    static constexpr std::size_t size = 16;
    static constexpr std::size_t splitUnit = 1;
    static constexpr support::Peer peer = support::Peer::Md5;
    static Calc newCalc() {
        Calc calc;
        calc.Reset();
        return calc;
    }
};

} // namespace

namespace support {
INSTANTIATE_TYPED_TEST_SUITE_P(Md5, DigestSurface, Md5Pair);
}

namespace {

// RFC 1321 once more, written from its text: slow, and with the length that goes into the padding
// given apart from the message.
class ReferenceMd5 {
public:
    ReferenceMd5() {
        for (unsigned i = 0; i < 64; ++i)
            constant_[i] =
                static_cast<std::uint32_t>(std::floor(std::abs(std::sin(i + 1)) * 0x1p32));
    }

    void block(const char* bytes) {
        std::uint32_t x[16];
        std::memcpy(x, bytes, sizeof x);
        State s = state_;
        for (unsigned i = 0; i < 16; ++i)
            step(s, (s.b & s.c) | (~s.b & s.d), x[i], i);
        for (unsigned i = 16; i < 32; ++i)
            step(s, (s.b & s.d) | (s.c & ~s.d), x[(5 * i + 1) % 16], i);
        for (unsigned i = 32; i < 48; ++i)
            step(s, s.b ^ s.c ^ s.d, x[(3 * i + 5) % 16], i);
        for (unsigned i = 48; i < 64; ++i)
            step(s, s.c ^ (s.b | ~s.d), x[7 * i % 16], i);
        state_ = {state_.a + s.a, state_.b + s.b, state_.c + s.c, state_.d + s.d};
    }

    // Pads `rest`, of less than 56 bytes, as the end of a message of `length` bytes.
    std::string finish(std::string rest, std::uint64_t length) {
        const std::uint64_t bits = length * 8;
        rest += '\x80';
        rest.resize(56);
        rest.append(reinterpret_cast<const char*>(&bits), sizeof bits);
        block(rest.data());
        return support::toHex(&state_, sizeof state_);
    }

private:
    struct State {
        std::uint32_t a, b, c, d;
    };

    void step(State& s, std::uint32_t mixed, std::uint32_t word, unsigned i) const {
        static constexpr int shift[4][4] = {
            {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
        const std::uint32_t sum = s.a + mixed + word + constant_[i];
        s = {s.d, s.b + std::rotl(sum, shift[i / 16][i % 4]), s.b, s.c};
    }

    std::uint32_t constant_[64];
    State state_ = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
};

TEST(Md5, GivesTheDigestsOfRfc1321) {
    support::expectVectors("md5.txt", [](const std::string& message) {
        return textOf(HashMD5(message.data(), message.size()));
    });
}

TEST(Md5, GivesTheDigestsOfRfc1321ByteByByte) {
    support::expectVectors("md5.txt", [](const std::string& message) {
        HashMD5_Calc calc = Md5Pair::newCalc();
        for (const char& byte : message)
            calc.Update(&byte, 1);
        return textOf(HashMD5(calc, false));
    });
}

TEST(Md5, ResetStartsANewMessage) {
    HashMD5_Calc calc;
    std::memset(static_cast<void*>(&calc), 0xa5, sizeof calc);
    calc.Reset();
    EXPECT_EQ(textOf(HashMD5(calc, true)), "d41d8cd98f00b204e9800998ecf8427e"); // RFC 1321
    calc.Reset();
    calc.Update("abc", 3);
    EXPECT_EQ(textOf(HashMD5(calc, true)), "900150983cd24fb0d6963f7d28e17f72"); // RFC 1321
}

// Block, count (low word first), state: what a caller that copies the calculator's memory relies
// on.
TEST(Md5, KeepsItsFieldsInOrder) {
    static_assert(sizeof(HashMD5_Calc) == 88);
    static_assert(alignof(HashMD5_Calc) == 4);
    HashMD5_Calc calc;
    std::memset(static_cast<void*>(&calc), 0xa5, sizeof calc);
    calc.Reset();
    std::uint32_t words[22];
    std::memcpy(words, &calc, sizeof words);
    for (std::size_t i = 0; i < 18; ++i)
        EXPECT_EQ(words[i], 0U) << i;
    EXPECT_EQ(words[18], 0x67452301U);
    EXPECT_EQ(words[19], 0xefcdab89U);
    EXPECT_EQ(words[20], 0x98badcfeU);
    EXPECT_EQ(words[21], 0x10325476U);

    calc.Update("abc", 3);
    std::memcpy(words, &calc, sizeof words);
    EXPECT_EQ(std::memcmp(words, "abc", 4), 0);
    EXPECT_EQ(words[16], 24U);
    EXPECT_EQ(words[17], 0U);
}

// A counter just below its wrap, set through the calculator's memory: the carry, without 512 MiB.
TEST(Md5, CarriesTheBitCountIntoItsHighWord) {
    HashMD5_Calc calc = Md5Pair::newCalc();
    const std::uint32_t low = 0xfffffe00; // 64 bytes before 2^32 bits
    std::memcpy(reinterpret_cast<char*>(&calc) + 64, &low, sizeof low);
    calc.Update(support::pattern(70).data(), 70);

    ReferenceMd5 reference;
    reference.block(support::pattern(64).data());
    EXPECT_EQ(textOf(HashMD5(calc, true)),
              reference.finish(support::pattern(70).substr(64), (std::uint64_t{1} << 29) + 6));
}

// Address space full of one file of 1 MiB, mapped again and again.
class RepeatedFile {
public:
    static constexpr std::size_t kPiece = 1U << 20;

    RepeatedFile(const std::string& piece, std::size_t pieces) : size_(pieces * kPiece) {
        const int file = memfd_create("piece", 0);
        EXPECT_EQ(write(file, piece.data(), kPiece), ssize_t{kPiece});
        base_ = static_cast<char*>(
            mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
        for (std::size_t i = 0; i < pieces; ++i)
            mmap(base_ + i * kPiece, kPiece, PROT_READ, MAP_SHARED | MAP_FIXED, file, 0);
        close(file);
    }
    ~RepeatedFile() { munmap(base_, size_); }
    RepeatedFile(const RepeatedFile&) = delete;
    RepeatedFile& operator=(const RepeatedFile&) = delete;

    const char* data() const { return base_; }

private:
    std::size_t size_;
    char* base_;
};

TEST(Md5, CountsTheBitsOfALongCallInBothWords) {
    const std::string piece(RepeatedFile::kPiece, '\0');
    const RepeatedFile bytes(piece, 513);
    HashMD5_Calc calc = Md5Pair::newCalc();
    calc.Update(bytes.data(), (std::size_t{1} << 29) + 5);
    std::uint32_t words[22];
    std::memcpy(words, &calc, sizeof words);
    EXPECT_EQ(words[16], 40U);
    EXPECT_EQ(words[17], 1U);
}

// After its end a message goes on behind its padding, which counts like any other part of it.
TEST(Md5, FinalizedInPlaceAMessageGoesOnBehindItsPadding) {
    for (std::size_t length = 0; length <= 130; ++length) {
        const std::string message = support::pattern(length);
        HashMD5_Calc calc = Md5Pair::newCalc();
        calc.Update(message.data(), message.size());
        const HashMD5 first(calc, true);
        calc.Update("more", 4);

        const std::uint64_t bits = 8 * length;
        std::string padded = message + '\x80';
        padded.resize((length + 8) / 64 * 64 + 56);
        padded.append(reinterpret_cast<const char*>(&bits), sizeof bits);
        EXPECT_EQ(textOf(HashMD5(calc, true)),
                  support::peerDigest(support::Peer::Md5, padded + "more"))
            << length;
    }
}

TEST(Md5, Deliberate_CountsTheLengthOfOneCallModulo4GiB) {
#if defined(PELORIK_SANITIZED) || !defined(__OPTIMIZE__)
    GTEST_SKIP() << "hashing 4 GiB twice takes minutes in this build";
#else
    support::allowLeaks(); // what the system keeps of a finished thread
    constexpr std::size_t length = (std::size_t{1} << 32) + 5;
    const std::string piece = support::pattern(RepeatedFile::kPiece);
    const RepeatedFile bytes(piece, 4097);

    std::future<std::string> expected = std::async(std::launch::async, [&] {
        ReferenceMd5 reference;
        for (int i = 0; i < 4096; ++i) {
            for (std::size_t at = 0; at < piece.size(); at += 64)
                reference.block(piece.data() + at);
        }
        return reference.finish(piece.substr(0, 5), 5);
    });
    EXPECT_EQ(textOf(HashMD5(bytes.data(), length)), expected.get());
#endif
}

TEST(Md5, OperatorEqualsComparesAllBytes) {
    const HashMD5 digest("abc", 3);
    EXPECT_TRUE(digest == HashMD5("abc", 3));
    EXPECT_FALSE(digest == HashMD5("abd", 3));
    for (std::size_t i = 0; i < sizeof digest; ++i) {
        HashMD5 other = digest;
        reinterpret_cast<unsigned char*>(&other)[i] ^= 1;
        EXPECT_FALSE(digest == other) << i;
    }
}

TEST(Uint32ToByte, WritesEachWordLeastSignificantByteFirst) {
    unsigned int words[] = {0x04030201, 0xf8f7f6f5};
    unsigned char bytes[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0x55};
    uint32ToByte(bytes, words, 4);
    EXPECT_EQ(support::toHex(bytes, 9), "010203040000000055");
    uint32ToByte(bytes, words, 8);
    EXPECT_EQ(support::toHex(bytes, 9), "01020304f5f6f7f855");
    uint32ToByte(bytes + 1, words + 1, 4);
    EXPECT_EQ(support::toHex(bytes, 9), "01f5f6f7f8f6f7f855");
}

} // namespace
