#include "digest/_md5.h"

#include "digest/hex_text.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

constexpr std::size_t kBlockSize = 64;
constexpr std::size_t kLengthOffset = 56; // where the bit count stands in the last block

constexpr unsigned char kPadding[kBlockSize] = {0x80};

using Word = std::uint32_t;

Word loadWord(const unsigned char* bytes) {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// RFC 1321's F, G, H and I, in forms that need few operations after the newest word, x, is known.
Word f(Word x, Word y, Word z) {
    return z ^ (x & (y ^ z));
}
Word g(Word x, Word y, Word z) {
    return (x & z) | (y & ~z);
}
Word h(Word x, Word y, Word z) {
    return x ^ y ^ z;
}
Word i(Word x, Word y, Word z) {
    return y ^ (x | ~z);
}

template<Word Function(Word, Word, Word), int Shift>
void step(Word& a, Word b, Word c, Word d, Word messageWord, Word constant) {
    a = b + std::rotl(a + messageWord + constant + Function(b, c, d), Shift);
}

void compress(Word (&state)[4], const unsigned char* block) {
    Word m[16];
    for (std::size_t k = 0; k < 16; ++k)
        m[k] = loadWord(block + 4 * k);

    auto [a, b, c, d] = state;

    step<f, 7>(a, b, c, d, m[0], 0xd76aa478);
    step<f, 12>(d, a, b, c, m[1], 0xe8c7b756);
    step<f, 17>(c, d, a, b, m[2], 0x242070db);
    step<f, 22>(b, c, d, a, m[3], 0xc1bdceee);
    step<f, 7>(a, b, c, d, m[4], 0xf57c0faf);
    step<f, 12>(d, a, b, c, m[5], 0x4787c62a);
    step<f, 17>(c, d, a, b, m[6], 0xa8304613);
    step<f, 22>(b, c, d, a, m[7], 0xfd469501);
    step<f, 7>(a, b, c, d, m[8], 0x698098d8);
    step<f, 12>(d, a, b, c, m[9], 0x8b44f7af);
    step<f, 17>(c, d, a, b, m[10], 0xffff5bb1);
    step<f, 22>(b, c, d, a, m[11], 0x895cd7be);
    step<f, 7>(a, b, c, d, m[12], 0x6b901122);
    step<f, 12>(d, a, b, c, m[13], 0xfd987193);
    step<f, 17>(c, d, a, b, m[14], 0xa679438e);
    step<f, 22>(b, c, d, a, m[15], 0x49b40821);

    step<g, 5>(a, b, c, d, m[1], 0xf61e2562);
    step<g, 9>(d, a, b, c, m[6], 0xc040b340);
    step<g, 14>(c, d, a, b, m[11], 0x265e5a51);
    step<g, 20>(b, c, d, a, m[0], 0xe9b6c7aa);
    step<g, 5>(a, b, c, d, m[5], 0xd62f105d);
    step<g, 9>(d, a, b, c, m[10], 0x02441453);
    step<g, 14>(c, d, a, b, m[15], 0xd8a1e681);
    step<g, 20>(b, c, d, a, m[4], 0xe7d3fbc8);
    step<g, 5>(a, b, c, d, m[9], 0x21e1cde6);
    step<g, 9>(d, a, b, c, m[14], 0xc33707d6);
    step<g, 14>(c, d, a, b, m[3], 0xf4d50d87);
    step<g, 20>(b, c, d, a, m[8], 0x455a14ed);
    step<g, 5>(a, b, c, d, m[13], 0xa9e3e905);
    step<g, 9>(d, a, b, c, m[2], 0xfcefa3f8);
    step<g, 14>(c, d, a, b, m[7], 0x676f02d9);
    step<g, 20>(b, c, d, a, m[12], 0x8d2a4c8a);

    step<h, 4>(a, b, c, d, m[5], 0xfffa3942);
    step<h, 11>(d, a, b, c, m[8], 0x8771f681);
    step<h, 16>(c, d, a, b, m[11], 0x6d9d6122);
    step<h, 23>(b, c, d, a, m[14], 0xfde5380c);
    step<h, 4>(a, b, c, d, m[1], 0xa4beea44);
    step<h, 11>(d, a, b, c, m[4], 0x4bdecfa9);
    step<h, 16>(c, d, a, b, m[7], 0xf6bb4b60);
    step<h, 23>(b, c, d, a, m[10], 0xbebfbc70);
    step<h, 4>(a, b, c, d, m[13], 0x289b7ec6);
    step<h, 11>(d, a, b, c, m[0], 0xeaa127fa);
    step<h, 16>(c, d, a, b, m[3], 0xd4ef3085);
    step<h, 23>(b, c, d, a, m[6], 0x04881d05);
    step<h, 4>(a, b, c, d, m[9], 0xd9d4d039);
    step<h, 11>(d, a, b, c, m[12], 0xe6db99e5);
    step<h, 16>(c, d, a, b, m[15], 0x1fa27cf8);
    step<h, 23>(b, c, d, a, m[2], 0xc4ac5665);

    step<i, 6>(a, b, c, d, m[0], 0xf4292244);
    step<i, 10>(d, a, b, c, m[7], 0x432aff97);
    step<i, 15>(c, d, a, b, m[14], 0xab9423a7);
    step<i, 21>(b, c, d, a, m[5], 0xfc93a039);
    step<i, 6>(a, b, c, d, m[12], 0x655b59c3);
    step<i, 10>(d, a, b, c, m[3], 0x8f0ccc92);
    step<i, 15>(c, d, a, b, m[10], 0xffeff47d);
    step<i, 21>(b, c, d, a, m[1], 0x85845dd1);
    step<i, 6>(a, b, c, d, m[8], 0x6fa87e4f);
    step<i, 10>(d, a, b, c, m[15], 0xfe2ce6e0);
    step<i, 15>(c, d, a, b, m[6], 0xa3014314);
    step<i, 21>(b, c, d, a, m[13], 0x4e0811a1);
    step<i, 6>(a, b, c, d, m[4], 0xf7537e82);
    step<i, 10>(d, a, b, c, m[11], 0xbd3af235);
    step<i, 15>(c, d, a, b, m[2], 0x2ad7d2bb);
    step<i, 21>(b, c, d, a, m[9], 0xeb86d391);

    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
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
    std::size_t index = (bitCount_[0] >> 3) % kBlockSize;

    const auto countedLength = static_cast<Word>(length);
    const Word countedBits = countedLength << 3;
    bitCount_[0] += countedBits;
    if (bitCount_[0] < countedBits)
        ++bitCount_[1];
    bitCount_[1] += countedLength >> 29;

    if (index != 0) {
        const std::size_t part = std::min(kBlockSize - index, length);
        std::memcpy(block_ + index, bytes, part);
        bytes += part;
        length -= part;
        if (index + part < kBlockSize)
            return;
        compress(state_, block_);
    }
    for (; length >= kBlockSize; length -= kBlockSize, bytes += kBlockSize)
        compress(state_, bytes);
    std::memcpy(block_, bytes, length);
}

void HashMD5_Calc::FinalizeHash(HashMD5& out) {
    unsigned char encodedCount[8];
    uint32ToByte(encodedCount, bitCount_, sizeof encodedCount);

    const std::size_t index = (bitCount_[0] >> 3) % kBlockSize;
    Update(kPadding,
           index < kLengthOffset ? kLengthOffset - index : kBlockSize + kLengthOffset - index);
    Update(encodedCount, sizeof encodedCount);
    uint32ToByte(out.bytes_, state_, sizeof out.bytes_);
}

HashMD5::HashMD5(const void* data, std::size_t length) {
    HashMD5_Calc calc;
    calc.Reset();
    calc.Update(data, length);
    calc.FinalizeHash(*this);
}

HashMD5::HashMD5(HashMD5_Calc& calc, bool finalizeInPlace) {
    if (finalizeInPlace) {
        calc.FinalizeHash(*this);
    } else {
        HashMD5_Calc copy = calc;
        copy.FinalizeHash(*this);
    }
}

char* HashMD5::ToCSTR(char* out, bool upperCase) const {
    return hex_text::write(bytes_, sizeof bytes_, out, upperCase);
}

bool HashMD5::Check(const char* text, bool upperCase) const {
    return hex_text::matches(bytes_, sizeof bytes_, text, upperCase);
}

bool HashMD5::operator==(const HashMD5& other) const {
    return std::memcmp(bytes_, other.bytes_, sizeof bytes_) == 0;
}

void uint32ToByte(unsigned char* out, unsigned int* in, unsigned int length) {
    std::memcpy(out, in, length); // x86-64 keeps words least significant byte first
}
