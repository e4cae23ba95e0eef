#include "tests/support/array_new.h"
#include "tests/support/fault_injection.h"
#include "text/agstr.h"

#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::string_view_literals;

constexpr std::size_t kHuge = SIZE_MAX;

// A string whose bytes are exactly `text`, NULs included.
AGStr whole(std::string_view text) {
    AGStr result;
    for (const char c : text)
        result += c;
    return result;
}

std::string_view textOf(const AGStr& string) {
    return {static_cast<const char*>(string), string.GetLength()};
}

std::size_t blockSize(const AGStr& string) {
    return support::arraySize(static_cast<const char*>(string));
}

// Expects the text, with a NUL behind it, in a block of exactly that size.
void expectText(const AGStr& string, std::string_view expected) {
    EXPECT_EQ(textOf(string), expected);
    EXPECT_EQ(blockSize(string), expected.size() + 1);
    EXPECT_EQ(static_cast<const char*>(string)[expected.size()], '\0');
}

void expectNoBlock(const AGStr& string) {
    EXPECT_EQ(string.GetLength(), 0U);
    EXPECT_EQ(blockSize(string), 0U);
    EXPECT_STREQ(string, "");
}

// How many arrays `change` allocates.
template<class Change>
std::size_t allocations(Change change) {
    const std::size_t before = support::madeArrays();
    change();
    return support::madeArrays() - before;
}

// The types that callers may rely on.
static_assert(std::is_same_v<decltype(&AGStr::VarToString), void (AGStr::*)(double)>);
static_assert(std::is_same_v<decltype(&AGStr::MakeUpper), void (AGStr::*)()>);
static_assert(std::is_same_v<decltype(&AGStr::MakeLower), void (AGStr::*)()>);
static_assert(std::is_same_v<decltype(&AGStr::MakeReverse), void (AGStr::*)()>);
static_assert(std::is_same_v<decltype(&AGStr::GetLength), std::size_t (AGStr::*)() const>);
static_assert(
    std::is_same_v<decltype(&AGStr::Delete), std::size_t (AGStr::*)(std::size_t, std::size_t)>);
static_assert(
    std::is_same_v<decltype(&AGStr::Match), bool (AGStr::*)(const char*, const char*) const>);
static_assert(
    std::is_same_v<decltype(&AGStr::Scan), bool (AGStr::*)(const char*&, const char*&) const>);
static_assert(std::is_same_v<decltype(&AGStr::toStr), AGStr& (AGStr::*)(AGStr&) const>);
static_assert(std::is_same_v<decltype(&AGStr::CompareNoCase), int (AGStr::*)(const char*) const>);
static_assert(std::is_same_v<decltype(&AGStr::NumericParse), bool (AGStr::*)(void*, char) const>);
static_assert(std::is_same_v<decltype(std::declval<AGStr&>().Remove('a')), std::size_t>);
static_assert(std::is_same_v<decltype(std::declval<AGStr&>().Replace("a", "b")), std::size_t>);
static_assert(std::is_same_v<decltype(std::declval<AGStr&>().Insert(0, "b")), std::size_t>);
static_assert(std::is_same_v<decltype(std::declval<AGStr&>().Find('a')), int>);
static_assert(std::is_same_v<decltype(std::declval<AGStr&>() = 1), AGStr&>);
static_assert(std::is_same_v<decltype(std::declval<AGStr&>() += 1.0), AGStr&>);
static_assert(std::is_same_v<decltype(std::declval<const AGStr&>()[0]), char>);
static_assert(std::is_same_v<decltype(std::declval<AGStr&>()[0]), char&>);

// The slot of a virtual operation, which the Itanium C++ ABI writes into a pointer to it as 1 plus
// the slot's offset.
template<class Operation>
std::size_t slotOf(Operation operation) {
    std::size_t offset = 0;
    std::memcpy(&offset, &operation, sizeof offset);
    EXPECT_EQ(offset % sizeof(void*), 1U);
    return offset / sizeof(void*);
}

TEST(AGStrLayout, HasItsVirtualOperationsInThisOrderBehindTwoDestructors) {
    EXPECT_EQ(slotOf(static_cast<bool (AGStr::*)(const char*) const>(&AGStr::operator!=)), 2U);
    EXPECT_EQ(slotOf(static_cast<bool (AGStr::*)(const char*) const>(&AGStr::operator==)), 3U);
    EXPECT_EQ(slotOf(&AGStr::CompareNoCase), 4U);
    EXPECT_EQ(slotOf(&AGStr::toStr), 5U);
    EXPECT_EQ(slotOf(&AGStr::Match), 6U);
    EXPECT_EQ(slotOf(&AGStr::Scan), 7U);
    EXPECT_EQ(slotOf(&AGStr::VarToString), 8U);
}

struct Fields : AGStr {
    using AGStr::AGStr;
    using AGStr::buffer;
    using AGStr::length;
};

TEST(AGStrLayout, HoldsTheLengthAndThenTheBuffer) {
    Fields string("abc");
    const char* const start = reinterpret_cast<const char*>(&string);
    EXPECT_EQ(reinterpret_cast<const char*>(&string.length) - start, 8);
    EXPECT_EQ(reinterpret_cast<const char*>(&string.buffer) - start, 16);
    EXPECT_EQ(sizeof(AGStr), 24U);
    EXPECT_EQ(string.length, 3U);
    EXPECT_STREQ(string.buffer, "abc");
    EXPECT_EQ(Fields().buffer, nullptr);
    EXPECT_EQ(Fields().length, 0U);
}

TEST(AGStrConstruction, LeavesNoBlockForNothing) {
    const char* const null = nullptr;
    expectNoBlock(AGStr());
    expectNoBlock(AGStr(null));
    expectNoBlock(AGStr("abc", 0));
    expectNoBlock(AGStr(null, 0));
    expectNoBlock(AGStr(null, 5));
}

TEST(AGStrConstruction, CopiesTexts) {
    expectText(AGStr("abc"), "abc");
    expectText(AGStr(""), "");
    expectText(AGStr("abcdef", 3), "abc");
}

TEST(AGStrConstruction, Compatibility_FillsUpWithNulsWhenTheTextIsShorter) {
    expectText(AGStr("abc", 5), "abc\0\0"sv);
    expectText(AGStr("", 2), "\0\0"sv);
    expectText(AGStr("a\0b", 3), "a\0\0"sv);
}

TEST(AGStrConstruction, TakesOneByteThatMayBeZero) {
    expectText(AGStr('x'), "x");
    expectText(AGStr('\0'), "\0"sv);
    expectText(AGStr('\xFF'), "\xFF");
}

TEST(AGStrConstruction, PrintsNumbers) {
    expectText(AGStr(0), "0");
    expectText(AGStr(INT_MIN), "-2147483648");
    expectText(AGStr(INT_MAX), "2147483647");
    expectText(AGStr(4294967295U), "4294967295");
    expectText(AGStr(1.5), "1.5");
}

TEST(AGStrConstruction, CopiesStringsUpToTheirFirstNul) {
    const AGStr abc("abc");
    expectText(AGStr(abc), "abc");
    const AGStr withNul = whole("ab\0c"sv);
    const AGStr copy(withNul);
    expectText(copy, "ab");
    const AGStr none;
    const AGStr copyOfNone(none);
    expectText(copyOfNone, "");
}

TEST(AGStrAssignment, LeavesNoBlockForANullPointer) {
    AGStr string("abc");
    string = static_cast<const char*>(nullptr);
    expectNoBlock(string);
}

TEST(AGStrAssignment, OfNothingLeavesTheLengthZeroForSubclasses) {
    Fields string("abc");
    static_cast<AGStr&>(string) = static_cast<const char*>(nullptr);
    EXPECT_EQ(string.length, 0U);
    EXPECT_EQ(string.buffer, nullptr);
    string.GetBufferSetLength(3);
    string.Format("%s", "");
    EXPECT_EQ(string.length, 0U);
    EXPECT_EQ(string.buffer, nullptr);
}

TEST(AGStrAssignment, CopiesTexts) {
    AGStr string;
    EXPECT_EQ(&(string = "abc"), &string);
    expectText(string, "abc");
    expectText(string = "", "");
    expectText(string = 'x', "x");
    expectText(string = '\0', "\0"sv);
}

TEST(AGStrAssignment, CopiesStringsUpToTheirFirstNul) {
    AGStr string("abc");
    expectText(string = whole("x\0y"sv), "x");
    expectText(string = AGStr(), "");
}

TEST(AGStrAssignment, PrintsNumbers) {
    AGStr string;
    expectText(string = -7, "-7");
    expectText(string = 4294967295U, "4294967295");
    expectText(string = 0.1, "0.1");
}

TEST(AGStrAssignment, TakesItsOwnText) {
    AGStr string("abcdef");
    const AGStr& same = string;
    expectText(string = same, "abcdef");
    expectText(string = static_cast<const char*>(same) + 2, "cdef");
    expectText(string = same[1], "d");
    AGStr withNul = whole("a\0b"sv);
    const AGStr& sameWithNul = withNul;
    expectText(withNul = sameWithNul, "a");
}

TEST(AGStrAppending, AppendsWhatAStringOfTheArgumentHolds) {
    AGStr string;
    EXPECT_EQ(&(string += "ab"), &string);
    expectText(string, "ab");
    expectText(string += 'c', "abc");
    expectText(string += AGStr("de"), "abcde");
    expectText(string += -1, "abcde-1");
    expectText(string += 2U, "abcde-12");
    expectText(string += 0.5, "abcde-120.5");
}

TEST(AGStrAppending, WorksByLength) {
    AGStr string = whole("a\0"sv);
    expectText(string += whole("\0b"sv), "a\0\0b"sv);
    expectText(string += '\0', "a\0\0b\0"sv);
    expectText(string += "c", "a\0\0b\0c"sv);
}

TEST(AGStrAppending, ChangesNothingForAnEmptyRightSide) {
    AGStr none;
    none += "";
    none += static_cast<const char*>(nullptr);
    none += AGStr();
    none += AGStr("");
    expectNoBlock(none);
    AGStr some("abc");
    const char* const before = some;
    some += AGStr("");
    some += "";
    EXPECT_EQ(some.GetChar(), before);
    expectText(some, "abc");
}

TEST(AGStrAppending, TakesItsOwnText) {
    AGStr string("abc");
    const AGStr& same = string;
    expectText(string += same, "abcabc");
    expectText(string += static_cast<const char*>(same) + 4, "abcabcbc");
    expectText(string += same[0], "abcabcbca");
}

TEST(AGStrAppending, WritesToAnotherString) {
    AGStr destination("ab");
    const AGStr source = whole("c\0d"sv);
    EXPECT_EQ(&source.toStr(destination), &destination);
    expectText(destination, "abc\0d"sv);
    destination.toStr(destination);
    expectText(destination, "abc\0dabc\0d"sv);
}

TEST(AGStrConcatenation, AppendsToACopyOfTheLeftSide) {
    const AGStr abc("abc");
    expectText(abc + AGStr("d"), "abcd");
    expectText(abc + 'd', "abcd");
    expectText(abc + "d", "abcd");
    expectText(abc + 7U, "abc7");
    expectText(abc + -7, "abc-7");
    expectText(abc + 0.5, "abc0.5");
    expectText(0.5 + abc, "0.5abc");
    expectText("d" + abc, "dabc");
    expectText('d' + abc, "dabc");
    expectText(abc, "abc");
}

TEST(AGStrConcatenation, CutsTheLeftSideAtItsFirstNulOnly) {
    const AGStr withNul = whole("a\0b"sv);
    expectText(withNul + withNul, "aa\0b"sv);
    expectText('\0' + withNul, "\0a\0b"sv);
}

TEST(AGStrConcatenation, OfEmptyTextsIsEmpty) {
    expectText(AGStr() + AGStr(), "");
    expectText(AGStr() + static_cast<const char*>(nullptr), "");
    expectText("" + AGStr(), "");
    expectNoBlock(static_cast<const char*>(nullptr) + AGStr());
}

TEST(AGStrAccess, ReadsBytesAndZeroBehindThem) {
    const AGStr abc("abc");
    EXPECT_EQ(abc[0], 'a');
    EXPECT_EQ(abc[2], 'c');
    EXPECT_EQ(abc[3], '\0');
    EXPECT_EQ(abc[4], '\0');
    EXPECT_EQ(abc[kHuge], '\0');
    const AGStr none;
    EXPECT_EQ(none[0], '\0');
    EXPECT_EQ(none[kHuge], '\0');
}

TEST(AGStrAccess, WritesBytes) {
    AGStr string("abc");
    const char* const before = string;
    string[1] = 'x';
    EXPECT_EQ(string.GetChar(), before);
    expectText(string, "axc");
}

TEST(AGStrAccess, Compatibility_GrowsWithBlanksWhereItIsWritten) {
    AGStr string("ab");
    string[10] = 'x';
    expectText(string, "ab        x");
    AGStr none;
    none[2] = 'x';
    expectText(none, "  x");
    AGStr empty("");
    EXPECT_EQ(empty[0], ' ');
    expectText(empty, " ");
}

TEST(AGStrAccess, Compatibility_GrowsByReadingTheEndOfAStringThatIsNotConst) {
    AGStr string("abc");
    EXPECT_EQ(string[3], ' ');
    expectText(string, "abc ");
}

TEST(AGStrAccess, NeverGivesANullPointer) {
    AGStr none;
    const AGStr& same = none;
    EXPECT_STREQ(none.GetChar(), "");
    EXPECT_STREQ(static_cast<char*>(none), "");
    EXPECT_STREQ(static_cast<const char*>(same), "");
    expectNoBlock(none);
    AGStr some("abc");
    EXPECT_STREQ(some.GetChar(), "abc");
    EXPECT_EQ(static_cast<char*>(some), some.GetChar());
}

TEST(AGStrComparison, Compatibility_TellsAnEmptyStringFromAnEmptyText) {
    for (const AGStr& empty : {AGStr(), AGStr("")}) {
        EXPECT_FALSE(empty == "");
        EXPECT_TRUE(empty != "");
        EXPECT_TRUE(empty == nullptr);
        EXPECT_FALSE(empty != nullptr);
        EXPECT_TRUE(empty != "abc");
    }
    EXPECT_TRUE(AGStr("abc") != nullptr);
    EXPECT_FALSE(AGStr("abc") == nullptr);
}

TEST(AGStrComparison, ComparesCStrings) {
    const AGStr abc("abc");
    EXPECT_TRUE(abc == "abc");
    EXPECT_TRUE(abc != "abd");
    EXPECT_TRUE(abc != "ab");
    EXPECT_TRUE(abc != "abcd");
    EXPECT_TRUE(abc != "ABC");
    EXPECT_TRUE(abc != "");
    EXPECT_TRUE(whole("ab\0c"sv) == "ab");
    EXPECT_TRUE(AGStr('\0') == "");
}

TEST(AGStrComparison, TakesAStringOnTheRightForItsText) {
    EXPECT_TRUE(AGStr("abc") == AGStr("abc"));
    EXPECT_TRUE(AGStr("abc") != AGStr("abd"));
    EXPECT_TRUE(whole("a\0b"sv) == AGStr("a"));
    EXPECT_TRUE(AGStr("a") == whole("a\0b"sv));
    EXPECT_TRUE(AGStr('\0') == AGStr());
}

TEST(AGStrComparison, Compatibility_FindsTwoEmptyStringsDifferent) {
    const AGStr none;
    EXPECT_TRUE(none != AGStr());
    EXPECT_TRUE(none != none);
    EXPECT_FALSE(none == none);
    EXPECT_TRUE(AGStr("") != AGStr(""));
}

TEST(AGStrComparison, IgnoresCase) {
    EXPECT_EQ(AGStr("aBc").CompareNoCase("AbC"), 0);
    EXPECT_LT(AGStr("abc").CompareNoCase("ABD"), 0);
    EXPECT_GT(AGStr("abd").CompareNoCase("ABC"), 0);
    EXPECT_EQ(AGStr().CompareNoCase(nullptr), 0);
    EXPECT_EQ(AGStr("").CompareNoCase(nullptr), 0);
    EXPECT_EQ(AGStr().CompareNoCase(""), 1);
    EXPECT_EQ(AGStr("").CompareNoCase("abc"), 1);
    EXPECT_EQ(AGStr("abc").CompareNoCase(nullptr), 1);
}

TEST(AGStrBuffer, GetsAnyLength) {
    AGStr string("abc");
    const char* const grown = string.GetBufferSetLength(5);
    EXPECT_EQ(grown, string.GetChar());
    expectText(string, "abc  ");
    string.GetBufferSetLength(2);
    expectText(string, "ab");
    AGStr none;
    none.GetBufferSetLength(2);
    expectText(none, "  ");
    AGStr withNul = whole("a\0bc"sv);
    withNul.GetBufferSetLength(5);
    expectText(withNul, "a\0bc "sv);
    withNul.GetBufferSetLength(3);
    expectText(withNul, "a\0b"sv);
}

TEST(AGStrBuffer, IsTheSameForTheSameLength) {
    AGStr string("abc");
    const char* const before = string;
    EXPECT_EQ(string.GetBufferSetLength(3), before);
    expectText(string, "abc");
}

TEST(AGStrBuffer, Compatibility_IgnoresTheLengthZero) {
    AGStr string("abc");
    EXPECT_EQ(string.GetBufferSetLength(0), nullptr);
    expectText(string, "abc");
    AGStr none;
    EXPECT_EQ(none.GetBufferSetLength(0), nullptr);
    expectNoBlock(none);
}

TEST(AGStrBuffer, TakesItsLengthFromWhatWasWritten) {
    AGStr string;
    std::strcpy(string.GetBufferSetLength(10), "abc");
    string.SetLengthByBuffer();
    EXPECT_EQ(textOf(string), "abc");
    string += "d";
    expectText(string, "abcd");
    *string.GetChar() = '\0';
    string.SetLengthByBuffer();
    EXPECT_EQ(string.GetLength(), 0U);
    EXPECT_TRUE(string == nullptr);
    AGStr none;
    none.SetLengthByBuffer();
    expectNoBlock(none);
}

TEST(AGStrParts, TakesTheMiddle) {
    const AGStr string("abcdef");
    expectText(string.Mid(1, 3), "bcd");
    expectText(string.Mid(1), "bcdef");
    expectText(string.Mid(5, 1), "f");
    expectText(string.Mid(0, 6), "abcdef");
    expectText(string.Mid(0), "abcdef");
    expectText(string.Mid(0, 2), "ab");
}

TEST(AGStrParts, CutsOffWhereTheStringEnds) {
    const AGStr string("abcdef");
    expectText(string.Mid(4, 100), "ef");
    expectText(string.Mid(4, kHuge), "ef");
    expectText(string.Mid(0, kHuge), "abcdef");
    for (const std::size_t start : {std::size_t{6}, std::size_t{7}, kHuge}) {
        expectNoBlock(string.Mid(start));
        expectNoBlock(string.Mid(start, 1));
        expectNoBlock(string.Mid(start, kHuge));
    }
    expectNoBlock(string.Mid(2, 0));
}

TEST(AGStrParts, TakesBothEnds) {
    const AGStr string("abc");
    expectText(string.Left(2), "ab");
    expectText(string.Left(3), "abc");
    expectText(string.Left(kHuge), "abc");
    expectNoBlock(string.Left(0));
    expectText(string.Right(2), "bc");
    expectText(string.Right(3), "abc");
    expectText(string.Right(kHuge), "abc");
    expectNoBlock(string.Right(0));
}

TEST(AGStrParts, OfAnEmptyStringAreCopiesOrNothing) {
    const AGStr none;
    expectText(none.Left(0), "");
    expectText(none.Right(5), "");
    expectText(none.Mid(0, 5), "");
    expectNoBlock(none.Mid(1));
    expectText(none.SpanIncluding("abc"), "");
    expectText(none.SpanExcluding("abc"), "");
}

TEST(AGStrParts, AreFilledUpWithNulsBehindANul) {
    const AGStr string = whole("ab\0cd"sv);
    expectText(string.Mid(1, 3), "b\0\0"sv);
    expectText(string.Left(4), "ab\0\0"sv);
    expectText(string.Right(2), "cd");
    expectText(string.Left(5), "ab");
    expectText(string.Mid(3), "cd");
}

TEST(AGStrParts, SpansSets) {
    const AGStr string("aabbcc");
    expectText(string.SpanIncluding("ab"), "aabb");
    expectText(string.SpanIncluding("abc"), "aabbcc");
    expectNoBlock(string.SpanIncluding("x"));
    expectNoBlock(string.SpanIncluding(""));
    expectText(string.SpanExcluding("c"), "aabb");
    expectText(string.SpanExcluding("x"), "aabbcc");
    expectText(string.SpanExcluding(""), "aabbcc");
    expectNoBlock(string.SpanExcluding("a"));
    expectText(whole("ab\0c"sv).SpanExcluding("c"), "ab");
}

TEST(AGStrEditing, ChangesCase) {
    AGStr string = whole("aZ\0[`{@bY9"sv);
    string.MakeUpper();
    expectText(string, "AZ\0[`{@BY9"sv);
    string.MakeLower();
    expectText(string, "az\0[`{@by9"sv);
}

TEST(AGStrEditing, GivesBytesAbove127ToTheCharacterClassesUnsigned) {
    AGStr string;
    for (int c = 128; c < 256; ++c)
        string += static_cast<char>(c);
    const std::string before(textOf(string));
    string.MakeUpper();
    string.MakeLower();
    expectText(string, before); // in the locale "C" they are no letters
}

TEST(AGStrEditing, Reverses) {
    for (const auto& [text, reversed] :
         {std::pair("abc"sv, "cba"sv), std::pair("abcd"sv, "dcba"sv), std::pair("a"sv, "a"sv),
          std::pair("a\0bc"sv, "cb\0a"sv)}) {
        AGStr string = whole(text);
        string.MakeReverse();
        expectText(string, reversed);
    }
}

TEST(AGStrEditing, InPlaceLeavesEmptyStringsAlone) {
    AGStr none;
    none.MakeUpper();
    none.MakeLower();
    none.MakeReverse();
    EXPECT_EQ(none.Replace('a', 'b'), 0U);
    EXPECT_EQ(none.Remove('a'), 0U);
    EXPECT_EQ(none.Remove('\0'), 0U);
    EXPECT_EQ(none.Delete(0, 1), 0U);
    expectNoBlock(none);
}

TEST(AGStrInsert, PutsAByteAnywhere) {
    AGStr string;
    EXPECT_EQ(string.Insert(0, 'b'), 1U);
    EXPECT_EQ(string.Insert(0, 'a'), 2U);
    EXPECT_EQ(string.Insert(2, 'd'), 3U);
    EXPECT_EQ(string.Insert(2, 'c'), 4U);
    expectText(string, "abcd");
    EXPECT_EQ(string.Insert(1, '\0'), 5U);
    expectText(string, "a\0bcd"sv);
}

TEST(AGStrInsert, FillsTheGapToAByteWithBlanks) {
    AGStr string("ab");
    EXPECT_EQ(string.Insert(4, 'x'), 5U);
    expectText(string, "ab  x");
    AGStr none;
    EXPECT_EQ(none.Insert(1, 'x'), 2U);
    expectText(none, " x");
}

TEST(AGStrInsert, PutsATextAnywhere) {
    AGStr string;
    EXPECT_EQ(string.Insert(0, "ef"), 2U);
    EXPECT_EQ(string.Insert(0, "ab"), 4U);
    EXPECT_EQ(string.Insert(2, "cd"), 6U);
    EXPECT_EQ(string.Insert(6, "g"), 7U);
    expectText(string, "abcdefg");
}

TEST(AGStrInsert, FillsTheGapToATextWithBlanks) {
    AGStr string("ab");
    EXPECT_EQ(string.Insert(4, "xy"), 6U);
    expectText(string, "ab  xy");
    AGStr none;
    EXPECT_EQ(none.Insert(2, "xy"), 4U);
    expectText(none, "  xy");
}

TEST(AGStrInsert, ChangesNothingForAnEmptyText) {
    AGStr string("ab");
    for (const char* const text : {"", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(string.Insert(1, text), 2U);
        EXPECT_EQ(string.Insert(kHuge, text), 2U);
    }
    expectText(string, "ab");
    AGStr none;
    EXPECT_EQ(none.Insert(5, ""), 0U);
    expectNoBlock(none);
}

TEST(AGStrInsert, Compatibility_EndsTheTextAtItsFirstNul) {
    AGStr string = whole("ab\0cd"sv);
    EXPECT_EQ(string.Insert(1, "x"), 3U);
    expectText(string, "axb");
    AGStr behind = whole("ab\0cd"sv);
    EXPECT_EQ(behind.Insert(5, "x"), 2U);
    expectText(behind, "ab");
}

TEST(AGStrInsert, PutsATextRightInFrontOfANul) {
    AGStr string = whole("ab\0cd"sv);
    EXPECT_EQ(string.Insert(2, "x"), 3U);
    expectText(string, "abx");
    AGStr rightBehind = whole("ab\0cd"sv);
    EXPECT_EQ(rightBehind.Insert(3, "x"), 2U);
    expectText(rightBehind, "ab");
    AGStr farBehind = whole("ab\0cd"sv);
    EXPECT_EQ(farBehind.Insert(9, "x"), 2U);
    expectText(farBehind, "ab");
}

TEST(AGStrInsert, TakesItsOwnText) {
    AGStr string("abc");
    EXPECT_EQ(string.Insert(1, string.GetChar()), 6U);
    expectText(string, "aabcbc");
    EXPECT_EQ(string.Insert(8, string.GetChar() + 4), 10U);
    expectText(string, "aabcbc  bc");
    const AGStr& same = string;
    string.Insert(0, same[9]);
    expectText(string, "caabcbc  bc");
}

TEST(AGStrDelete, CutsBytesOut) {
    AGStr string("abcdef");
    EXPECT_EQ(string.Delete(1, 2), 4U);
    expectText(string, "adef");
    EXPECT_EQ(string.Delete(3, 1), 3U);
    expectText(string, "ade");
    EXPECT_EQ(string.Delete(1, kHuge), 1U);
    expectText(string, "a");
    EXPECT_EQ(string.Delete(0, 1), 0U);
    expectText(string, "");
}

TEST(AGStrDelete, ChangesNothingBehindTheEndOrForNothing) {
    AGStr string("abc");
    const char* const before = string;
    EXPECT_EQ(string.Delete(3, 1), 3U);
    EXPECT_EQ(string.Delete(kHuge, kHuge), 3U);
    EXPECT_EQ(string.Delete(1, 0), 3U);
    EXPECT_EQ(string.GetChar(), before);
    AGStr empty("");
    EXPECT_EQ(empty.Delete(0, 1), 0U);
    expectText(empty, "");
}

TEST(AGStrDelete, WorksByLength) {
    AGStr string = whole("a\0b\0c"sv);
    EXPECT_EQ(string.Delete(2, 1), 4U);
    expectText(string, "a\0\0c"sv);
}

TEST(AGStrRemove, DeletesEveryByte) {
    AGStr string = whole("abaca\0a"sv);
    EXPECT_EQ(string.Remove('a'), 4U);
    expectText(string, "bc\0"sv);
    EXPECT_EQ(string.Remove('x'), 0U);
    EXPECT_EQ(AGStr("aaa").Remove('a'), 3U);
}

TEST(AGStrRemove, OfTheByteZeroLeavesTheTerminator) {
    AGStr string = whole("\0a\0b\0"sv);
    EXPECT_EQ(string.Remove('\0'), 3U);
    expectText(string, "ab");
    EXPECT_EQ(string.Remove('\0'), 0U);
    expectText(string, "ab");
}

TEST(AGStrRemove, DeletesEveryText) {
    AGStr string = whole("abcab\0abx"sv);
    EXPECT_EQ(string.Remove("ab"), 3U);
    expectText(string, "c\0x"sv);
    EXPECT_EQ(string.Remove("ab"), 0U);
    AGStr all("aaa");
    EXPECT_EQ(all.Remove("a"), 3U);
    expectText(all, "");
}

TEST(AGStrRemove, LeavesWhatOnlyComesTogetherByIt) {
    AGStr string("aabb");
    EXPECT_EQ(string.Remove("ab"), 1U);
    expectText(string, "ab");
    AGStr overlapping("aaa");
    EXPECT_EQ(overlapping.Remove("aa"), 1U);
    expectText(overlapping, "a");
}

TEST(AGStrRemove, IgnoresAnEmptyText) {
    AGStr string("abc");
    EXPECT_EQ(string.Remove(""), 0U);
    EXPECT_EQ(string.Remove(nullptr), 0U);
    expectText(string, "abc");
    EXPECT_EQ(AGStr().Remove("a"), 0U);
}

TEST(AGStrReplace, OverwritesEveryByte) {
    AGStr string = whole("a\0ba"sv);
    const char* const before = string;
    EXPECT_EQ(string.Replace('a', 'x'), 2U);
    EXPECT_EQ(string.GetChar(), before);
    expectText(string, "x\0bx"sv);
    EXPECT_EQ(string.Replace('x', 'x'), 2U);
    EXPECT_EQ(string.Replace('y', 'z'), 0U);
    EXPECT_EQ(string.Replace('b', '\0'), 1U);
    expectText(string, "x\0\0x"sv);
}

TEST(AGStrReplace, OfTheByteZeroLeavesTheTerminator) {
    AGStr string = whole("a\0b"sv);
    EXPECT_EQ(string.Replace('\0', 'x'), 1U);
    expectText(string, "axb");
    EXPECT_EQ(string.Replace('\0', 'x'), 0U);
    expectText(string, "axb");
}

TEST(AGStrReplace, ExchangesEveryText) {
    AGStr string = whole("abcab\0ab"sv);
    EXPECT_EQ(string.Replace("ab", "x"), 3U);
    expectText(string, "xcx\0x"sv);
    EXPECT_EQ(string.Replace("x", "yyy"), 3U);
    expectText(string, "yyycyyy\0yyy"sv);
    EXPECT_EQ(string.Replace("y", ""), 9U);
    expectText(string, "c\0"sv);
    EXPECT_EQ(string.Replace("c", "d"), 1U);
    expectText(string, "d\0"sv);
}

TEST(AGStrReplace, DoesNotSearchWhatWasPutIn) {
    AGStr string("aaa");
    EXPECT_EQ(string.Replace("a", "aa"), 3U);
    expectText(string, "aaaaaa");
    AGStr growing("ab");
    EXPECT_EQ(growing.Replace("a", "ba"), 1U);
    expectText(growing, "bab");
}

TEST(AGStrReplace, IgnoresNullPointersAndAnEmptyText) {
    AGStr string("abc");
    const char* const before = string;
    EXPECT_EQ(string.Replace(nullptr, "x"), 0U);
    EXPECT_EQ(string.Replace("a", nullptr), 0U);
    EXPECT_EQ(string.Replace("", "x"), 0U);
    EXPECT_EQ(string.Replace("x", "y"), 0U);
    EXPECT_EQ(string.GetChar(), before);
    EXPECT_EQ(AGStr().Replace("a", "b"), 0U);
}

TEST(AGStrReplace, TakesItsOwnText) {
    AGStr string("abcbc");
    EXPECT_EQ(string.Replace(string.GetChar() + 3, string.GetChar()), 2U);
    expectText(string, "aabcbcabcbc");
    EXPECT_EQ(string.Remove(string.GetChar() + 9), 4U);
    expectText(string, "aaa");
}

TEST(AGStrFind, GivesTheFirstIndexFromTheStart) {
    const AGStr string("abcabc");
    EXPECT_EQ(string.Find('b'), 1);
    EXPECT_EQ(string.Find('b', 1), 1);
    EXPECT_EQ(string.Find('b', 2), 4);
    EXPECT_EQ(string.Find('b', 5), -1);
    EXPECT_EQ(string.Find('x'), -1);
    EXPECT_EQ(string.Find("bc"), 1);
    EXPECT_EQ(string.Find("bc", 2), 4);
    EXPECT_EQ(string.Find("bc", 5), -1);
    EXPECT_EQ(string.Find("abcabc"), 0);
    EXPECT_EQ(string.Find("abcabcd"), -1);
    EXPECT_EQ(string.Find("", 2), 2);
    EXPECT_EQ(string.ReverseFind('b'), 4);
    EXPECT_EQ(string.ReverseFind('x'), -1);
}

TEST(AGStrFind, FindsNothingOutsideTheText) {
    const AGStr string("abc");
    for (const std::size_t start : {std::size_t{3}, std::size_t{4}, kHuge}) {
        EXPECT_EQ(string.Find('a', start), -1);
        EXPECT_EQ(string.Find("a", start), -1);
        EXPECT_EQ(string.Find("", start), -1);
    }
    EXPECT_EQ(string.Find(static_cast<const char*>(nullptr)), -1);
    for (const AGStr& empty : {AGStr(), AGStr("")}) {
        EXPECT_EQ(empty.Find('a'), -1);
        EXPECT_EQ(empty.Find('\0'), -1);
        EXPECT_EQ(empty.Find(""), -1);
        EXPECT_EQ(empty.ReverseFind('a'), -1);
        EXPECT_EQ(empty.ReverseFind('\0'), -1);
    }
}

TEST(AGStrFind, FindsNothingWhereAnIntCannotSay) {
#ifdef PELORIK_SANITIZED
    GTEST_SKIP() << "reads two thousand million characters, too slow under a sanitizer";
#endif
    const long free = sysconf(_SC_AVPHYS_PAGES) * sysconf(_SC_PAGESIZE);
    if (free < 4L << 30)
        GTEST_SKIP() << "4 GiB of memory are not free";
    constexpr std::size_t last = INT_MAX;
    AGStr string;
    string[last + 1] = 'y'; // blanks before it
    string[last] = 'x';
    EXPECT_EQ(string.Find('x'), INT_MAX);
    EXPECT_EQ(string.Find('y', last), -1);
    EXPECT_EQ(string.Find("xy", last), INT_MAX);
    EXPECT_EQ(string.Find("y", last), -1);
    EXPECT_EQ(string.ReverseFind('y'), -1);
}

TEST(AGStrFind, EndsAtTheFirstNulAndFindsIt) {
    const AGStr string = whole("ab\0ab"sv);
    EXPECT_EQ(string.Find('b', 2), -1);
    EXPECT_EQ(string.Find("ab", 1), -1);
    EXPECT_EQ(string.Find("ab", 3), 3);
    EXPECT_EQ(string.ReverseFind('b'), 1);
    EXPECT_EQ(string.Find('\0'), 2);
    EXPECT_EQ(string.Find('\0', 3), 5);
    EXPECT_EQ(AGStr("abc").ReverseFind('\0'), 3);
}

TEST(AGStrFormat, PrintsInAnExactBlock) {
    AGStr string("before");
    EXPECT_EQ(string.Format("%s-%04d", "tunnel", 7), 11);
    expectText(string, "tunnel-0007");
    const std::string longText(100000, 'x');
    EXPECT_EQ(string.Format("%s", longText.c_str()), 100000);
    expectText(string, longText);
    const char nul = '\0';
    EXPECT_EQ(string.Format("a%cb", nul), 3);
    expectText(string, "a\0b"sv);
}

TEST(AGStrFormat, ChangesNothingForANullFormat) {
    AGStr string("abc");
    const char* const null = nullptr;
    EXPECT_EQ(string.Format(null), 0);
    expectText(string, "abc");
}

TEST(AGStrFormat, LeavesNoBlockWhenNothingIsPrinted) {
    AGStr string("abc");
    EXPECT_EQ(string.Format("%s", ""), 0);
    expectNoBlock(string);
}

TEST(AGStrFormat, LeavesNoBlockWhenPrintingFails) {
    AGStr string("abc");
    const wchar_t notInTheLocale[] = {L'a', static_cast<wchar_t>(0x20AC), 0};
    EXPECT_LT(string.Format("%ls", notInTheLocale), 0);
    expectNoBlock(string);
}

// The first printing stores its length, in four bytes with the lowest first, in the text that both
// printings print.
TEST(AGStrFormat, LeavesAnExactBlockWhenTheSecondPrintingIsShorter) {
    alignas(int) char text[] = "twelve bytes";
    AGStr string("before");
    EXPECT_EQ(string.Format("%s%n", text, reinterpret_cast<int*>(text)), 1);
    expectText(string, "\x0C");
}

TEST(AGStrFormat, LeavesNoBlockWhenTheSecondPrintingIsEmpty) {
    alignas(int) char text[256 + 1] = "";
    std::memset(text, 'x', 256); // the lowest byte of 256 is 0
    AGStr string("before");
    EXPECT_EQ(string.Format("%s%n", text, reinterpret_cast<int*>(text)), 0);
    expectNoBlock(string);
}

TEST(AGStrFormat, TruncatesASecondPrintingThatIsLonger) {
    alignas(int) char text[4] = ""; // gets the bytes of 0x0141
    AGStr string;
    EXPECT_EQ(string.Format("%s%321s%n", text, "", reinterpret_cast<int*>(text)), 321);
    expectText(string, "A\x01" + std::string(319, ' '));
}

// agstr_caller.cpp prints nullptr, whose type clang++ does not accept for "%p" in pedantic mode.
TEST(AGStrFormat, PrintsANullPointerConstant) {
    AGStr string;
    EXPECT_EQ(string.Format("%d", 0), 1);
    expectText(string, "0");
    EXPECT_EQ(string.Format("%u", 0U), 1);
    expectText(string, "0");
    EXPECT_EQ(string.Format("<%ld>", 0L), 3);
    expectText(string, "<0>");
    EXPECT_EQ(string.Format("%ld", NULL), 1);
    expectText(string, "0");
    EXPECT_EQ(string.Format("a%cb", '\0'), 3);
    expectText(string, "a\0b"sv);
}

TEST(AGStrFormat, TakesItsOwnText) {
    AGStr string("abc");
    EXPECT_EQ(string.Format("%s, %s", string.GetChar(), string.GetChar() + 1), 7);
    expectText(string, "abc, bc");
    string = "<%d>";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    EXPECT_EQ(string.Format(string.GetChar(), 12), 4);
#pragma GCC diagnostic pop
    expectText(string, "<12>");
}

__attribute__((format(printf, 2, 3))) int formatTwice(AGStr& string, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    AGStr first;
    first.Format(format, arguments);
    const int result = string.Format(format, arguments);
    va_end(arguments);
    EXPECT_EQ(textOf(first), textOf(string));
    return result;
}

TEST(AGStrFormat, LeavesAnArgumentListAsItIs) {
    AGStr string;
    EXPECT_EQ(formatTwice(string, "%d %s %.1f", 1, "two", 3.0), 9);
    expectText(string, "1 two 3.0");
}

// The form that takes an argument list is a template, which must fit pointers to its function.
TEST(AGStrFormat, IsCalledThroughPointersToBothForms) {
    int (AGStr::*const withArguments)(const char*, ...) = &AGStr::Format;
    int (AGStr::*const withList)(const char*, va_list) = &AGStr::Format;
    AGStr string;
    EXPECT_EQ((string.*withArguments)("%d", 12), 2);
    expectText(string, "12");
    va_list unused = {};
    EXPECT_EQ((string.*withList)("none", unused), 4);
    expectText(string, "none");
}

TEST(AGStrFormat, HasAFormThatMakesAString) {
    expectText(TWFormat("%d%%", 50), "50%");
    expectNoBlock(TWFormat("%s", ""));
    const char* const null = nullptr;
    expectNoBlock(TWFormat(null));
}

TEST(AGStrNumbers, PrintSixteenDigits) {
    AGStr string;
    const std::pair<double, const char*> numbers[] = {
        {0.0, "0"},
        {-0.0, "-0"},
        {1.0, "1"},
        {100.0, "100"},
        {0.1, "0.1"},
        {1.0 / 3, "0.3333333333333333"},
        {1e15, "1000000000000000"},
        {1e16, "1e+16"},
        {9007199254740991.0, "9007199254740991"},
        {-1.2345678901234567e-308, "-1.234567890123457e-308"},
        {INFINITY, "inf"},
        {-INFINITY, "-inf"},
    };
    for (const auto& [number, text] : numbers) {
        string.VarToString(number);
        expectText(string, text);
    }
}

// The value that a text is read as; nothing when it is refused. Expects that exactly its bytes were
// stored, or none.
template<class T>
std::optional<T> parsed(const AGStr& text, char type) {
    unsigned char out[16];
    std::memset(out, 0xA5, sizeof out);
    const bool accepted = text.NumericParse(out, type);
    for (std::size_t i = accepted ? sizeof(T) : 0; i < sizeof out; ++i)
        EXPECT_EQ(out[i], 0xA5) << text.operator const char*() << " " << type << " " << i;
    if (!accepted)
        return std::nullopt;
    T value;
    std::memcpy(&value, out, sizeof value);
    return value;
}

// Expects both ends of the range to be taken and what lies one beyond to be refused.
template<class T>
void expectRange(char type, const char* lowest, T lowestValue, const char* highest, T highestValue,
                 std::vector<const char*> refused) {
    EXPECT_EQ(parsed<T>(lowest, type), lowestValue) << type;
    EXPECT_EQ(parsed<T>(highest, type), highestValue) << type;
    for (const char* const text : refused)
        EXPECT_EQ(parsed<T>(text, type), std::nullopt) << type << " " << text;
}

TEST(NumericParse, AcceptsTheRangeOfEveryType) {
    expectRange<std::uint8_t>('C', "0", 0, "255", 255, {"256", "255.5", "-1", "1e3"});
    expectRange<std::int8_t>('c', "-128", -128, "127", 127, {"128", "-129", "127.5", "-128.5"});
    expectRange<std::uint16_t>('S', "0", 0, "65535", 65535, {"65536", "65535.5", "-1"});
    expectRange<std::uint32_t>('I', "0", 0, "4294967295", 4294967295U,
                               {"4294967296", "4294967295.5", "-1"});
    expectRange<std::int32_t>('i', "-2147483648", INT32_MIN, "2147483647", INT32_MAX,
                              {"2147483648", "-2147483649", "2147483647.5", "-2147483648.5"});
    expectRange<double>('d', "-1.7976931348623157e308", -1.7976931348623157e308,
                        "1.7976931348623157e308", 1.7976931348623157e308, {});
}

TEST(NumericParse, Compatibility_RefusesTheLowestOfSixteenBits) {
    expectRange<std::int16_t>('s', "-32767", -32767, "32767", 32767,
                              {"-32768", "32768", "-32767.5"});
}

TEST(NumericParse, Compatibility_AcceptsOnly32BitsFor64) {
    expectRange<std::uint64_t>('L', "0", 0, "4294967295", 4294967295U, {"4294967296", "-1"});
    expectRange<std::int64_t>('l', "-2147483648", INT32_MIN, "2147483647", INT32_MAX,
                              {"2147483648", "-2147483649"});
}

TEST(NumericParse, ComparesFloatsAsDoubles) {
    // A float's highest value is 3.40282346638528859812e38, a little beyond the bound.
    expectRange<float>('f', "-3.402823466e38", -3.402823466e38F, "3.402823466e38", 3.402823466e38F,
                       {"3.40282346638528859812e38", "-3.40282346638528859812e38", "inf", "1e39"});
}

TEST(NumericParse, CutsFractionsOff) {
    EXPECT_EQ(parsed<std::int32_t>("1.5", 'i'), 1);
    EXPECT_EQ(parsed<std::int32_t>("-1.9", 'i'), -1);
    EXPECT_EQ(parsed<std::uint8_t>("254.9", 'C'), 254);
    EXPECT_EQ(parsed<std::int8_t>("-0.5", 'c'), 0);
    EXPECT_EQ(parsed<std::uint8_t>(".5", 'C'), 0);
}

TEST(NumericParse, ReadsWhatStrtodReads) {
    EXPECT_EQ(parsed<double>("-1.25e2", 'd'), -125.0);
    EXPECT_EQ(parsed<double>("+.5", 'd'), 0.5);
    EXPECT_EQ(parsed<double>("0x1p4", 'd'), 16.0);
    EXPECT_EQ(parsed<std::int32_t>("0x1F", 'i'), 31);
    EXPECT_EQ(parsed<std::int32_t>("+7", 'i'), 7);
    EXPECT_EQ(parsed<std::uint8_t>("+7", 'C'), 7);
    EXPECT_EQ(parsed<double>("inf", 'd'), INFINITY);
    EXPECT_EQ(parsed<double>("1e999", 'd'), INFINITY);
}

TEST(NumericParse, StoresNotANumberOnlyAsADouble) {
    EXPECT_TRUE(std::isnan(parsed<double>("nan", 'd').value_or(0)));
    for (const char type : {'C', 'c', 'S', 's', 'I', 'i', 'L', 'l', 'f'})
        EXPECT_EQ(parsed<double>("nan", type), std::nullopt) << type;
}

TEST(NumericParse, SkipsBlanksAndTabsAroundTheNumber) {
    EXPECT_EQ(parsed<std::int32_t>(" \t12\t ", 'i'), 12);
    EXPECT_EQ(parsed<std::int32_t>("12\t", 'i'), 12);
    // What strtod skips of itself is not skipped behind.
    EXPECT_EQ(parsed<std::int32_t>("\n12", 'i'), 12);
    int stored = 0;
    EXPECT_FALSE(AGStr("12\n").NumericParse(&stored, 'i'));
}

TEST(NumericParse, RefusesWhatIsNoNumber) {
    for (const char* const text : {"", " ", "\t \t", "x", "-", "+", "--1", ".", "e5", "\n"}) {
        for (const char type : {'C', 'c', 'S', 's', 'I', 'i', 'L', 'l', 'f', 'd', 'b', '?'})
            EXPECT_EQ(parsed<double>(text, type), std::nullopt) << text << " " << type;
    }
    EXPECT_EQ(parsed<double>(AGStr(), 'd'), std::nullopt);
}

TEST(NumericParse, Compatibility_RefusesAZeroThatDoesNotStartWithZero) {
    for (const char* const text : {"-0", "+0", ".0", "-0.0", ".5e-400", "\n0"})
        EXPECT_EQ(parsed<double>(text, 'd'), std::nullopt) << text;
    for (const char* const text : {"0", "0.0", "0x0", "00", "0e5", " 0", "0.5e-400"})
        EXPECT_EQ(parsed<double>(text, 'd'), 0.0) << text;
}

TEST(NumericParse, RefusesAMinusForUnsignedTypes) {
    for (const char type : {'C', 'S', 'I', 'L', 'b'}) {
        EXPECT_EQ(parsed<std::uint64_t>("-1", type), std::nullopt) << type;
        EXPECT_EQ(parsed<std::uint64_t>(" -0.5", type), std::nullopt) << type;
        EXPECT_EQ(parsed<std::uint64_t>("\n-5", type), std::nullopt) << type;
    }
}

TEST(NumericParse, TakesOneSuffixThatFitsTheType) {
    EXPECT_EQ(parsed<double>("1.5f", 'd'), 1.5);
    EXPECT_EQ(parsed<double>("1.5F ", 'd'), 1.5);
    EXPECT_EQ(parsed<float>("1.5f", 'f'), 1.5F);
    EXPECT_EQ(parsed<std::int64_t>("7L", 'l'), 7);
    EXPECT_EQ(parsed<std::uint64_t>("7l\t", 'L'), 7U);
}

// What a refused text stored.
template<class T>
T storedOnRefusal(const char* text, char type) {
    T value{};
    EXPECT_FALSE(AGStr(text).NumericParse(&value, type)) << text << " " << type;
    return value;
}

TEST(NumericParse, Compatibility_RefusesAnythingElseBehindTheNumberAfterStoringIt) {
    EXPECT_EQ(storedOnRefusal<std::int32_t>("12 x", 'i'), 12);
    EXPECT_EQ(storedOnRefusal<std::int32_t>("12f", 'i'), 12);
    EXPECT_EQ(storedOnRefusal<std::int32_t>("12L", 'i'), 12);
    EXPECT_EQ(storedOnRefusal<double>("1.5ff", 'd'), 1.5);
    EXPECT_EQ(storedOnRefusal<double>("1.5 f", 'd'), 1.5);
    EXPECT_EQ(storedOnRefusal<double>("1.5l", 'd'), 1.5);
    EXPECT_EQ(storedOnRefusal<std::int64_t>("7LL", 'l'), 7);
    EXPECT_EQ(storedOnRefusal<std::int64_t>("7f", 'l'), 7);
    EXPECT_EQ(storedOnRefusal<std::int32_t>("12,5", 'i'), 12);
}

TEST(NumericParse, ReadsBooleansExactly) {
    for (const char* const text : {"true", "TRUE", "1", " TRUE", "\t1"})
        EXPECT_EQ(parsed<unsigned char>(text, 'b'), 1) << text;
    for (const char* const text : {"false", "FALSE", "0", " \tfalse"})
        EXPECT_EQ(parsed<unsigned char>(text, 'b'), 0) << text;
    for (const char* const text : {"True", "False", "TRUE ", "1 ", "01", "2", "-1", "-0", "tru",
                                   "true1", "yes", "0.0", "\ntrue"})
        EXPECT_EQ(parsed<unsigned char>(text, 'b'), std::nullopt) << text;
}

TEST(NumericParse, Compatibility_StoresNothingForUnknownTypesButJudgesTheText) {
    for (const char type : {'x', 'D', 'B', '\0', '\xFF'}) {
        unsigned char out = 0xA5;
        EXPECT_TRUE(AGStr(" 1e99 ").NumericParse(&out, type));
        EXPECT_TRUE(AGStr("nan").NumericParse(&out, type));
        EXPECT_TRUE(AGStr("-5").NumericParse(nullptr, type));
        EXPECT_FALSE(AGStr("5f").NumericParse(&out, type));
        EXPECT_FALSE(AGStr("-0").NumericParse(&out, type));
        EXPECT_EQ(out, 0xA5);
    }
}

TEST(NumericParse, EndsAtTheFirstNul) {
    EXPECT_EQ(parsed<std::int32_t>(whole("12\0x"sv), 'i'), 12);
    EXPECT_EQ(parsed<std::int32_t>(whole("\0"sv), 'i'), std::nullopt);
}

// Says which of its operations was called, and answers otherwise than the base.
class Overriding : public AGStr {
public:
    explicit Overriding(bool& destroyed) : destroyed_(destroyed) {}
    Overriding(const Overriding&) = delete;
    Overriding& operator=(const Overriding&) = delete;
    ~Overriding() override { destroyed_ = true; }
    bool operator!=(const char* text) const override { return *text == 'd'; }
    int CompareNoCase(const char*) const override { return 42; }
    AGStr& toStr(AGStr& destination) const override { return destination = "overridden"; }
    void VarToString(double value) override { AGStr::VarToString(value + 1); }
    using AGStr::operator=;

private:
    bool& destroyed_;
};

TEST(AGStrSubclass, IsReachedThroughEveryVirtualOperation) {
    bool destroyed = false;
    std::unique_ptr<AGStr> string = std::make_unique<Overriding>(destroyed);
    EXPECT_TRUE(*string != "d");
    EXPECT_FALSE(*string != "e");
    EXPECT_EQ(string->CompareNoCase(nullptr), 42);
    AGStr destination;
    string->toStr(destination);
    expectText(destination, "overridden");
    string->VarToString(1);
    expectText(*string, "2");
    string.reset();
    EXPECT_TRUE(destroyed);
}

TEST(AGStrSubclass, ChangesEqualityThroughInequality) {
    bool destroyed = false;
    const Overriding string(destroyed);
    const AGStr& base = string;
    EXPECT_FALSE(base == "d");
    EXPECT_TRUE(base == "e");
    EXPECT_FALSE("d" == base);
    EXPECT_TRUE("d" != base);
}

TEST(AGStrSubclass, ChangesAssignedNumbersOnly) {
    bool destroyed = false;
    Overriding overriding(destroyed);
    AGStr& string = overriding;
    expectText(string = 1, "2");
    expectText(string = 1U, "2");
    expectText(string = 1.5, "2.5");
    string = "";
    expectText(string += 1, "1");
    expectText(string += 1U, "11");
    expectText(string += 1.5, "111.5");
    expectText(string + 1, "111.51");
}

struct ComparesByLength : AGStr {
    using AGStr::AGStr;
    bool operator==(const char* text) const override { return std::strlen(text) == GetLength(); }
};

TEST(AGStrSubclass, ChangesEqualityAlone) {
    const ComparesByLength string("abc");
    const AGStr& base = string;
    char other[] = "xyz";
    EXPECT_TRUE(base == "xyz");
    EXPECT_TRUE("xyz" == base);
    EXPECT_TRUE(base == other);
    EXPECT_TRUE(base != "xyz");
}

// Every change that allocates, on the text "abcab".
constexpr void (*kChanges[])(AGStr&) = {
    [](AGStr& s) { s = "x"; },
    [](AGStr& s) { s = 'x'; },
    [](AGStr& s) { s = 1.5; },
    [](AGStr& s) { s.VarToString(7); },
    [](AGStr& s) { s += AGStr("x"); },
    [](AGStr& s) { s += 'x'; },
    [](AGStr& s) { s[9] = 'x'; },
    [](AGStr& s) { s.GetBufferSetLength(2); },
    [](AGStr& s) { s.GetBufferSetLength(9); },
    [](AGStr& s) { s.Insert(1, 'x'); },
    [](AGStr& s) { s.Insert(9, 'x'); },
    [](AGStr& s) { s.Insert(1, "xy"); },
    [](AGStr& s) { s.Insert(9, "xy"); },
    [](AGStr& s) { s.Delete(1, 2); },
    [](AGStr& s) { s.Remove('a'); },
    [](AGStr& s) { s.Remove("ab"); },
    [](AGStr& s) { s.Replace("ab", "xyz"); },
    [](AGStr& s) { s.Format("%d", 12345); },
};

TEST(AGStrAllocation, LeavesTheStringAsItWasWhenItFails) {
    for (const auto& change : kChanges) {
        for (long successes = 0;; ++successes) {
            ASSERT_LT(successes, 4);
            AGStr string("abcab");
            try {
                const support::FailingCall failing(support::CallKind::kMemory, successes + 1);
                change(string);
                break;
            } catch (const std::bad_alloc&) {
                expectText(string, "abcab");
            }
        }
    }
}

TEST(AGStrAllocation, LeavesATextWithANulAsItWasWhenItFails) {
    for (const std::size_t position : {1U, 3U, 9U}) {
        AGStr string = whole("ab\0cd"sv);
        for (long successes = 0; textOf(string) == "ab\0cd"sv; ++successes) {
            ASSERT_LT(successes, 4);
            try {
                const support::FailingCall failing(support::CallKind::kMemory, successes + 1);
                string.Insert(position, "xy");
            } catch (const std::bad_alloc&) {
                expectText(string, "ab\0cd"sv);
            }
        }
        expectText(string, position == 1 ? "axyb" : "ab");
    }
}

TEST(AGStrAllocation, HappensAtLeastOnceForEveryChangeAndLeavesOneBlock) {
    for (const auto& change : kChanges) {
        AGStr string("abcab");
        const std::size_t live = support::liveArrays();
        EXPECT_GE(allocations([&] { change(string); }), 1U);
        EXPECT_EQ(support::liveArrays(), live);
        EXPECT_EQ(blockSize(string), string.GetLength() + 1);
    }
}

TEST(AGStrAllocation, HappensOnceForAChangeInPlace) {
    AGStr string("abcab");
    const AGStr other("ab");
    EXPECT_EQ(allocations([&] { string += other; }), 1U);
    EXPECT_EQ(allocations([&] { string += "cd"; }), 1U);
    EXPECT_EQ(allocations([&] { string += 'e'; }), 1U);
    EXPECT_EQ(allocations([&] { string += -12; }), 1U);
    EXPECT_EQ(allocations([&] { string += 12U; }), 1U);
    EXPECT_EQ(allocations([&] { string += 1.5; }), 1U);
    EXPECT_EQ(allocations([&] { string.Insert(2, "xy"); }), 1U);
    EXPECT_EQ(allocations([&] { string.Insert(99, 'x'); }), 1U);
    EXPECT_EQ(allocations([&] { string.Replace("ab", "yy"); }), 1U);
    EXPECT_EQ(allocations([&] { string.Remove("y"); }), 1U);
    EXPECT_EQ(allocations([&] { string.Delete(0, 1); }), 1U);
}

TEST(AGStrAllocation, FailsForLengthsThatNoBlockCanHave) {
    // Half of the memory that can be addressed is the most that one array takes.
    for (const std::size_t length : {kHuge, kHuge - 1, kHuge / 2 + 1}) {
        AGStr string("abc");
        EXPECT_THROW(AGStr("abc", length), std::bad_alloc);
        EXPECT_THROW(string.GetBufferSetLength(length), std::bad_alloc);
        EXPECT_THROW(string[length] = 'x', std::bad_alloc);
        EXPECT_THROW(string.Insert(length, 'x'), std::bad_alloc);
        EXPECT_THROW(string.Insert(length, "xyz"), std::bad_alloc);
        expectText(string, "abc");
        AGStr none;
        EXPECT_THROW(none[length] = 'x', std::bad_alloc);
        expectNoBlock(none);
    }
}

} // namespace
