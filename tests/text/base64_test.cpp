#include "text/base64.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <tuple>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kUrlAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr char kBegin[] = "-----BEGIN CERTIFICATE-----\r\n";
constexpr char kEnd[] = "-----END CERTIFICATE-----\r\n";

static_assert(std::is_same_v<decltype(&base64_encode),
                             int (*)(const unsigned char*, unsigned int, char*, unsigned int)>);
static_assert(
    std::is_same_v<decltype(&base64_decode), int (*)(const char*, unsigned char*, unsigned int)>);
static_assert(
    std::is_same_v<decltype(&base64_encode_cert_len_hf), int (*)(int, const char*, const char*)>);
static_assert(std::is_same_v<decltype(&base64_encode_cert_len), int (*)(int)>);
static_assert(std::is_same_v<decltype(&base64_encode_cert_hf),
                             int (*)(const unsigned char*, int, char*, const char*, const char*)>);
static_assert(
    std::is_same_v<decltype(&base64_encode_cert), int (*)(const unsigned char*, int, char*)>);
static_assert(std::is_same_v<decltype(&is_base64_encoded_cert), bool (*)(const char*, int)>);
static_assert(
    std::is_same_v<decltype(&base64_decode_cert), int (*)(const char*, int, unsigned char*, int)>);
static_assert(std::is_same_v<decltype(Base64chars), const char*>);

// Points `Base64chars` at another alphabet for a while.
class Alphabet {
public:
    explicit Alphabet(const char* alphabet) { Base64chars = alphabet; }
    ~Alphabet() { Base64chars = before_; }
    Alphabet(const Alphabet&) = delete;
    Alphabet& operator=(const Alphabet&) = delete;

private:
    const char* const before_ = Base64chars;
};

Bytes patterned(std::size_t length) {
    Bytes bytes(length);
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<unsigned char>(i % 251);
    return bytes;
}

// The lines of tests/data/base64/lengths.txt: what python3 makes of `patterned(n)`, by n.
std::vector<std::string> patternedTexts() {
    std::ifstream file(PELORIK_TEST_DATA "/base64/lengths.txt");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (line[0] != '#')
            lines.push_back(line);
    }
    return lines;
}

unsigned sizeOf(std::size_t size) {
    return static_cast<unsigned>(size);
}

int lengthOf(std::string_view text) {
    return static_cast<int>(text.size());
}

// Exactly `size` elements on the heap, so that the sanitizer sees any write behind them.
template<class T>
std::unique_ptr<T[]> room(std::size_t size) {
    return std::make_unique<T[]>(size);
}

std::string encoded(const Bytes& bytes) {
    const std::size_t size = (bytes.size() + 2) / 3 * 4 + 1;
    const auto text = room<char>(size);
    const int length = base64_encode(bytes.data(), sizeOf(bytes.size()), text.get(), sizeOf(size));
    EXPECT_EQ(length, static_cast<int>(size) - 1);
    EXPECT_EQ(std::strlen(text.get()), size - 1);
    return text.get();
}

int decode(const std::string& text, Bytes& bytes) {
    bytes.assign(text.size() + 1, 0xAA);
    const int length = base64_decode(text.c_str(), bytes.data(), sizeOf(bytes.size()));
    bytes.resize(static_cast<std::size_t>(std::max(length, 0)));
    return length;
}

int decodedLength(const std::string& text) {
    Bytes bytes;
    return decode(text, bytes);
}

int measured(const std::string& text) {
    return base64_decode(text.c_str(), nullptr, 0);
}

// The rules of RFC 4648 said another way: the whole text first, then its bits.
int referenceDecode(const std::string& text, bool checkSpareBits, Bytes& bytes) {
    std::string body;
    for (const char c : std::string(text.c_str())) {
        if (std::strchr(" \t\n\v\f\r", c) == nullptr)
            body.push_back(c);
    }
    const std::string padding = body.substr(std::min(body.find('='), body.size()));
    body.resize(body.size() - padding.size());
    if (body.size() % 4 == 1 || padding != std::string((4 - body.size() % 4) % 4, '='))
        return -1;
    std::string bits;
    for (const char c : body) {
        const std::size_t value = std::string_view(kAlphabet).find(c);
        if (value == std::string_view::npos)
            return -1;
        for (unsigned bit = 6; bit-- > 0;)
            bits.push_back((value >> bit & 1) != 0 ? '1' : '0');
    }
    const std::string spare = bits.substr(bits.size() / 8 * 8);
    if (checkSpareBits && spare.find('1') != std::string::npos)
        return -1;
    bytes.clear();
    for (std::size_t i = 0; i + 8 <= bits.size(); i += 8)
        bytes.push_back(static_cast<unsigned char>(std::stoi(bits.substr(i, 8), nullptr, 2)));
    return static_cast<int>(bytes.size());
}

// Compares a decoding, and a measuring, with the reference.
void expectAsReference(const std::string& text) {
    Bytes expected;
    Bytes actual;
    const int length = referenceDecode(text, true, expected);
    ASSERT_EQ(decode(text, actual), length) << testing::PrintToString(text);
    ASSERT_EQ(measured(text), referenceDecode(text, false, expected))
        << testing::PrintToString(text);
    if (length >= 0) {
        ASSERT_EQ(actual, expected) << testing::PrintToString(text);
    }
}

TEST(Base64Encode, WritesTheVectorsOfRfc4648Section10) {
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
    };
    for (const auto& [plain, text] : vectors) {
        const Bytes bytes(plain, plain + std::strlen(plain));
        EXPECT_EQ(encoded(bytes), text);
        Bytes back;
        EXPECT_EQ(decode(text, back), static_cast<int>(bytes.size()));
        EXPECT_EQ(back, bytes);
    }
}

TEST(Base64Encode, AgreesWithPythonOnEveryLengthTo300) {
    const std::vector<std::string> texts = patternedTexts();
    ASSERT_EQ(texts.size(), 301U);
    for (std::size_t n = 0; n < texts.size(); ++n)
        EXPECT_EQ(encoded(patterned(n)), texts[n]) << n;
}

TEST(Base64Encode, NeedsRoomForTheTextAndTheNul) {
    for (std::size_t n = 0; n < 20; ++n) {
        const Bytes bytes = patterned(n);
        const std::size_t length = (n + 2) / 3 * 4;
        for (std::size_t size = 0; size < length + 4; ++size) {
            const auto text = room<char>(size);
            const int result = base64_encode(bytes.data(), sizeOf(n), text.get(), sizeOf(size));
            EXPECT_EQ(result, size > length ? static_cast<int>(length) : -1) << n << " " << size;
        }
    }
}

TEST(Base64Encode, WritesOnlyTheNulForNoBytes) {
    char text[2] = {'x', 'y'};
    EXPECT_EQ(base64_encode(nullptr, 0, text, 1), 0);
    EXPECT_EQ(text[0], '\0');
    EXPECT_EQ(text[1], 'y');
    EXPECT_EQ(base64_encode(nullptr, 0, nullptr, 0), -1);
}

TEST(Base64Encode, RefusesWhatAnIntCannotCountBeforeItTouchesAnything) {
    // 4 * ceil(1610612734 / 3) is 2^31.
    for (const unsigned length : {1610612734U, 0x80000000U, 0xBFFFFFFFU, 0xC0000000U, UINT_MAX})
        EXPECT_EQ(base64_encode(nullptr, length, nullptr, UINT_MAX), -1) << length;
}

TEST(Base64Decode, TakesEveryLengthTo300) {
    const std::vector<std::string> texts = patternedTexts();
    for (std::size_t n = 0; n < texts.size(); ++n) {
        Bytes bytes;
        EXPECT_EQ(decode(texts[n], bytes), static_cast<int>(n));
        EXPECT_EQ(bytes, patterned(n));
        EXPECT_EQ(measured(texts[n]), static_cast<int>(n));
    }
}

// Bytes behind which nothing can be read.
class AtTheEndOfMemory {
public:
    AtTheEndOfMemory(const void* bytes, std::size_t size)
        : start_(static_cast<char*>(mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE,
                                         MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))),
          bytes_(start_ + kPage - size) {
        std::memcpy(bytes_, bytes, size);
        mprotect(start_ + kPage, kPage, PROT_NONE);
    }
    ~AtTheEndOfMemory() { munmap(start_, 2 * kPage); }
    AtTheEndOfMemory(const AtTheEndOfMemory&) = delete;
    AtTheEndOfMemory& operator=(const AtTheEndOfMemory&) = delete;

    const char* text() const { return bytes_; }
    const unsigned char* data() const { return reinterpret_cast<const unsigned char*>(bytes_); }

private:
    static constexpr std::size_t kPage = 4096;
    char* start_;
    char* bytes_;
};

TEST(Base64, ReadsNothingBehindItsInput) {
    const std::vector<std::string> texts = patternedTexts();
    for (std::size_t n = 1; n < 50; ++n) {
        const AtTheEndOfMemory bytes(patterned(n).data(), n);
        char text[100];
        EXPECT_EQ(base64_encode(bytes.data(), sizeOf(n), text, sizeof text), lengthOf(texts[n]));

        const AtTheEndOfMemory whole(texts[n].c_str(), texts[n].size() + 1);
        unsigned char back[100];
        EXPECT_EQ(base64_decode(whole.text(), back, sizeof back), static_cast<int>(n));
        EXPECT_EQ(base64_decode(whole.text(), nullptr, 0), static_cast<int>(n));
        const std::string half = texts[n].substr(0, texts[n].size() - 3);
        const AtTheEndOfMemory cut(half.c_str(), half.size() + 1);
        EXPECT_EQ(base64_decode(cut.text(), back, sizeof back), -1);
        EXPECT_EQ(base64_decode(cut.text(), nullptr, 0), -1);
    }
}

TEST(Base64Decode, AgreesWithTheRulesOnEveryOneByteCorruption) {
    const std::string samples[] = {patternedTexts()[25], patternedTexts()[26], patternedTexts()[27],
                                   "Zm9v Ym\r\nFy Zg = =\n"};
    for (const std::string& sample : samples) {
        for (std::size_t at = 0; at < sample.size(); ++at) {
            for (int value = 0; value < 256; ++value) {
                std::string text = sample;
                text[at] = static_cast<char>(value);
                expectAsReference(text);
            }
        }
    }
}

TEST(Base64Decode, AgreesWithTheRulesOnRandomTexts) {
    std::mt19937 random(20240501);
    const std::string characters = std::string(kAlphabet) + "======  \n\r\t\v\f-_\x80\xFF";
    std::uniform_int_distribution<std::size_t> length(0, 24);
    // Most characters are plain, so that most texts get past their first group.
    std::discrete_distribution<std::size_t> anyCharacter(characters.size(), 0, 1,
                                                         [](double x) { return x < 0.8 ? 4 : 1; });
    for (int round = 0; round < 50000; ++round) {
        std::string text(length(random), ' ');
        std::generate(text.begin(), text.end(), [&] { return characters[anyCharacter(random)]; });
        expectAsReference(text);
    }
}

TEST(Base64Decode, SkipsWhiteSpaceAnywhere) {
    EXPECT_EQ(decodedLength(" Z\tg\n=\v=\f\r"), 1);
    EXPECT_EQ(decodedLength(" \t\n\v\f\r"), 0);
    EXPECT_EQ(decodedLength("Zm9\r\nv"), 3);
}

TEST(Base64Decode, RefusesCharactersAbove127Anywhere) {
    // 0x85 and 0xA0 are white space in some of the character sets of old.
    for (const char* const text : {"\x80", "Zm9v\x85", "Zg=\xA0=", "Zg==\xA0", "\xFFZm9v"}) {
        EXPECT_EQ(decodedLength(text), -1);
        EXPECT_EQ(measured(text), -1);
    }
}

TEST(Base64Decode, RefusesUnfinishedGroupsAndPadding) {
    for (const char* const text : {"Z", "Zg", "Zm9", "Zg=", "=", "==", "Z=", "Z===", "Zm9v=",
                                   "Zg==Zg==", "Zm8=Z", "Zm8==", "Zg===", "Zg=x="}) {
        EXPECT_EQ(decodedLength(text), -1) << text;
        EXPECT_EQ(measured(text), -1) << text;
    }
}

TEST(Base64Decode, Compatibility_NeedsOneByteMoreForPaddedText) {
    for (const auto& [text, needed] :
         {std::pair("", 0U), std::pair("Zm9v", 3U), std::pair("Zg==", 2U), std::pair("Zm8=", 3U),
          std::pair("Zm9vZm9v", 6U), std::pair("Zm9vZg==", 5U), std::pair("Zm9vZm8=", 6U),
          std::pair("Zm9vZm9vZm9vZm9v Zm9vZm9vZm9v", 21U),
          std::pair("Zm9vZm9vZm9vZm9vZm9vZg==", 17U)}) {
        for (unsigned size = 0; size < needed + 5; ++size) {
            const auto bytes = room<unsigned char>(size);
            EXPECT_EQ(base64_decode(text, bytes.get(), size), size >= needed ? measured(text) : -1)
                << text << " " << size;
        }
    }
}

TEST(Base64Decode, Compatibility_ChecksTheSpareBitsOnlyWithADestination) {
    EXPECT_EQ(decodedLength("Zh=="), -1);
    EXPECT_EQ(measured("Zh=="), 1);
    EXPECT_EQ(decodedLength("Zm9="), -1);
    EXPECT_EQ(measured("Zm9="), 2);
}

TEST(Base64Decode, LeavesWhatStandsBehindTheDecodedBytes) {
    unsigned char bytes[4] = {9, 9, 9, 9};
    EXPECT_EQ(base64_decode("Zm9v", bytes, 4), 3);
    EXPECT_EQ(bytes[3], 9);
}

TEST(Base64Decode, WritesNothingBehindADestinationThatIsTooSmall) {
    unsigned char bytes[4] = {9, 9, 9, 9};
    EXPECT_EQ(base64_decode("Zm9vYmFy", bytes, 3), -1);
    EXPECT_EQ(bytes[3], 9);
}

TEST(Base64Decode, NeedsNoMoreRoomForAGroupWithABlankInIt) {
    unsigned char bytes[4] = {9, 9, 9, 9};
    EXPECT_EQ(base64_decode("Zm9 v", bytes, 3), 3);
    EXPECT_EQ(bytes[2], 'o');
    EXPECT_EQ(bytes[3], 9);
}

TEST(Base64Chars, IsNotTakenForTheStandardOneThatItResembles) {
    char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::swap(alphabet[0], alphabet[1]);
    const Alphabet swapped(alphabet);
    const unsigned char zeros[12] = {}; // more than the standard alphabet's own road needs
    char text[17];
    EXPECT_EQ(base64_encode(zeros, sizeof zeros, text, sizeof text), 16);
    EXPECT_STREQ(text, "BBBBBBBBBBBBBBBB");
}

// More characters than there is memory for: one stretch of 'A's, mapped again and again. What is
// written to a shared one is written to every stretch.
class ManyCharacters {
public:
    ManyCharacters(std::size_t length, int sharing) : size_((length / kStretch + 1) * kStretch) {
        const int file = memfd_create("text", 0);
        const std::string stretch(kStretch, 'A');
        EXPECT_EQ(write(file, stretch.data(), kStretch), static_cast<ssize_t>(kStretch));
        start_ = static_cast<char*>(
            mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
        for (std::size_t at = 0; at < size_; at += kStretch)
            mmap(start_ + at, kStretch, PROT_READ | PROT_WRITE, sharing | MAP_FIXED, file, 0);
        close(file);
    }
    ~ManyCharacters() { munmap(start_, size_); }
    ManyCharacters(const ManyCharacters&) = delete;
    ManyCharacters& operator=(const ManyCharacters&) = delete;

    char* data() const { return start_; }

private:
    static constexpr std::size_t kStretch = std::size_t{1} << 24;
    std::size_t size_;
    char* start_;
};

class LongText : public ManyCharacters {
public:
    explicit LongText(std::size_t length) : ManyCharacters(length, MAP_PRIVATE) {
        data()[length] = '\0';
    }

    const char* text() const { return data(); }
};

TEST(Base64Decode, RefusesWhatAnIntCannotCount) {
#ifdef PELORIK_SANITIZED
    GTEST_SKIP() << "reads three thousand million characters, too slow under a sanitizer";
#endif
    // 2^31 - 1 bytes take 2863311529 characters and one byte's padding; a group more is too many.
    constexpr std::size_t fitting = 2863311528;
    const LongText tooLong(fitting + 4);
    EXPECT_EQ(base64_decode(tooLong.text(), nullptr, 0), -1);
    EXPECT_EQ(base64_decode(tooLong.text() + 4, nullptr, 0), 2147483646);
}

TEST(Base64Chars, RedirectsBothDirectionsAtOnce) {
    const Bytes bytes = {0xFB, 0xEF, 0xFF};
    EXPECT_EQ(encoded(bytes), "++//");
    {
        const Alphabet url(kUrlAlphabet);
        EXPECT_EQ(encoded(bytes), "--__");
        Bytes back;
        EXPECT_EQ(decode("--__", back), 3);
        EXPECT_EQ(back, bytes);
        EXPECT_EQ(decodedLength("++//"), -1);
    }
    EXPECT_EQ(decodedLength("++//"), 3);
    EXPECT_EQ(decodedLength("--__"), -1);
}

TEST(Base64Chars, MayPointAtAnAlphabetThatChanges) {
    std::string alphabet = kAlphabet;
    const Alphabet own(alphabet.c_str());
    EXPECT_EQ(decodedLength("AAA+"), 3);
    std::swap(alphabet[0], alphabet[63]);
    EXPECT_EQ(encoded({0, 0, 0}), "////");
    Bytes bytes;
    EXPECT_EQ(decode("A///", bytes), 3);
    EXPECT_EQ(bytes, (Bytes{0xFC, 0, 0}));
}

TEST(Base64Chars, KeepsTheMeaningOfWhiteSpaceAndPadding) {
    const std::string alphabet = std::string(kAlphabet, 62) + " =";
    const Alphabet own(alphabet.c_str());
    EXPECT_EQ(decodedLength("AA ==AAA"), -1);
    EXPECT_EQ(decodedLength("A A "), -1);
    EXPECT_EQ(decodedLength("A A = ="), 1);
}

TEST(Base64Chars, MayBeShorterForDecoding) {
    const Alphabet own("ABCDEFGHIJKLMNOPQRSTUVWXYZ234567");
    Bytes bytes;
    EXPECT_EQ(decode("Q777", bytes), 3); // 16, 31, 31, 31
    EXPECT_EQ(bytes, (Bytes{16 << 2 | 31 >> 4, 0xFF & (31 << 4 | 31 >> 2), 0xFF & (31 << 6 | 31)}));
    EXPECT_EQ(decodedLength("AAAa"), -1);
    const Alphabet none("");
    EXPECT_EQ(decodedLength("A"), -1);
    EXPECT_EQ(decodedLength(" "), 0);
}

// A character's value is its position, of which a byte takes what it has room for.
TEST(Base64Chars, MayBeLongerForDecoding) {
    const Alphabet own("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/-");
    const std::pair<const char*, Bytes> texts[] = {
        {"-AAA", {0, 0, 0}}, {"A-AA", {4, 0, 0}}, {"AA-A", {0, 16, 0}}, {"AAA-", {0, 0, 64}}};
    for (const auto& [text, expected] : texts) {
        Bytes bytes;
        EXPECT_EQ(decode(text, bytes), 3);
        EXPECT_EQ(bytes, expected) << text;
    }
    Bytes bytes;
    EXPECT_EQ(decode("AAAA-AAA", bytes), 6);
    EXPECT_EQ(bytes, Bytes(6)) << "nothing of a group reaches the one before";
}

TEST(Base64Chars, TakesTheFirstOfEqualCharacters) {
    std::string alphabet = kAlphabet;
    alphabet[63] = 'B';
    const Alphabet own(alphabet.c_str());
    Bytes bytes;
    EXPECT_EQ(decode("BBBB", bytes), 3);
    EXPECT_EQ(bytes, (Bytes{0x04, 0x10, 0x41})); // 1, 1, 1, 1
}

TEST(Base64Chars, MayHoldCharactersAbove127) {
    std::string alphabet = kAlphabet;
    alphabet[0] = '\xE4';
    const Alphabet own(alphabet.c_str());
    EXPECT_EQ(encoded({0, 0, 0}), "\xE4\xE4\xE4\xE4");
    EXPECT_EQ(decodedLength("\xE4\xE4\xE4\xE4"), 3);
    EXPECT_EQ(decodedLength("\xE4\xE4\xE4\xA0"), -1);
}

// The framed text that `base64` makes in lines of 64 characters.
std::string framed(std::string base64, const std::string& header, const std::string& footer) {
    std::string text = header;
    for (; !base64.empty(); base64.erase(0, 64))
        text += base64.substr(0, 64) + "\r\n";
    return text + footer;
}

std::string certificate(const Bytes& bytes) {
    const int length = static_cast<int>(bytes.size());
    const auto text = room<char>(static_cast<std::size_t>(base64_encode_cert_len(length)));
    const int written = base64_encode_cert(bytes.data(), length, text.get());
    EXPECT_EQ(written, lengthOf(text.get()) + 1);
    return text.get();
}

TEST(CertificateLength, Compatibility_IsTheGenerousBoundThatCallersRelyOn) {
    EXPECT_EQ(base64_encode_cert_len(0), 29 + 27 + 3);
    EXPECT_EQ(base64_encode_cert_len(1), 56 + (4 + 1) * 3);
    EXPECT_EQ(base64_encode_cert_len(48), 56 + (64 + 1) * 3);
    EXPECT_EQ(base64_encode_cert_len(49), 56 + (68 + 1) * 3);
    EXPECT_EQ(base64_encode_cert_len_hf(3, "ab", "c"), 3 + (4 + 1) * 3);
}

TEST(CertificateLength, DividesNegativeLengthsTowardsZero) {
    EXPECT_EQ(base64_encode_cert_len_hf(-10, "", ""), (-8 / 3 * 4 + 1) * 3);
    EXPECT_EQ(base64_encode_cert_len(-2), 59);
}

TEST(CertificateLength, IsMinusOneWhereItDoesNotFit) {
    // 56 + (4 * 178956965 + 1) * 3 is 2147483639, and a group more is too many.
    EXPECT_EQ(base64_encode_cert_len(536870895), 2147483639);
    for (const int length : {536870896, INT_MAX - 2, INT_MAX - 1, INT_MAX, INT_MIN})
        EXPECT_EQ(base64_encode_cert_len(length), -1) << length;
}

TEST(CertificateEncode, BreaksLinesAt64CharactersForEveryLengthTo300) {
    const std::vector<std::string> texts = patternedTexts();
    for (std::size_t n = 0; n < texts.size(); ++n)
        EXPECT_EQ(certificate(patterned(n)), framed(texts[n], kBegin, kEnd)) << n;
}

TEST(CertificateEncode, WritesNoEmptyLine) {
    EXPECT_EQ(certificate({}), std::string(kBegin) + kEnd);
    const std::string line(64, 'A');
    EXPECT_EQ(certificate(Bytes(48)), kBegin + line + "\r\n" + kEnd);
    EXPECT_EQ(certificate(Bytes(49)), kBegin + line + "\r\nAA==\r\n" + kEnd);
}

TEST(CertificateEncode, TakesAnyFraming) {
    const Bytes bytes = {'f', 'o', 'o'};
    char text[64];
    EXPECT_EQ(base64_encode_cert_hf(bytes.data(), 3, text, "<", ">"), 9);
    EXPECT_STREQ(text, "<Zm9v\r\n>");
    EXPECT_EQ(base64_encode_cert_hf(bytes.data(), 3, text, "", ""), 7);
    EXPECT_STREQ(text, "Zm9v\r\n");
}

TEST(CertificateEncode, CountsANegativeLengthAsNone) {
    char text[64];
    for (const int length : {-1, -2, INT_MIN}) {
        EXPECT_EQ(base64_encode_cert(nullptr, length, text), 57);
        EXPECT_EQ(text, std::string(kBegin) + kEnd);
    }
}

TEST(CertificateEncode, RefusesWhatAnIntCannotCountBeforeItTouchesAnything) {
    // 32537630 whole lines of 66 characters, a line of 8 and the frame are 2^31 - 1 characters.
    EXPECT_EQ(base64_encode_cert(nullptr, 32537630 * 48 + 7, nullptr), -1);
    EXPECT_EQ(base64_encode_cert(nullptr, INT_MAX, nullptr), -1);
}

TEST(CertificateEncode, WritesAsMuchAsAnIntCanCount) {
#ifdef PELORIK_SANITIZED
    GTEST_SKIP() << "copies two thousand million characters, too slow under a sanitizer";
#endif
    constexpr std::size_t longest = INT_MAX - 1; // without the NUL
    const LongText header(longest);
    const ManyCharacters out(longest + 1, MAP_SHARED);
    EXPECT_EQ(base64_encode_cert_hf(nullptr, 0, out.data(), header.text(), ""), INT_MAX);
    EXPECT_EQ(base64_encode_cert_hf(nullptr, 0, nullptr, header.text(), "-"), -1);
}

TEST(CertificateEncode, NeverLooksAtTheRedirectedAlphabet) {
    const Alphabet url(kUrlAlphabet);
    const Bytes bytes = {0xFB, 0xEF, 0xFF};
    const std::string text = certificate(bytes);
    EXPECT_EQ(text, framed("++//", kBegin, kEnd));
    EXPECT_EQ(base64_decode_cert(text.c_str(), lengthOf(text), nullptr, 0), -1);
}

bool isCertificate(const std::string& text) {
    // Without a NUL behind it.
    const auto copy = room<char>(text.size());
    std::copy(text.begin(), text.end(), copy.get());
    return is_base64_encoded_cert(copy.get(), lengthOf(text));
}

TEST(IsCertificate, LooksAt17CharactersBehindAnyNumberOfDashes) {
    EXPECT_TRUE(isCertificate("-----BEGIN CERTIFICATE-----"));
    EXPECT_TRUE(isCertificate("BEGIN CERTIFICATE-----"));
    EXPECT_TRUE(isCertificate("-BEGIN CERTIFICATExyz"));
    EXPECT_TRUE(isCertificate(std::string(1000, '-') + "BEGIN CERTIFICATE\r\n\r\n"));
    EXPECT_FALSE(isCertificate("-----BEGIN CERTIFICATF-----"));
    EXPECT_FALSE(isCertificate("-----BEGIN X509 CERTIFICATE-----"));
    EXPECT_FALSE(isCertificate(" -----BEGIN CERTIFICATE-----"));
    EXPECT_FALSE(isCertificate("-----begin certificate-----"));
}

TEST(IsCertificate, NeedsTwentyCharactersBehindTheDashes) {
    const std::string text = "--BEGIN CERTIFICATE-----";
    EXPECT_FALSE(isCertificate(text.substr(0, 2 + 17)));
    EXPECT_FALSE(isCertificate(text.substr(0, 2 + 19)));
    EXPECT_TRUE(isCertificate(text.substr(0, 2 + 20)));
    for (const int length : {0, -1, INT_MIN})
        EXPECT_FALSE(is_base64_encoded_cert(text.c_str(), length));
    EXPECT_FALSE(isCertificate(std::string(30, '-')));
}

int decodeCertificate(const std::string& text, Bytes& bytes) {
    const auto copy = room<char>(text.size());
    std::copy(text.begin(), text.end(), copy.get());
    bytes.assign(text.size() + 1, 0xAA);
    const int length =
        base64_decode_cert(copy.get(), lengthOf(text), bytes.data(), lengthOf(text) + 1);
    bytes.resize(static_cast<std::size_t>(std::max(length, 0)));
    return length;
}

int decodedCertificateLength(const std::string& text) {
    Bytes bytes;
    return decodeCertificate(text, bytes);
}

TEST(CertificateDecode, ReadsBackEveryLengthTo300) {
    for (std::size_t n = 0; n <= 300; ++n) {
        const Bytes bytes = patterned(n);
        Bytes back;
        EXPECT_EQ(decodeCertificate(certificate(bytes), back), static_cast<int>(n));
        EXPECT_EQ(back, bytes);
    }
}

TEST(CertificateDecode, TakesLinesThatEndWithLineFeedsOnly) {
    EXPECT_EQ(decodedCertificateLength("-----BEGIN-----\nZm9v\nZm9v\n-----END-----\n"), 6);
    EXPECT_EQ(decodedCertificateLength("anything at all\nZm9v\n-----END-----"), 3);
}

TEST(CertificateDecode, TakesTextWithoutALastLine) {
    EXPECT_EQ(decodedCertificateLength("\nZm9v\n"), 3);
    EXPECT_EQ(decodedCertificateLength("\nZm9v \n"), 3);
    EXPECT_EQ(decodedCertificateLength("\nZm9v\n\n\n\n"), 3);
}

TEST(CertificateDecode, GivesMinusOneWithoutALineFeed) {
    EXPECT_EQ(decodedCertificateLength(""), -1);
    EXPECT_EQ(decodedCertificateLength("-----BEGIN CERTIFICATE-----"), -1);
    const char text[] = "a\n";
    EXPECT_EQ(base64_decode_cert(text, 1, nullptr, 0), -1);
    EXPECT_EQ(base64_decode_cert(text, 0, nullptr, 0), -1);
    EXPECT_EQ(base64_decode_cert(text, -1, nullptr, 0), -1);
}

TEST(CertificateDecode, GivesNothingForAnEmptyBody) {
    for (const char* const text : {"\n", "a\n", "a\nb", "\n b", "\n\nb", "\n-b", "\n-\nb",
                                   "a\n-----END-----", "a\n-----END-----\r\n"})
        EXPECT_EQ(decodedCertificateLength(text), 0) << testing::PrintToString(text);
}

TEST(CertificateDecode, Compatibility_NeverLooksAtTheVeryLastCharacter) {
    for (const char last : {'-', '\n', 'x', '\0', '\xFF'})
        EXPECT_EQ(decodedCertificateLength(std::string("\nZm9v") + last), 3);
    EXPECT_EQ(decodedCertificateLength("\nZm9vZ"), 3);
    EXPECT_EQ(decodedCertificateLength("\nZm9v\n-----END----x"), 3);
}

TEST(CertificateDecode, Compatibility_DropsOneWhiteSpaceOrControlCharacterOnly) {
    const std::string text = "\nZm9v\n-----END-----";
    for (int value = 0; value < 256; ++value) {
        const int expected = value <= ' ' || value == '-' ? 3 : -1;
        EXPECT_EQ(decodedCertificateLength(text + static_cast<char>(value) + "\n"), expected)
            << value;
    }
    EXPECT_EQ(decodedCertificateLength(text + "\r\n"), 3);
    EXPECT_EQ(decodedCertificateLength(text + "\n\r\n"), -1);
}

TEST(CertificateDecode, EndsAtANul) {
    EXPECT_EQ(decodedCertificateLength(std::string("\nZm9v\0!!!!\n", 11)), 3);
}

TEST(CertificateDecode, RefusesWhatBase64DecodeRefuses) {
    EXPECT_EQ(decodedCertificateLength("\nZm9\n-----END-----\n"), -1);
    EXPECT_EQ(decodedCertificateLength("\nZm!v\n-----END-----\n"), -1);
    EXPECT_EQ(decodedCertificateLength("\nZh==\n-----END-----\n"), -1);
    EXPECT_EQ(base64_decode_cert("\nZh==\n-\n", 8, nullptr, 0), 1);
}

TEST(CertificateDecode, NeedsRoomAsBase64DecodeDoes) {
    const std::string text = "\nZm9vZg==\n-\n";
    for (const int size : {INT_MIN, -1, 0, 4}) {
        const auto bytes = room<unsigned char>(4);
        EXPECT_EQ(base64_decode_cert(text.c_str(), lengthOf(text), bytes.get(), size), -1);
    }
    const auto bytes = room<unsigned char>(5);
    EXPECT_EQ(base64_decode_cert(text.c_str(), lengthOf(text), bytes.get(), 5), 4);
}

} // namespace
