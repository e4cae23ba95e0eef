#include "digest/gost3411.h"

#include "digest/hex_text.h"
#include "digest/wide_sum.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>

static_assert(std::endian::native == std::endian::little);

namespace {

constexpr std::size_t kBlockSize = 32;

// id-GostR3411-94-CryptoProParamSet. Row 0 stands for the least significant nibble of a word.
constexpr unsigned char S[8][16] = {{10, 4, 5, 6, 8, 1, 3, 7, 13, 12, 14, 0, 9, 2, 11, 15},
                                    {5, 15, 4, 0, 2, 13, 11, 9, 1, 7, 6, 3, 12, 14, 10, 8},
                                    {7, 15, 12, 14, 9, 4, 1, 0, 3, 11, 5, 2, 6, 10, 8, 13},
                                    {4, 10, 7, 12, 0, 15, 2, 8, 14, 1, 6, 5, 13, 11, 9, 3},
                                    {7, 6, 4, 11, 9, 12, 2, 10, 1, 8, 0, 14, 15, 13, 3, 5},
                                    {7, 6, 2, 4, 13, 9, 15, 0, 10, 1, 5, 11, 8, 14, 12, 3},
                                    {13, 14, 4, 1, 7, 0, 5, 10, 3, 12, 8, 15, 6, 2, 9, 11},
                                    {1, 3, 10, 9, 5, 11, 4, 15, 8, 6, 7, 14, 13, 0, 2, 12}};

using SubstitutionTable = std::array<std::array<std::uint32_t, 256>, 4>;

// Table k substitutes byte k of a word: both of its nibbles at once, already in their place in the
// word and rotated left by 11, so that a round only has to combine four entries.
constexpr SubstitutionTable makeSubstitutionTable() {
    SubstitutionTable table{};
    for (unsigned k = 0; k < 4; ++k) {
        for (unsigned byte = 0; byte < 256; ++byte) {
            const auto substituted =
                static_cast<std::uint32_t>(S[2 * k + 1][byte >> 4] << 4 | S[2 * k][byte & 15]);
            table[k][byte] = std::rotl(substituted << (8 * k), 11);
        }
    }
    return table;
}

constexpr SubstitutionTable SQ = makeSubstitutionTable();

// A 256-bit value, word 0 least significant.
struct Vector {
    std::uint64_t word[4];
};

Vector load(const unsigned char* bytes) {
    Vector v;
    std::memcpy(&v, bytes, sizeof v);
    return v;
}

Vector exclusiveOr(const Vector& x, const Vector& y) {
    return {{x.word[0] ^ y.word[0], x.word[1] ^ y.word[1], x.word[2] ^ y.word[2],
             x.word[3] ^ y.word[3]}};
}

// The standard's A.
Vector transformA(const Vector& y) {
    return {{y.word[1], y.word[2], y.word[3], y.word[0] ^ y.word[1]}};
}

// The standard's constant C3; C2 and C4 are zero.
constexpr Vector C3 = {
    {0xff00ff00ff00ff00, 0x00ff00ff00ff00ff, 0xff0000ff00ffff00, 0xff00ffff000000ff}};

// A key of the block cipher: its eight words in order of use.
struct Key {
    std::uint32_t word[8];
};

// The standard's P: byte i of the result is byte 8 (i mod 4) + (i div 4) of the value, so that key
// word j is made of byte j of each of the four quadwords.
Key transformP(const Vector& value) {
    Key key;
    for (unsigned j = 0; j < 8; ++j) {
        std::uint32_t word = 0;
        for (unsigned quadword = 0; quadword < 4; ++quadword)
            word |= static_cast<std::uint32_t>(value.word[quadword] >> (8 * j) & 0xff)
                    << (8 * quadword);
        key.word[j] = word;
    }
    return key;
}

void generateKeys(const Vector& h, const Vector& m, Key (&keys)[4]) {
    Vector u = h;
    Vector v = m;
    keys[0] = transformP(exclusiveOr(u, v));
    for (int j = 1; j < 4; ++j) {
        u = transformA(u);
        if (j == 2)
            u = exclusiveOr(u, C3);
        v = transformA(transformA(v));
        keys[j] = transformP(exclusiveOr(u, v));
    }
}

std::uint32_t substituteAndRotate(std::uint32_t x) {
    return SQ[0][x & 0xff] ^ SQ[1][x >> 8 & 0xff] ^ SQ[2][x >> 16 & 0xff] ^ SQ[3][x >> 24];
}

// The four encryptions of one step in GOST 28147-89 simple substitution. They do not depend on each
// other, so each round does all four side by side.
struct FourBlocks {
    std::uint32_t n1[4];
    std::uint32_t n2[4];

    void twoRounds(const Key (&keys)[4], unsigned first, unsigned second) {
        for (unsigned i = 0; i < 4; ++i)
            n2[i] ^= substituteAndRotate(n1[i] + keys[i].word[first]);
        for (unsigned i = 0; i < 4; ++i)
            n1[i] ^= substituteAndRotate(n2[i] + keys[i].word[second]);
    }
};

Vector encrypt(const Key (&keys)[4], const Vector& h) {
    FourBlocks blocks;
    for (unsigned i = 0; i < 4; ++i) {
        blocks.n1[i] = static_cast<std::uint32_t>(h.word[i]);
        blocks.n2[i] = static_cast<std::uint32_t>(h.word[i] >> 32);
    }
    for (int pass = 0; pass < 3; ++pass) {
        for (unsigned word = 0; word < 8; word += 2)
            blocks.twoRounds(keys, word, word + 1);
    }
    for (unsigned word = 8; word > 0; word -= 2)
        blocks.twoRounds(keys, word - 1, word - 2);

    // The last round does not swap the halves, which here have never moved.
    Vector s;
    for (unsigned i = 0; i < 4; ++i)
        s.word[i] = std::uint64_t{blocks.n1[i]} << 32 | blocks.n2[i];
    return s;
}

// The shift register of the standard's psi, sixteen 16-bit words long. A step appends a word and
// moves the window up by one instead of shifting 256 bits.
class MixingRegister {
public:
    explicit MixingRegister(const Vector& start) { std::memcpy(words_, &start, sizeof start); }

    void step(unsigned count) {
        for (; count > 0; --count, ++window_)
            window_[16] = static_cast<std::uint16_t>(window_[0] ^ window_[1] ^ window_[2] ^
                                                     window_[3] ^ window_[12] ^ window_[15]);
    }

    void add(const Vector& value) {
        std::uint16_t words[16];
        std::memcpy(words, &value, sizeof words);
        for (unsigned i = 0; i < 16; ++i)
            window_[i] = static_cast<std::uint16_t>(window_[i] ^ words[i]);
    }

    void store(unsigned char* out) const { std::memcpy(out, window_, kBlockSize); }

private:
    std::uint16_t words_[16 + 12 + 1 + 61];
    std::uint16_t* window_ = words_;
};

// The standard's step function: hash = psi^61(H ^ psi(M ^ psi^12(S))).
void stepFunction(unsigned char* hash, const unsigned char* block) {
    const Vector h = load(hash);
    const Vector m = load(block);
    Key keys[4];
    generateKeys(h, m, keys);

    MixingRegister mixing(encrypt(keys, h));
    mixing.step(12);
    mixing.add(m);
    mixing.step(1);
    mixing.add(h);
    mixing.step(61);
    mixing.store(hash);
}

void addToSum(unsigned char* sum, const unsigned char* block) {
    Vector total = load(sum);
    addWide(total.word, load(block).word);
    std::memcpy(sum, &total, sizeof total);
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
    for (; size >= kBlockSize; size -= kBlockSize, bytes += kBlockSize) {
        addToSum(sigma_, bytes);
        stepFunction(hash_, bytes);
    }
    if (size > 0) {
        unsigned char last[kBlockSize] = {};
        std::memcpy(last, bytes, size);
        addToSum(sigma_, last);
        stepFunction(hash_, last);
    }
}

void HashGOST3411_Calc::FinalizeHash(HashGOST3411& out) {
    const std::uint64_t bits = length_ * 8;
    unsigned char lengthBlock[kBlockSize] = {};
    std::memcpy(lengthBlock, &bits, sizeof bits);
    stepFunction(hash_, lengthBlock);

    std::memcpy(out.bytes_, hash_, sizeof out.bytes_);
    stepFunction(out.bytes_, sigma_);
}

HashGOST3411::HashGOST3411(const void* data, unsigned long size) {
    HashGOST3411_Calc calc;
    calc.Reset();
    calc.Update(data, size);
    calc.FinalizeHash(*this);
}

HashGOST3411::HashGOST3411(HashGOST3411_Calc& calc, bool consume) {
    if (consume) {
        calc.FinalizeHash(*this);
    } else {
        HashGOST3411_Calc copy = calc;
        copy.FinalizeHash(*this);
    }
}

char* HashGOST3411::ToCSTR(char* out, bool upperCase) const {
    return hex_text::write(bytes_, sizeof bytes_, out, upperCase);
}

bool HashGOST3411::Check(const char* text, bool upperCase) const {
    return hex_text::matches(bytes_, sizeof bytes_, text, upperCase);
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
