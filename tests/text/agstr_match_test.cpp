#include "text/agstr.h"
#include "text/wildcard.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

bool matches(const std::string& pattern, const std::string& text) {
    return AGStr("anything").Match(pattern.c_str(), text.c_str());
}

// The rules said as they are read, without any thrift.
bool referenceMatches(const char* pattern, const char* text) {
    if (*pattern == '\0')
        return *text == '\0';
    if (*pattern == '*')
        return referenceMatches(pattern + 1, text) ||
               (*text != '\0' && referenceMatches(pattern, text + 1));
    return *text != '\0' && (*pattern == '?' || *pattern == *text) &&
           referenceMatches(pattern + 1, text + 1);
}

// As the base, but never of exactly its type.
struct Plain : AGStr {};

std::string repeated(const std::string& part, std::size_t times) {
    std::string result;
    for (std::size_t i = 0; i < times; ++i)
        result += part;
    return result;
}

TEST(AGStrMatch, MatchesWholeTexts) {
    EXPECT_TRUE(matches("", ""));
    EXPECT_FALSE(matches("", "x"));
    EXPECT_FALSE(matches("x", ""));
    EXPECT_TRUE(matches("abc", "abc"));
    EXPECT_FALSE(matches("abc", "abcd"));
    EXPECT_FALSE(matches("abcd", "abc"));
    EXPECT_FALSE(matches("abc", "aBc"));
}

TEST(AGStrMatch, TakesOneByteForAQuestionMark) {
    EXPECT_TRUE(matches("?", "x"));
    EXPECT_TRUE(matches("a?c", "abc"));
    EXPECT_TRUE(matches("?", "\xFF"));
    EXPECT_FALSE(matches("?", ""));
    EXPECT_FALSE(matches("?", "xy"));
    EXPECT_FALSE(matches("a?", "a"));
}

TEST(AGStrMatch, TakesAnyRunOfBytesForAStar) {
    EXPECT_TRUE(matches("*", ""));
    EXPECT_TRUE(matches("***", ""));
    EXPECT_TRUE(matches("*", "abc"));
    EXPECT_TRUE(matches("a*", "a"));
    EXPECT_TRUE(matches("*a", "bbaaa"));
    EXPECT_TRUE(matches("a*b?", "axxbc"));
    EXPECT_TRUE(matches("*.txt", "file.txt"));
    EXPECT_FALSE(matches("*.txt", "file.txt.bak"));
    EXPECT_TRUE(matches("*.txt*", "file.txt.bak"));
    EXPECT_FALSE(matches("*a", "ab"));
    EXPECT_FALSE(matches("a*", "ba"));
}

TEST(AGStrMatch, MixesStarsAndQuestionMarks) {
    for (const char* const pattern : {"*?", "?*", "*?*", "**?*"}) {
        EXPECT_FALSE(matches(pattern, "")) << pattern;
        EXPECT_TRUE(matches(pattern, "a")) << pattern;
        EXPECT_TRUE(matches(pattern, "ab")) << pattern;
    }
    EXPECT_FALSE(matches("?*?", "a"));
    EXPECT_TRUE(matches("?*?", "ab"));
}

TEST(AGStrMatch, KnowsNoEscapesAndNoClasses) {
    EXPECT_FALSE(matches("\\*", "*"));
    EXPECT_TRUE(matches("\\*", "\\abc"));
    EXPECT_FALSE(matches("[ab]", "a"));
    EXPECT_TRUE(matches("[ab]", "[ab]"));
}

TEST(AGStrMatch, AgreesWithTheRulesOnEveryShortPattern) {
    const auto words = [](const std::string& letters, std::size_t longest) {
        std::vector<std::string> all = {""};
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (all[i].size() < longest) {
                for (const char letter : letters)
                    all.push_back(all[i] + letter);
            }
        }
        return all;
    };
    const Plain plain;
    const std::vector<std::string> texts = words("ab", 5);
    for (const std::string& pattern : words("ab?*", 5)) {
        for (const std::string& text : texts) {
            const bool expected = referenceMatches(pattern.c_str(), text.c_str());
            ASSERT_EQ(matches(pattern, text), expected) << pattern << " " << text;
            ASSERT_EQ(plain.Match(pattern.c_str(), text.c_str()), expected)
                << pattern << " " << text;
        }
    }
}

TEST(AGStrMatch, AgreesWithTheRulesOnMillionsOfRandomCases) {
    std::mt19937 random(20240502);
    const auto word = [&random](const char* letters, unsigned kinds, unsigned longest) {
        std::string result(random() % (longest + 1), ' ');
        for (char& c : result)
            c = letters[random() % kinds];
        return result;
    };
    const AGStr exact;
    const Plain plain;
    for (int round = 0; round < 2000000; ++round) {
        const std::string pattern = word("ab*?", 4, 9);
        const std::string text = word("ab", 2, 12);
        const bool expected = referenceMatches(pattern.c_str(), text.c_str());
        ASSERT_EQ(exact.Match(pattern.c_str(), text.c_str()), expected) << pattern << " " << text;
        if (round % 16 == 0) {
            ASSERT_EQ(plain.Match(pattern.c_str(), text.c_str()), expected)
                << pattern << " " << text;
        }
    }
}

// Reads like a pointer, and counts.
class CountedText {
public:
    CountedText(const char* text, std::size_t& reads) : next_(text), reads_(&reads) {}
    char operator*() const {
        ++*reads_;
        return *next_;
    }
    CountedText& operator++() {
        ++next_;
        return *this;
    }

private:
    const char* next_;
    std::size_t* reads_;
};

TEST(AGStrMatch, ReadsEachByteAtMostTwiceForEachByteOfThePattern) {
    // The longer the parts between the stars, the more often the text is read again.
    for (const std::size_t part : {1U, 2U, 30U, 400U}) {
        const std::string text(1000, 'a');
        const std::string pattern = repeated("*" + std::string(part, 'a'), 800 / part) + "b";
        std::size_t reads = 0;
        EXPECT_FALSE(pelorikutil::wildcard::matches(pattern.c_str(),
                                                    CountedText(text.c_str(), reads), false));
        EXPECT_LE(reads, 2 * (pattern.size() + 1) * (text.size() + 1));
        EXPECT_GE(reads, text.size());
    }
}

// The calls that reach an overriding `Match`, and where they stood.
struct Counting : AGStr {
    bool Match(const char* pattern, const char* text) const override {
        seen.emplace_back(pattern, text);
        return AGStr::Match(pattern, text);
    }
    mutable std::vector<std::pair<std::string, std::string>> seen;
};

TEST(AGStrMatchInSubclasses, CallsMatchAtMostOnceForEachStarAndPosition) {
    const std::string text(60, 'a');
    for (const std::string ending : {"", "b"}) {
        Counting string;
        const bool expected = !ending.empty();
        EXPECT_EQ(string.Match("*a*a*a*a*a*a*a*a*b", (text + ending).c_str()), expected);
        EXPECT_LE(string.seen.size(), 1 + 9 * (text.size() + ending.size() + 1));
        std::sort(string.seen.begin(), string.seen.end());
        EXPECT_EQ(std::adjacent_find(string.seen.begin(), string.seen.end()), string.seen.end());
    }
}

// Ignores the case of letters by passing on changed copies.
struct IgnoringCase : AGStr {
    static std::string lower(std::string text) {
        for (char& c : text)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return text;
    }
    bool Match(const char* pattern, const char* text) const override {
        ++calls;
        return AGStr::Match(lower(pattern).c_str(), lower(text).c_str());
    }
    mutable std::size_t calls = 0;
};

TEST(AGStrMatchInSubclasses, RemembersFailuresOfChangedCopiesToo) {
    const IgnoringCase string;
    EXPECT_TRUE(string.Match("*B?*X", "aabCdx"));
    EXPECT_FALSE(string.Match("*B?*X", "aabCdy"));
    string.calls = 0;
    const std::string text = repeated("aA", 30);
    EXPECT_FALSE(string.Match("*A*a*A*a*A*a*A*a*b", text.c_str()));
    EXPECT_LE(string.calls, 1 + 9 * (text.size() + 1));
}

TEST(AGStrMatchInSubclasses, AgreesWithTheRulesOnRandomCopies) {
    std::mt19937 random(20240503);
    const IgnoringCase string;
    for (int round = 0; round < 20000; ++round) {
        std::string pattern(random() % 9, ' ');
        for (char& c : pattern)
            c = "aAbB*?*?"[random() % 8];
        std::string text(random() % 12, ' ');
        for (char& c : text)
            c = "aAbB"[random() % 4];
        const bool expected = referenceMatches(IgnoringCase::lower(pattern).c_str(),
                                               IgnoringCase::lower(text).c_str());
        ASSERT_EQ(string.Match(pattern.c_str(), text.c_str()), expected) << pattern << " " << text;
    }
}

TEST(AGStrMatchInSubclasses, TriesPositionsFromLeftToRight) {
    const Counting string;
    const char* pattern = "**?cd";
    const char* text = "abcdcd";
    EXPECT_TRUE(string.Scan(pattern, text));
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"cd", "bcdcd"}, {"cd", "cdcd"}, {"cd", "dcd"}, {"cd", "cd"}};
    EXPECT_EQ(string.seen, expected);
    EXPECT_STREQ(pattern, "");
    EXPECT_STREQ(text, "");
}

TEST(AGStrMatchInSubclasses, TakesTheRestForALastStarWithoutACall) {
    const Counting string;
    EXPECT_TRUE(string.Match("a**", "abc"));
    EXPECT_EQ(string.seen.size(), 1U);
}

TEST(AGStrScan, MovesBothPointersToTheEndsOrNeither) {
    const AGStr exact;
    const Plain plain;
    for (const AGStr* const string : {&exact, static_cast<const AGStr*>(&plain)}) {
        const char* pattern = "*c?";
        const char* text = "abccd";
        EXPECT_TRUE(string->Scan(pattern, text));
        EXPECT_STREQ(pattern, "");
        EXPECT_STREQ(text, "");
        for (const char* const refused : {"*x", "*?????c", "*??????", "*c"}) {
            pattern = refused;
            text = "abccd";
            EXPECT_FALSE(string->Scan(pattern, text)) << refused;
            EXPECT_EQ(pattern, refused);
            EXPECT_STREQ(text, "abccd");
        }
    }
}

// Answers `Scan` with what a test gave it.
struct Scanning : AGStr {
    explicit Scanning(bool (*answer)(const char*& pattern, const char*& text)) : answer_(answer) {}
    bool Scan(const char*& pattern, const char*& text) const override {
        return answer_(pattern, text);
    }
    bool (*answer_)(const char*& pattern, const char*& text);
};

TEST(AGStrMatchInSubclasses, EndsWhereAnOverridingScanRefuses) {
    const Scanning string([](const char*&, const char*&) { return false; });
    EXPECT_FALSE(string.Match("a*", "ab"));
    EXPECT_FALSE(string.Match("*", ""));
    EXPECT_TRUE(string.Match("a?", "ab"));
}

TEST(AGStrMatchInSubclasses, GoesOnWhereAnOverridingScanMovedTo) {
    // Here a star is one byte or two.
    const Scanning string([](const char*& pattern, const char*& text) {
        pattern += 1;
        text += text[1] == *pattern ? 1 : 2;
        return true;
    });
    EXPECT_TRUE(string.Match("a*c", "abc"));
    EXPECT_TRUE(string.Match("a*c*e", "abbcde"));
    EXPECT_FALSE(string.Match("a*c", "abbbc"));
}

TEST(AGStrMatchInSubclasses, EndsWhenAnOverridingScanStaysWhereItIs) {
    const Scanning string([](const char*&, const char*&) { return true; });
    EXPECT_FALSE(string.Match("a*", "ab"));
}

// Where a pointer stands says nothing about how far it was moved.
TEST(AGStrMatchInSubclasses, GoesOnInOtherTextsThatAnOverridingScanMovedTo) {
    static constexpr char texts[] = "\0*\0";
    const Scanning toTheLeft([](const char*& pattern, const char*& text) {
        pattern = texts;
        text = texts;
        return true;
    });
    const Scanning toTheRight([](const char*& pattern, const char*& text) {
        pattern = texts + 2;
        text = texts + 2;
        return true;
    });
    EXPECT_TRUE(toTheLeft.Match(texts + 1, "anything"));
    EXPECT_TRUE(toTheRight.Match(texts + 1, "anything"));
}

// Lets a digit in the pattern stand for any digit.
struct Digits : AGStr {
    bool Match(const char* pattern, const char* text) const override {
        for (; std::isdigit(static_cast<unsigned char>(*pattern)); ++pattern, ++text) {
            if (!std::isdigit(static_cast<unsigned char>(*text)))
                return false;
        }
        return AGStr::Match(pattern, text);
    }
};

TEST(AGStrMatchInSubclasses, CallsAnOverridingMatchBehindEachStar) {
    const Digits string;
    EXPECT_TRUE(string.Match("*0.txt", "file7.txt"));
    EXPECT_TRUE(string.Match("*00*1", "a35b9"));
    EXPECT_FALSE(string.Match("*00*1", "a35b"));
    EXPECT_FALSE(AGStr().Match("*0.txt", "file7.txt"));
}

// Matches something else with itself before it answers.
struct Distracted : AGStr {
    bool Match(const char* pattern, const char* text) const override {
        if (distracted)
            return AGStr::Match(pattern, text);
        distracted = true;
        const char* const other = *text == 'a' ? "bb" : "aa";
        const bool asExpected = AGStr::Match("*b", other) == (*other == 'b');
        distracted = false;
        return asExpected && AGStr::Match(pattern, text);
    }
    mutable bool distracted = false;
};

TEST(AGStrMatchInSubclasses, KeepsTextsApartThatAreMatchedInEachOther) {
    const Distracted string;
    EXPECT_TRUE(string.Match("*b*c", "aabaabc"));
    EXPECT_FALSE(string.Match("*b*c", "aabaab"));
}

// Matches another text with the end of the pattern before it answers.
struct Wandering : AGStr {
    bool Match(const char* pattern, const char* text) const override {
        if (!away) {
            away = true;
            found = AGStr::Match("*c", "abc");
            away = false;
        }
        return AGStr::Match(pattern, text);
    }
    mutable bool away = false;
    mutable bool found = false;
};

TEST(AGStrMatchInSubclasses, KeepsTextsApartThatAreMatchedWithTheSamePattern) {
    const Wandering string;
    EXPECT_FALSE(string.Match("*b*c", "aabaab"));
    EXPECT_TRUE(string.found);
    EXPECT_TRUE(string.Match("*b*c", "aabaac"));
}

// Before it matches the end "b" and so on of the pattern with the last two bytes of the text, looks
// for what follows behind both of them, in the empty text.
struct Hasty : Counting {
    bool Match(const char* pattern, const char* text) const override {
        if (*pattern == 'b' && std::strlen(text) == 2)
            AGStr::Match(pattern + 1, text + 2);
        return Counting::Match(pattern, text);
    }
};

TEST(AGStrMatchInSubclasses, RemembersNoMoreThanWhatFailed) {
    EXPECT_TRUE(Hasty().Match("*b*c", "abc"));
}

TEST(AGStrMatchInSubclasses, TriesOnlyThePositionsThatWereNotTried) {
    const Hasty string;
    EXPECT_FALSE(string.Match("*b*c", "abx"));
    std::vector<std::string> tried;
    for (const auto& [pattern, text] : string.seen) {
        if (pattern == "c")
            tried.push_back(text);
    }
    EXPECT_EQ(tried, (std::vector<std::string>{"", "x"}));
}

// How deep calls of it are nested.
struct Deep : AGStr {
    bool Match(const char* pattern, const char* text) const override {
        deepest = std::max(deepest, ++depth);
        const bool result = AGStr::Match(pattern, text);
        --depth;
        return result;
    }
    mutable std::size_t depth = 0;
    mutable std::size_t deepest = 0;
};

TEST(AGStrMatchInSubclasses, Compatibility_NestsAThousandCallsOfScanAndNoMore) {
    std::string pattern;
    for (int i = 0; i < 2000; ++i)
        pattern += "*a";
    const std::string text(2000, 'a');
    const Deep string;
    EXPECT_TRUE(string.Match(pattern.c_str(), text.c_str()));
    EXPECT_EQ(string.deepest, 1001u); // the outermost, and one for each call of Scan
}

// Asks another object before it answers, or refuses.
struct Asking : AGStr {
    explicit Asking(const AGStr* other) : other_(other) {}
    bool Match(const char* pattern, const char* text) const override {
        if (other_ == nullptr)
            return *pattern != 'b' && AGStr::Match(pattern, text);
        other_->Match(pattern, text);
        return AGStr::Match(pattern, text);
    }
    const AGStr* other_;
};

TEST(AGStrMatchInSubclasses, KeepsObjectsApart) {
    const Asking refusing(nullptr);
    const Asking string(&refusing);
    EXPECT_FALSE(refusing.Match("*a*b", "aab"));
    EXPECT_TRUE(string.Match("*a*b", "aab"));
}

// Lets another thread match the same texts, in which "b" does not match, during the first nested
// call.
struct Sharing : AGStr {
    bool Match(const char* pattern, const char* text) const override {
        if (std::this_thread::get_id() != home)
            return *pattern != 'b' && AGStr::Match(pattern, text);
        if (!shared && *pattern == 'a') {
            shared = true;
            std::thread([this] { EXPECT_FALSE(Match(kPattern, kText)); }).join();
        }
        return AGStr::Match(pattern, text);
    }
    static constexpr char kPattern[] = "*a*b";
    static constexpr char kText[] = "aab";
    const std::thread::id home = std::this_thread::get_id();
    mutable bool shared = false;
};

TEST(AGStrMatchInSubclasses, KeepsThreadsApart) {
    const Sharing string;
    EXPECT_TRUE(string.Match(Sharing::kPattern, Sharing::kText));
    EXPECT_TRUE(string.shared);
}

// Throws once.
struct Throwing : AGStr {
    bool Match(const char* pattern, const char* text) const override {
        if (!thrown && *text == 'b') {
            thrown = true;
            throw std::runtime_error("once");
        }
        return AGStr::Match(pattern, text);
    }
    mutable bool thrown = false;
};

TEST(AGStrMatchInSubclasses, ForgetsEverythingAfterAnException) {
    const Throwing string;
    EXPECT_THROW(string.Match("*a*c", "aabc"), std::runtime_error);
    EXPECT_TRUE(string.Match("*a*c", "aabc"));
    EXPECT_FALSE(string.Match("*a*c", "aabd"));
}

TEST(AGStrMatchInSubclasses, TakesPatternsOfAnyNumberOfStars) {
    for (const std::size_t many : {2000U, 200000U}) {
        const std::string pattern = repeated("*a", many);
        const std::string text(many, 'a');
        EXPECT_TRUE(Plain().Match(pattern.c_str(), text.c_str()));
        EXPECT_TRUE(matches(pattern, text));
        EXPECT_FALSE(matches(pattern, text.substr(1)));
        EXPECT_TRUE(matches(repeated("*", many), ""));
        if (many < 10000) {
            EXPECT_FALSE(Plain().Match(pattern.c_str(), text.c_str() + 1));
        }
    }
}

} // namespace
