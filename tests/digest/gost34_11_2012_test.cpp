#include "digest/gost34_11_2012.h"
#include "tests/support/bytes.h"
#include "tests/support/peer_digest.h"
#include "tests/support/vectors.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <type_traits>

namespace {

using support::pattern;
using support::toHex;

std::size_t bytesOf(int size) {
    return size == 512 ? 64 : 32;
}

std::string expected(const std::string& message, int size) {
    return support::peerDigest(
        size == 512 ? support::Peer::Gost2012Bits512 : support::Peer::Gost2012Bits256, message);
}

// The digest of a message through the core, portion by portion, each ending at a wall.
std::string digestOf(const std::string& message, int size) {
    GOST34_11_2012 core(size);
    std::size_t done = 0;
    for (; message.size() - done >= 64; done += 64) {
        const support::WalledBytes block(message.substr(done, 64));
        core.addPortion(block.data(), 64);
    }
    if (done < message.size()) {
        const support::WalledBytes rest(message.substr(done));
        core.addPortion(rest.data(), rest.size());
    }
    return toHex(core.getHash(), bytesOf(size));
}

std::string oneShot(const std::string& message, int bits) {
    const support::WalledBytes data(message);
    const support::WalledBytes out(bytesOf(bits));
    gost_34_11_2012(data.data(), data.size(), out.data(), bits);
    return toHex(out.data(), out.size());
}

TEST(Gost2012Core, GivesThePublishedDigests) {
    support::expectVectors("gost2012_256.txt",
                           [](const std::string& message) { return digestOf(message, 256); });
    support::expectVectors("gost2012_512.txt",
                           [](const std::string& message) { return digestOf(message, 512); });
}

TEST(Gost2012Core, AgreesWithLibgcryptOnEveryLengthTo300) {
    for (std::size_t length = 0; length <= 300; ++length) {
        const std::string message = pattern(length);
        EXPECT_EQ(digestOf(message, 256), expected(message, 256)) << length;
        EXPECT_EQ(digestOf(message, 512), expected(message, 512)) << length;
    }
}

TEST(Gost2012Core, AgreesWithLibgcryptWhenSumsOverflow) {
    std::mt19937_64 random(3);
    for (const std::string& message : {std::string(6400, '\xff'), std::string(6463, '\xff'),
                                       support::randomBytes(9999, random)}) {
        EXPECT_EQ(digestOf(message, 256), expected(message, 256));
        EXPECT_EQ(digestOf(message, 512), expected(message, 512));
    }
}

// The count of bits carries through its words: set through the core's memory to just below 2^64,
// 2^128 and so on. The digest must depend on the carry.
TEST(Gost2012Core, CarriesTheCountOfBitsThroughAllItsWords) {
    GOST34_11_2012 core(512);
    auto* const count = reinterpret_cast<char*>(&core) + 64;
    std::memset(count, 0xff, 64);
    core.addPortion(pattern(64).data(), 64);
    EXPECT_EQ(toHex(count, 64), "ff01" + std::string(124, '0')); // 2^512 - 1 + 512 = 511
    std::memset(count, 0xff, 64);
    core.addPortion("abc", 3);
    EXPECT_EQ(toHex(count, 64), "17" + std::string(126, '0')); // 2^512 - 1 + 24 = 23
}

TEST(Gost2012Core, EverySizeBut512IsThe256BitFunction) {
    for (const int size : {256, 0, -1, 511, 513, 1024, INT_MIN, INT_MAX}) {
        GOST34_11_2012 core(size);
        core.addPortion("abc", 3);
        EXPECT_EQ(toHex(core.getHash(), 32), expected("abc", 256)) << size;
    }
}

TEST(Gost2012Core, TheDigestLiesInsideTheObject) {
    GOST34_11_2012 wide(512);
    GOST34_11_2012 narrow(256);
    EXPECT_EQ(static_cast<const void*>(wide.getHash()), &wide);
    EXPECT_EQ(narrow.getHash(), reinterpret_cast<const unsigned char*>(&narrow) + 32);
}

TEST(Gost2012Core, GetHashFinishesOnce) {
    for (const int size : {256, 512}) {
        GOST34_11_2012 core(size);
        core.addPortion(pattern(64).data(), 64);
        const unsigned char* const first = core.getHash();
        EXPECT_EQ(toHex(first, bytesOf(size)), expected(pattern(64), size));
        constexpr std::size_t kValues = 4 * 64; // bytes without a value stand behind them
        const std::string whole = toHex(&core, kValues);
        EXPECT_EQ(core.getHash(), first);
        EXPECT_EQ(toHex(&core, kValues), whole);
    }
}

TEST(Gost2012Core, GetHashAddsNothingAfterAShortPortion) {
    GOST34_11_2012 core(256);
    core.addPortion("abc", 3);
    EXPECT_EQ(toHex(core.getHash(), 32), expected("abc", 256));
    GOST34_11_2012 empty(256);
    empty.addPortion(nullptr, 0);
    EXPECT_EQ(toHex(empty.getHash(), 32), expected("", 256));
}

// h, N, Sigma, last block, size, finished: what a caller that copies the core's memory relies on.
TEST(Gost2012Core, KeepsItsFieldsInOrder) {
    static_assert(sizeof(UInt512) == 64);
    static_assert(sizeof(GOST34_11_2012) == 264);
    static_assert(alignof(GOST34_11_2012) == 8);
    static_assert(std::is_trivially_copyable<GOST34_11_2012>::value);
    static_assert(std::is_standard_layout<GOST34_11_2012>::value);

    GOST34_11_2012 core(256);
    const auto field = [&](std::size_t offset, std::size_t size) {
        return toHex(reinterpret_cast<const char*>(&core) + offset, size);
    };
    const std::string zeros(128, '0');
    std::string ones;
    for (int i = 0; i < 64; ++i)
        ones += "01";
    EXPECT_EQ(field(0, 64), ones);
    EXPECT_EQ(field(64, 64), zeros);
    EXPECT_EQ(field(128, 64), zeros);
    EXPECT_EQ(field(256, 5), "0001000000");

    const std::string block = pattern(64);
    core.addPortion(block.data(), 64);
    EXPECT_EQ(field(64, 64), "0002" + zeros.substr(4));
    EXPECT_EQ(field(128, 64), toHex(block));
    EXPECT_EQ(field(260, 1), "00");

    core.addPortion("abc", 3);
    EXPECT_EQ(field(64, 64), "1802" + zeros.substr(4));
    EXPECT_EQ(field(192, 64), "61626301" + zeros.substr(8));
    EXPECT_EQ(field(260, 1), "01");
}

TEST(Gost2012Core, The512BitFunctionStartsFromZeros) {
    const GOST34_11_2012 core(512);
    EXPECT_EQ(toHex(&core, 64), std::string(128, '0'));
}

TEST(Gost2012Core, ACopyGoesItsOwnWay) {
    GOST34_11_2012 one(256);
    one.addPortion(pattern(64).data(), 64);
    GOST34_11_2012 other = one;
    one.addPortion("one", 3);
    other.addPortion("other", 5);
    EXPECT_EQ(toHex(one.getHash(), 32), expected(pattern(64) + "one", 256));
    EXPECT_EQ(toHex(other.getHash(), 32), expected(pattern(64) + "other", 256));
}

TEST(Gost2012Core, TakesBytesAtAnyAddress) {
    const std::string message = pattern(64);
    for (std::size_t offset = 0; offset < 64; ++offset) {
        const std::string padded = std::string(offset, 'x') + message;
        GOST34_11_2012 core(512);
        core.addPortion(padded.data() + offset, 64);
        EXPECT_EQ(toHex(core.getHash(), 64), expected(message, 512));
    }
}

// Outside the contract, but it must stay inside the object: it stands at a wall.
TEST(Gost2012Core, APortionThatIsTooLongCorruptsNoMemory) {
    const std::string message = pattern(4096);
    for (const unsigned long size : {65UL, 128UL, 4096UL, ULONG_MAX}) {
        const support::WalledBytes memory(sizeof(GOST34_11_2012));
        auto* const core = new (memory.data()) GOST34_11_2012(256);
        const support::WalledBytes data(message);
        core->addPortion(data.data(), size);
        const std::string field = toHex(memory.data() + 192, 72);
        EXPECT_EQ(field.substr(0, 126), toHex(message.substr(0, 63)));
        EXPECT_EQ(field.substr(128, 10), "0001000001") << "size and finished flag";
    }
}

TEST(Gost2012OneShot, AgreesWithLibgcryptOnEveryLengthItTakes) {
    for (std::size_t length = 0; length <= 64; ++length) {
        const std::string message = pattern(length);
        EXPECT_EQ(oneShot(message, 256), expected(message, 256)) << length;
        EXPECT_EQ(oneShot(message, 512), expected(message, 512)) << length;
    }
}

TEST(Gost2012OneShot, TakesNullForNothing) {
    unsigned char digest[32];
    gost_34_11_2012(nullptr, 0, digest, 256);
    EXPECT_EQ(toHex(digest, 32), expected("", 256));
}

TEST(Gost2012OneShot, Deliberate_RefusesLongerMessages) {
    const std::string message = pattern(8192);
    for (const unsigned long size : {65UL, 127UL, 128UL, 8192UL, ULONG_MAX}) {
        std::string out(64, '?');
        gost_34_11_2012(message.data(), size, out.data(), 512);
        EXPECT_EQ(out, std::string(64, '?')) << size;
    }
}

// bits / 8 rounded down, but never more than the digest has. 512 alone is the wide function.
TEST(Gost2012OneShot, WritesAsManyWholeBytesAsTheBitsAsk) {
    const struct {
        int bits;
        std::size_t written;
    } cases[] = {{0, 0},        {7, 0},        {8, 1},    {15, 1},   {128, 16},
                 {255, 31},     {256, 32},     {264, 32}, {511, 32}, {513, 32},
                 {1 << 20, 32}, {INT_MAX, 32}, {-1, 0},   {-256, 0}, {INT_MIN, 0}};
    for (const auto& c : cases) {
        std::string out(128, '?');
        gost_34_11_2012("abc", 3, out.data(), c.bits);
        EXPECT_EQ(toHex(out.substr(0, c.written)), expected("abc", 256).substr(0, 2 * c.written))
            << c.bits;
        EXPECT_EQ(out.substr(c.written), std::string(128 - c.written, '?')) << c.bits;
    }
}

} // namespace
