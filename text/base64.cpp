#include "text/base64.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

const char* Base64chars = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

namespace {

// The alphabet of the certificate encoder, which callers cannot change.
constexpr char basis_64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr char begin_cert[] = "-----BEGIN CERTIFICATE-----\r\n";
constexpr char end_cert[] = "-----END CERTIFICATE-----\r\n";

constexpr std::size_t kLineBytes = 48; // fill a line of 64 characters
constexpr std::string_view kLineEnd = "\r\n";

// Returns a length as the interface reports it.
int toResult(std::int64_t value) {
    using Int = std::numeric_limits<int>;
    return value < Int::min() || value > Int::max() ? -1 : static_cast<int>(value);
}

std::uint64_t encodedLength(std::uint64_t byteCount) {
    return (byteCount + 2) / 3 * 4;
}

char* encodeGroup(unsigned bytes, const char* alphabet, char* out) {
    for (int shift = 18; shift >= 0; shift -= 6)
        *out++ = alphabet[bytes >> shift & 63];
    return out;
}

// The two characters for each value of twelve bits, in memory order.
using Pairs = std::array<std::uint16_t, 4096>;

consteval Pairs makeStandardPairs() {
    Pairs pairs{};
    for (unsigned bits = 0; bits < pairs.size(); ++bits) {
        const auto first = static_cast<unsigned char>(basis_64[bits >> 6]);
        const auto second = static_cast<unsigned char>(basis_64[bits & 63]);
        pairs[bits] = static_cast<std::uint16_t>(first | second << 8);
    }
    return pairs;
}

constexpr Pairs kStandardPairs = makeStandardPairs();

// The rest of the bytes to encode, and their destination.
struct Encoding {
    const unsigned char* source;
    std::size_t length;
    char* out;
};

// Encodes two groups at a time in the standard alphabet, while eight bytes can be read.
void encodeStandardGroups(Encoding& work) {
    for (; work.length >= 8; work.source += 6, work.length -= 6, work.out += 8) {
        std::uint64_t bytes;
        std::memcpy(&bytes, work.source, sizeof bytes);
        bytes = __builtin_bswap64(bytes);
        const std::uint64_t text = std::uint64_t{kStandardPairs[bytes >> 52]} |
                                   std::uint64_t{kStandardPairs[bytes >> 40 & 4095]} << 16 |
                                   std::uint64_t{kStandardPairs[bytes >> 28 & 4095]} << 32 |
                                   std::uint64_t{kStandardPairs[bytes >> 16 & 4095]} << 48;
        std::memcpy(work.out, &text, sizeof text);
    }
}

// Writes the whole groups and the padded one, and returns their end.
char* encode(Encoding work, const char* alphabet) {
    if (std::strncmp(alphabet, basis_64, 64) == 0)
        encodeStandardGroups(work);
    auto [source, length, out] = work;
    for (; length >= 3; source += 3, length -= 3)
        out = encodeGroup(source[0] * 0x10000U + source[1] * 0x100U + source[2], alphabet, out);
    if (length > 0) {
        const unsigned second = length == 2 ? source[1] : 0;
        out = encodeGroup(source[0] * 0x10000U + second * 0x100U, alphabet, out);
        std::fill_n(out - (3 - length), 3 - length, '=');
    }
    return out;
}

// Returns true for the white space below 128: blank, and tab to carriage return.
bool isBlank(unsigned char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

const unsigned char* skipBlanks(const unsigned char* text) {
    while (isBlank(*text))
        ++text;
    return text;
}

// The position of each character in an alphabet, or -1.
using Positions = std::array<int, 256>;

constexpr Positions positionsIn(std::string_view alphabet) {
    Positions positions{};
    positions.fill(-1);
    for (std::size_t i = alphabet.size(); i-- > 0;)
        positions[static_cast<unsigned char>(alphabet[i])] = static_cast<int>(i);
    return positions;
}

constexpr Positions kStandardPositions = positionsIn(basis_64);

// White space and "=" keep their meaning in every alphabet.
void removeReserved(Positions& positions) {
    positions['='] = -1;
    for (unsigned char c = 0; c < 128; ++c) {
        if (isBlank(c))
            positions[c] = -1;
    }
}

// The bits of each character in the first to the fourth place of a group of 24 bits; kForeign for a
// character outside the alphabet.
using GroupBits = std::array<std::array<std::uint32_t, 256>, 4>;
constexpr std::uint32_t kForeign = 0x80000000;

constexpr GroupBits groupBitsOf(const Positions& positions) {
    GroupBits bits{};
    for (unsigned place = 0; place < 4; ++place) {
        for (unsigned c = 0; c < 256; ++c)
            bits[place][c] = positions[c] < 0
                                 ? kForeign
                                 : static_cast<std::uint32_t>(positions[c]) << (18 - 6 * place);
    }
    return bits;
}

constexpr GroupBits kStandardGroupBits = groupBitsOf(kStandardPositions);

std::uint32_t readGroup(const GroupBits& bits, const unsigned char* text) {
    std::uint32_t characters;
    std::memcpy(&characters, text, sizeof characters);
    return bits[0][static_cast<unsigned char>(characters)] |
           bits[1][static_cast<unsigned char>(characters >> 8)] |
           bits[2][static_cast<unsigned char>(characters >> 16)] | bits[3][characters >> 24];
}

bool isGroup(std::uint32_t bits) {
    return (bits & kForeign) == 0;
}

void storeGroup(std::uint32_t bits, unsigned char* out) {
    out[0] = static_cast<unsigned char>(bits >> 16);
    out[1] = static_cast<unsigned char>(bits >> 8);
    out[2] = static_cast<unsigned char>(bits);
}

// Decodes up to `count` groups of four characters, two at a time. Returns the number of groups
// before the first foreign character.
std::size_t decodeGroups(const GroupBits& bits, const unsigned char* text, std::size_t count,
                         unsigned char* out) {
    std::size_t taken = 0;
    for (; count - taken >= 2; taken += 2, text += 8, out += 6) {
        const std::uint32_t first = readGroup(bits, text);
        const std::uint32_t second = readGroup(bits, text + 4);
        if (!isGroup(first | second))
            break;
        const std::uint64_t bytes =
            __builtin_bswap64(std::uint64_t{first} << 40 | std::uint64_t{second} << 16);
        std::memcpy(out, &bytes, 6);
    }
    for (; taken < count; ++taken, text += 4, out += 3) {
        const std::uint32_t group = readGroup(bits, text);
        if (!isGroup(group))
            break;
        storeGroup(group, out);
    }
    return taken;
}

class Decoder {
public:
    // `groups` is null for an alphabet that does not have 64 characters.
    Decoder(const Positions& positions, const GroupBits* groups, unsigned char* destination,
            std::size_t size)
        : positions_(positions), groups_(groups), destination_(destination), size_(size) {}

    int decode(const unsigned char* text) {
        end_ = text + std::strlen(reinterpret_cast<const char*>(text));
        for (;; ++text) {
            text = skipBlanks(text);
            if (state_ == 0 && groups_ != nullptr)
                text = takeGroups(text);
            if (*text == '\0')
                return state_ == 0 ? toResult(count_) : -1;
            if (*text == '=')
                return finishPadded(text + 1);
            if (!isBlank(*text) && !take(positions_[*text]))
                return -1;
        }
    }

private:
    bool fits(std::size_t byteCount) const {
        return destination_ == nullptr || size_ - static_cast<std::size_t>(count_) >= byteCount;
    }

    // Decodes groups of four adjacent characters while the destination has room.
    const unsigned char* takeGroups(const unsigned char* text) {
        auto groups = static_cast<std::size_t>(end_ - text) / 4;
        if (destination_ != nullptr)
            groups = std::min(groups, (size_ - static_cast<std::size_t>(count_)) / 3);
        std::size_t taken = 0;
        if (destination_ == nullptr) {
            while (taken < groups && isGroup(readGroup(*groups_, text + 4 * taken)))
                ++taken;
        } else {
            taken = decodeGroups(*groups_, text, groups, destination_ + count_);
        }
        count_ += static_cast<std::int64_t>(3 * taken);
        return text + 4 * taken;
    }

    // Decodes the six bits of one character. The upper ones complete the byte of the character
    // before, the lower ones start the next byte.
    bool take(int position) {
        const bool ends = state_ > 0;
        const bool begins = state_ < 3;
        if (position < 0 || !fits(ends && begins ? 2 : 1))
            return false;
        const unsigned bits = static_cast<unsigned>(position);
        if (destination_ != nullptr && ends)
            destination_[count_] |= static_cast<unsigned char>(bits >> (6 - 2 * state_));
        count_ += ends ? 1 : 0;
        if (destination_ != nullptr && begins)
            destination_[count_] = static_cast<unsigned char>(bits << (2 + 2 * state_));
        state_ = (state_ + 1) % 4;
        return true;
    }

    // `text` follows the first "=".
    int finishPadded(const unsigned char* text) const {
        if (state_ < 2)
            return -1;
        text = skipBlanks(text);
        if (state_ == 2) {
            if (*text != '=')
                return -1;
            text = skipBlanks(text + 1);
        }
        const bool spareBits = destination_ != nullptr && destination_[count_] != 0;
        return *text != '\0' || spareBits ? -1 : toResult(count_);
    }

    const Positions& positions_;
    const GroupBits* groups_;
    const unsigned char* end_ = nullptr; // of the text
    unsigned char* destination_;         // null: counts only
    std::size_t size_;
    std::int64_t count_ = 0;
    unsigned state_ = 0; // number of decoded characters of the group of four
};

// Returns the base64 part of a certificate. `text` starts with the line feed after its first line.
std::string_view certificateBody(std::string_view text) {
    text.remove_suffix(1);
    if (!text.empty() && static_cast<unsigned char>(text.back()) <= ' ')
        text.remove_suffix(1);
    if (!text.empty() && text.back() == '-')
        text = text.substr(0, text.rfind('\n') + 1);
    return text;
}

} // namespace

int base64_encode(const unsigned char* source, unsigned int sourceLength, char* destination,
                  unsigned int destinationSize) {
    const std::uint64_t length = encodedLength(sourceLength);
    if (length >= destinationSize || length > std::numeric_limits<int>::max())
        return -1;
    *encode({source, sourceLength, destination}, Base64chars) = '\0';
    return static_cast<int>(length);
}

int base64_decode(const char* source, unsigned char* destination, unsigned int destinationSize) {
    const auto* const text = reinterpret_cast<const unsigned char*>(source);
    const std::string_view alphabet = Base64chars;
    if (alphabet == basis_64)
        return Decoder(kStandardPositions, &kStandardGroupBits, destination, destinationSize)
            .decode(text);
    Positions positions = positionsIn(alphabet);
    removeReserved(positions);
    if (alphabet.size() != 64)
        return Decoder(positions, nullptr, destination, destinationSize).decode(text);
    const GroupBits groups = groupBitsOf(positions);
    return Decoder(positions, &groups, destination, destinationSize).decode(text);
}

int base64_encode_cert_len_hf(int length, const char* header, const char* footer) {
    const std::int64_t framing =
        static_cast<std::int64_t>(std::strlen(header) + std::strlen(footer));
    return toResult(framing + ((std::int64_t{length} + 2) / 3 * 4 + 1) * 3);
}

int base64_encode_cert_len(int length) {
    return base64_encode_cert_len_hf(length, begin_cert, end_cert);
}

int base64_encode_cert_hf(const unsigned char* source, int length, char* destination,
                          const char* header, const char* footer) {
    const std::string_view first = header;
    const std::string_view last = footer;
    const std::size_t byteCount = static_cast<std::size_t>(std::max(length, 0));
    const std::size_t lineCount = (byteCount + kLineBytes - 1) / kLineBytes;
    const std::size_t total =
        first.size() + encodedLength(byteCount) + lineCount * kLineEnd.size() + last.size() + 1;
    if (total > std::numeric_limits<int>::max())
        return -1;

    char* out = std::copy(first.begin(), first.end(), destination);
    for (std::size_t done = 0; done < byteCount; done += kLineBytes) {
        out = encode({source + done, std::min(kLineBytes, byteCount - done), out}, basis_64);
        out = std::copy(kLineEnd.begin(), kLineEnd.end(), out);
    }
    *std::copy(last.begin(), last.end(), out) = '\0';
    return static_cast<int>(total);
}

int base64_encode_cert(const unsigned char* source, int length, char* destination) {
    return base64_encode_cert_hf(source, length, destination, begin_cert, end_cert);
}

bool is_base64_encoded_cert(const char* text, int length) {
    constexpr std::string_view keyStr = "BEGIN CERTIFICATE";
    int dashes = 0;
    while (dashes < length && text[dashes] == '-')
        ++dashes;
    return length - dashes >= 20 && std::equal(keyStr.begin(), keyStr.end(), text + dashes);
}

int base64_decode_cert(const char* text, int length, unsigned char* destination,
                       int destinationSize) {
    const std::string_view whole(text, static_cast<std::size_t>(std::max(length, 0)));
    const std::size_t firstLineEnd = whole.find('\n');
    if (firstLineEnd == std::string_view::npos)
        return -1;
    const std::string body(certificateBody(whole.substr(firstLineEnd)));
    return base64_decode(body.c_str(), destination,
                         static_cast<unsigned int>(std::max(destinationSize, 0)));
}
