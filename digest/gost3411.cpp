#include "digest/gost3411.h"

#include "digest/gost3411_roads.h"
#include "digest/hex_text.h"
#include "digest/roads.h"
#include "digest/wide_sum.h"

#include <cstddef>
#include <cstring>

namespace {

constexpr std::size_t kBlockSize = 32;

// hash = f(hash, block) for `count` blocks.
void step(unsigned char* hash, const unsigned char* blocks, std::size_t count) {
    const auto road = pelorikutil::roads::avx512Gost() ? pelorikutil::gost3411::step_avx512
                                                       : pelorikutil::gost3411::step_portable;
    road(hash, blocks, count);
}

// Adds `count` blocks to a sum of 256 bits.
void addToSum(unsigned char* sum, const unsigned char* blocks, std::size_t count) {
    std::uint64_t total[4];
    std::memcpy(total, sum, sizeof total);
    for (; count > 0; --count, blocks += kBlockSize) {
        std::uint64_t block[4];
        std::memcpy(block, blocks, sizeof block);
        addWide(total, block);
    }
    std::memcpy(sum, total, sizeof total);
}

} // namespace

void HashGOST3411_Calc::Reset() {
    std::memset(block_, 0, sizeof block_);
    std::memset(hash_, 0, sizeof hash_);
    std::memset(sigma_, 0, sizeof sigma_);
    length_ = 0;
}

void HashGOST3411_Calc::Update(const void* data, unsigned long size) {
    if (data == nullptr)
        return;
    length_ += size;
    const auto* bytes = static_cast<const unsigned char*>(data);
    const std::size_t blocks = size / kBlockSize;
    addToSum(sigma_, bytes, blocks);
    step(hash_, bytes, blocks);

    const std::size_t rest = size % kBlockSize;
    if (rest > 0) {
        unsigned char last[kBlockSize] = {};
        std::memcpy(last, bytes + blocks * kBlockSize, rest);
        addToSum(sigma_, last, 1);
        step(hash_, last, 1);
    }
}

void HashGOST3411_Calc::FinalizeHash(HashGOST3411& out) {
    const std::uint64_t bits = length_ * 8;
    unsigned char lengthBlock[kBlockSize] = {};
    std::memcpy(lengthBlock, &bits, sizeof bits);
    step(hash_, lengthBlock, 1);

    std::memcpy(out.bytes_, hash_, sizeof out.bytes_);
    step(out.bytes_, sigma_, 1);
}

HashGOST3411::HashGOST3411(const void* data, unsigned long size) {
    HashGOST3411_Calc calc;
    calc.Reset();
    calc.Update(data, size);
    calc.FinalizeHash(*this);
}

HashGOST3411::HashGOST3411(HashGOST3411_Calc& calc, bool consume) {
    HashGOST3411_Calc copy = calc;
    (consume ? calc : copy).FinalizeHash(*this);
}

char* HashGOST3411::ToCSTR(char* out, bool upperCase) const {
    return pelorikutil::hex_text::write(bytes_, sizeof bytes_, out, upperCase);
}

bool HashGOST3411::Check(const char* text, bool upperCase) const {
    return pelorikutil::hex_text::matches(bytes_, sizeof bytes_, text, upperCase);
}

bool HashGOST3411::operator==(const HashGOST3411& other) const {
    return std::memcmp(bytes_, other.bytes_, sizeof bytes_) == 0;
}

char* HashGOST3411::calc(const char* text, char* out) {
    const std::size_t length = text == nullptr ? 0 : std::strlen(text);
    if (length >= kBlockSize)
        return HashGOST3411(text, length).ToCSTR(out, true);

    unsigned char block[kBlockSize] = {};
    if (length > 0)
        std::memcpy(block, text, length);
    return HashGOST3411(block, sizeof block).ToCSTR(out, true);
}
