// The tables are made of pi and L as the standard lists them. Here both come from elsewhere: from
// the structure that cryptanalysis later found in them. So neither a slip in the lists nor one in
// what is made of them goes unseen.

#include "digest/gost34_11_2012_tables.h"
#include "tests/support/bytes.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

namespace {

using pelorikutil::gost34_11_2012::C;
using pelorikutil::gost34_11_2012::kIterationConstants;
using pelorikutil::gost34_11_2012::premult;

unsigned multiply(unsigned x, unsigned y, unsigned polynomial) {
    unsigned product = 0;
    for (; y != 0; y >>= 1) {
        if ((y & 1) != 0)
            product ^= x;
        x <<= 1;
        if (x > 0xff)
            x ^= polynomial;
    }
    return product;
}

// pi through discrete logarithms in the field of x^8 + x^4 + x^3 + x^2 + 1 (L. Perrin, "Partitions
// in the S-Box of Streebog and Kuznyechik", 2019).
unsigned pi(unsigned x) {
    static constexpr unsigned kappa[17] = {252, 220, 206, 250, 232, 248, 234, 222, 204,
                                           236, 254, 202, 216, 200, 218, 238, 252};
    static constexpr unsigned s[15] = {1,   221, 146, 79,  147, 153, 11, 68,
                                       214, 215, 78,  220, 152, 10,  69};
    if (x == 0)
        return kappa[0];
    unsigned logarithm = 1; // 1 to 255
    for (unsigned power = 2; power != x; ++logarithm)
        power = multiply(power, 2, 0x11d);
    if (logarithm % 17 == 0)
        return kappa[logarithm / 17];
    return kappa[logarithm % 17] ^ s[logarithm / 17];
}

unsigned backwards(unsigned byte) {
    unsigned result = 0;
    for (unsigned i = 0; i < 8; ++i)
        result |= (byte >> i & 1U) << (7 - i);
    return result;
}

// L as a product of eight bytes, the most significant one first and the bits of each backwards, and
// a matrix over the field of x^8 + x^6 + x^5 + x^4 + 1 (O. Kazymyrov, V. Kazymyrova, "Algebraic
// Aspects of the Russian Hash Standard GOST R 34.11-2012", 2013).
std::uint64_t linear(std::uint64_t word) {
    static constexpr unsigned matrix[8][8] = {{0x71, 0x05, 0x09, 0xb9, 0x61, 0xa2, 0x27, 0x0e},
                                              {0x04, 0x88, 0x5b, 0xb2, 0xe4, 0x36, 0x5f, 0x65},
                                              {0x5f, 0xcb, 0xad, 0x0f, 0xba, 0x2c, 0x04, 0xa5},
                                              {0xe5, 0x01, 0x54, 0xba, 0x0f, 0x11, 0x2a, 0x76},
                                              {0xd4, 0x81, 0x1c, 0xfa, 0x39, 0x5e, 0x15, 0x24},
                                              {0x05, 0x71, 0x5e, 0x66, 0x17, 0x1c, 0xd0, 0x02},
                                              {0x2d, 0xf1, 0xe7, 0x28, 0x55, 0xa0, 0x4c, 0x9a},
                                              {0x0e, 0x02, 0xf6, 0x8a, 0x15, 0x9d, 0x39, 0x71}};
    std::uint64_t result = 0;
    for (const auto& row : matrix) {
        unsigned sum = 0;
        for (unsigned i = 0; i < 8; ++i)
            sum ^= multiply(backwards(word >> (56 - 8 * i) & 0xff), row[i], 0x171);
        result = result << 8 | backwards(sum);
    }
    return result;
}

TEST(Gost2012Tables, PremultIsLOfASubstitutedByte) {
    for (unsigned j = 0; j < 8; ++j) {
        for (unsigned b = 0; b < 256; ++b)
            ASSERT_EQ(premult[j][b], linear(std::uint64_t{pi(b)} << (8 * j))) << j << ' ' << b;
    }
}

// That the digits themselves are right is what the published digests tell, which need all of them.
TEST(Gost2012Tables, ConstantsHoldTheStandardsDigitsFromTheirEnd) {
    for (std::size_t i = 0; i < 12; ++i) {
        std::string bytes = support::fromHex(std::string(kIterationConstants[i]));
        std::reverse(bytes.begin(), bytes.end());
        EXPECT_EQ(support::toHex(&C[i], sizeof C[i]), support::toHex(bytes)) << i;
    }
}

} // namespace
