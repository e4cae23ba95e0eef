#include "digest/_md5.h"

#include "digest/_md5_roads.h"
#include "digest/hex_text.h"
#include "digest/roads.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t kBlockSize = 64;
constexpr std::size_t kLengthOffset = 56; // where the bit count stands in the last block

using Word = std::uint32_t;

void compress(Word* state, const unsigned char* blocks, std::size_t count) {
    const auto road = pelorikutil::roads::avx512Md5() ? pelorikutil::md5::compress_avx512
                                                      : pelorikutil::md5::compress_portable;
    road(state, blocks, count);
}

} // namespace

void HashMD5_Calc::Reset() {
    std::memset(block_, 0, sizeof block_);
    bitCount_[0] = 0;
    bitCount_[1] = 0;
    state_[0] = 0x67452301;
    state_[1] = 0xefcdab89;
    state_[2] = 0x98badcfe;
    state_[3] = 0x10325476;
}

void HashMD5_Calc::Update(const void* data, std::size_t length) {
    if (data == nullptr)
        return;
    const auto* bytes = static_cast<const unsigned char*>(data);
    const std::size_t index = fill();
    count(static_cast<Word>(length));

    if (index != 0) {
        const std::size_t part = std::min(kBlockSize - index, length);
        std::memcpy(block_ + index, bytes, part);
        if (index + part < kBlockSize)
            return;
        compress(state_, block_, 1);
        bytes += part;
        length -= part;
    }
    const std::size_t blocks = length / kBlockSize;
    compress(state_, bytes, blocks);
    std::memcpy(block_, bytes + blocks * kBlockSize, length % kBlockSize);
}

void HashMD5_Calc::FinalizeHash(HashMD5& out) {
    std::size_t index = fill();
    block_[index++] = 0x80;
    std::size_t padding = 1;
    if (index > kLengthOffset) {
        padding += kBlockSize - index;
        std::memset(block_ + index, 0, kBlockSize - index);
        compress(state_, block_, 1);
        index = 0;
    }
    padding += kBlockSize - index;
    std::memset(block_ + index, 0, kLengthOffset - index);
    uint32ToByte(block_ + kLengthOffset, bitCount_, sizeof bitCount_);
    compress(state_, block_, 1);
    count(static_cast<Word>(padding)); // the padding is message now

    uint32ToByte(out.bytes_, state_, sizeof out.bytes_);
}

std::size_t HashMD5_Calc::fill() const {
    return (bitCount_[0] >> 3) % kBlockSize;
}

void HashMD5_Calc::count(std::uint32_t bytes) {
    const Word bits = bytes << 3;
    bitCount_[0] += bits;
    if (bitCount_[0] < bits)
        ++bitCount_[1];
    bitCount_[1] += bytes >> 29;
}

HashMD5::HashMD5(const void* data, std::size_t length) {
    HashMD5_Calc calc;
    calc.Reset();
    calc.Update(data, length);
    calc.FinalizeHash(*this);
}

HashMD5::HashMD5(HashMD5_Calc& calc, bool finalizeInPlace) {
    HashMD5_Calc copy = calc;
    (finalizeInPlace ? calc : copy).FinalizeHash(*this);
}

char* HashMD5::ToCSTR(char* out, bool upperCase) const {
    return pelorikutil::hex_text::write(bytes_, sizeof bytes_, out, upperCase);
}

bool HashMD5::Check(const char* text, bool upperCase) const {
    return pelorikutil::hex_text::matches(bytes_, sizeof bytes_, text, upperCase);
}

bool HashMD5::operator==(const HashMD5& other) const {
    return std::ranges::equal(bytes_, other.bytes_);
}

void uint32ToByte(unsigned char* out, unsigned int* in, unsigned int length) {
    std::memcpy(out, in, length); // x86-64 keeps words least significant byte first
}
