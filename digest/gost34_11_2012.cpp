#include "digest/gost34_11_2012.h"

#include "digest/gost34_11_2012_tables.h"
#include "digest/wide_sum.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

static_assert(std::endian::native == std::endian::little);

namespace {

using gost34_11_2012::C;
using gost34_11_2012::premult;

constexpr unsigned long kBlockSize = 64;

constexpr UInt512 vector_0 = {};
constexpr UInt512 vector_1 = {{0x0101010101010101, 0x0101010101010101, 0x0101010101010101,
                               0x0101010101010101, 0x0101010101010101, 0x0101010101010101,
                               0x0101010101010101, 0x0101010101010101}};

UInt512 load(const void* bytes) {
    UInt512 value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

UInt512 exclusiveOr(const UInt512& x, const UInt512& y) {
    UInt512 result;
    for (int i = 0; i < 8; ++i)
        result.word[i] = x.word[i] ^ y.word[i];
    return result;
}

// One word of LPS: byte `Row` of each of the eight words, through the tables.
template<unsigned Row>
std::uint64_t lpsRow(const UInt512& x) {
    constexpr unsigned shift = 8 * Row;
    return premult[0][x.word[0] >> shift & 0xff] ^ premult[1][x.word[1] >> shift & 0xff] ^
           premult[2][x.word[2] >> shift & 0xff] ^ premult[3][x.word[3] >> shift & 0xff] ^
           premult[4][x.word[4] >> shift & 0xff] ^ premult[5][x.word[5] >> shift & 0xff] ^
           premult[6][x.word[6] >> shift & 0xff] ^ premult[7][x.word[7] >> shift & 0xff];
}

// The standard's L(P(S(x ^ y))).
UInt512 lps(const UInt512& x, const UInt512& y) {
    const UInt512 sum = exclusiveOr(x, y);
    return {{lpsRow<0>(sum), lpsRow<1>(sum), lpsRow<2>(sum), lpsRow<3>(sum), lpsRow<4>(sum),
             lpsRow<5>(sum), lpsRow<6>(sum), lpsRow<7>(sum)}};
}

// The standard's E(K, m).
UInt512 encrypt(UInt512 key, UInt512 m) {
    for (const UInt512& constant : C) {
        m = lps(key, m);
        key = lps(key, constant);
    }
    return exclusiveOr(m, key);
}

// The standard's g_N(h, m), stored back into h.
void compress(UInt512& h, const UInt512& n, const UInt512& m) {
    h = exclusiveOr(exclusiveOr(encrypt(lps(h, n), m), h), m);
}

void addBits(UInt512& count, unsigned long bits) {
    addWide(count.word, {bits, 0, 0, 0, 0, 0, 0, 0});
}

} // namespace

GOST34_11_2012::GOST34_11_2012(int size)
    : h_(size == 512 ? vector_0 : vector_1), n_(vector_0), sigma_(vector_0), lastBlock_{},
      size_(size), finished_(false) {}

void GOST34_11_2012::addPortion(const void* data, unsigned long size) {
    if (size != kBlockSize) {
        finish(data, std::min(size, kBlockSize - 1));
        return;
    }
    const UInt512 block = load(data);
    compress(h_, n_, block);
    addBits(n_, 8 * kBlockSize);
    addWide(sigma_.word, block.word);
}

void GOST34_11_2012::finish(const void* data, unsigned long size) {
    std::memset(lastBlock_, 0, sizeof lastBlock_);
    if (size > 0)
        std::memcpy(lastBlock_, data, size);
    lastBlock_[size] = 0x01;

    const UInt512 block = load(lastBlock_);
    compress(h_, n_, block);
    addBits(n_, 8 * size);
    addWide(sigma_.word, block.word);
    compress(h_, vector_0, n_);
    compress(h_, vector_0, sigma_);
    finished_ = true;
}

const unsigned char* GOST34_11_2012::getHash() {
    if (!finished_)
        addPortion(nullptr, 0);
    const auto* bytes = reinterpret_cast<const unsigned char*>(h_.word);
    return size_ == 512 ? bytes : bytes + 32;
}

void gost_34_11_2012(const void* data, unsigned long size, void* out, int bits) {
    if (size > kBlockSize)
        return;
    GOST34_11_2012 core(bits);
    if (size > 0)
        core.addPortion(data, size);

    const unsigned char* const digest = core.getHash();
    const int available = bits == 512 ? 64 : 32;
    const int wanted = std::clamp(bits / 8, 0, available);
    std::memcpy(out, digest, static_cast<std::size_t>(wanted));
}
