// Strings and certificates where memory ends. They call the system for nothing.

#include "tests/support/every_fault.h"
#include "text/agstr.h"
#include "text/base64.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using support::CallKind;
using support::failEveryCall;
using support::kNoMemory;

void expectOnlyMemoryToMatter(const support::Scenario& scenario) {
    EXPECT_GT(failEveryCall(CallKind::kMemory, scenario, {kNoMemory}), 0);
    EXPECT_EQ(failEveryCall(CallKind::kSystem, scenario, {}), 0);
}

std::string textOf(const AGStr& string) {
    return std::string(string, string.GetLength());
}

constexpr char kText[] = "  a text that is longer than most";

// What makes a new string of one that is left as it is.
constexpr AGStr (*kMakers[])(const AGStr&) = {
    [](const AGStr& s) { return AGStr(s); },
    [](const AGStr& s) { return AGStr(s, 5); },
    [](const AGStr&) { return AGStr('x'); },
    [](const AGStr&) { return AGStr(-12); },
    [](const AGStr&) { return AGStr(12U); },
    [](const AGStr&) { return AGStr(1e300); },
    [](const AGStr& s) { return s + s; },
    [](const AGStr& s) { return s + 'x'; },
    [](const AGStr& s) { return s + "x"; },
    [](const AGStr& s) { return s + 12U; },
    [](const AGStr& s) { return s + 12; },
    [](const AGStr& s) { return s + 1.5; },
    [](const AGStr& s) { return 1.5 + s; },
    [](const AGStr& s) { return "x" + s; },
    [](const AGStr& s) { return 'x' + s; },
    [](const AGStr& s) { return s.Mid(1, 5); },
    [](const AGStr& s) { return s.Mid(1); },
    [](const AGStr& s) { return s.Left(5); },
    [](const AGStr& s) { return s.Right(5); },
    [](const AGStr& s) { return s.SpanIncluding(" a"); },
    [](const AGStr& s) { return s.SpanExcluding("x"); },
    [](const AGStr& s) { return TWFormat("%s %d", static_cast<const char*>(s), 7); },
    [](const AGStr& s) {
        AGStr destination("x");
        return s.toStr(destination);
    },
};

TEST(AGStrFailures, NewStringsAreWholeOrThrow) {
    for (const auto& make : kMakers) {
        expectOnlyMemoryToMatter([&] {
            const AGStr string(kText);
            const AGStr made = make(string);
            EXPECT_EQ(textOf(string), kText);
            return textOf(made);
        });
    }
}

constexpr void (*kChanges[])(AGStr&) = {
    [](AGStr& s) { s = AGStr("x"); },
    [](AGStr& s) { s = "x"; },
    [](AGStr& s) { s = 'x'; },
    [](AGStr& s) { s = 12; },
    [](AGStr& s) { s = 12U; },
    [](AGStr& s) { s = 1.5; },
    [](AGStr& s) { s.VarToString(7); },
    [](AGStr& s) { s += AGStr("x"); },
    [](AGStr& s) { s += "x"; },
    [](AGStr& s) { s += 'x'; },
    [](AGStr& s) { s += 12; },
    [](AGStr& s) { s += 12U; },
    [](AGStr& s) { s += 1.5; },
    [](AGStr& s) { s += s; },
    [](AGStr& s) { s[99] = 'x'; },
    [](AGStr& s) { s.GetBufferSetLength(2); },
    [](AGStr& s) { s.GetBufferSetLength(99); },
    [](AGStr& s) { s.Insert(1, 'x'); },
    [](AGStr& s) { s.Insert(99, 'x'); },
    [](AGStr& s) { s.Insert(1, "xy"); },
    [](AGStr& s) { s.Insert(99, "xy"); },
    [](AGStr& s) { s.Delete(1, 2); },
    [](AGStr& s) { s.Remove('t'); },
    [](AGStr& s) { s.Remove("th"); },
    [](AGStr& s) { s.Replace("t", "xyz"); },
    [](AGStr& s) { s.Format("%s, %d", s.GetChar(), 7); },
    [](AGStr& s) { s.Format("%400s", "x"); },
    [](AGStr& s) { // the second printing is shorter
        alignas(int) char text[] = "twelve bytes";
        s.Format("%s%n", text, reinterpret_cast<int*>(text));
    },
};

TEST(AGStrFailures, ChangesAreMadeOrThrowAndLeaveTheTextAsItWas) {
    for (const auto& change : kChanges) {
        expectOnlyMemoryToMatter([&] {
            AGStr string(kText);
            try {
                change(string);
            } catch (const std::bad_alloc&) {
                EXPECT_EQ(textOf(string), kText);
                throw;
            }
            return textOf(string);
        });
    }
}

TEST(AGStrFailures, EverythingElseNeedsNoMemory) {
    AGStr string(kText);
    const auto scenario = [&]() -> std::string {
        string.MakeUpper();
        string.MakeLower();
        string.MakeReverse();
        string.MakeReverse();
        string.SetLengthByBuffer();
        string.Replace('t', 't');
        double number = 0;
        const bool answers[] = {string == kText,
                                string != "x",
                                string.CompareNoCase("x") != 0,
                                string.Find("text") == 4,
                                string.Find('t', 5) == 7,
                                string.ReverseFind('t') == 32,
                                !string.NumericParse(&number, 'd'),
                                string.Match("a*b?*", "axxbc")};
        return std::string(std::begin(answers), std::end(answers));
    };
    EXPECT_EQ(scenario(), std::string(8, '\1'));
    EXPECT_EQ(failEveryCall(CallKind::kMemory, scenario, {}), 0);
}

struct Subclass : AGStr {};

TEST(AGStrFailures, MatchingInSubclassesGivesTheAnswerOrThrowsAndForgetsTheRest) {
    expectOnlyMemoryToMatter([] {
        const Subclass string;
        const char* const text =
            "aXbXcXdXe and a longer text behind it, with no end that would match";
        try {
            return std::to_string(string.Match("*X*X?*X*z*no*", text));
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(string.Match("*X*X?*X*no*", text));
            throw;
        }
    });
}

TEST(CertificateFailures, TextsAreDecodedOrThrow) {
    std::string text(1000, '\0');
    const std::string bytes(300, 'x');
    const auto* const source = reinterpret_cast<const unsigned char*>(bytes.data());
    const int length = base64_encode_cert(source, 300, text.data()) - 1;
    const auto scenario = [&] {
        unsigned char decoded[400];
        const int size = base64_decode_cert(text.c_str(), length, decoded, sizeof decoded);
        return std::to_string(size);
    };
    EXPECT_EQ(scenario(), "300");
    failEveryCall(CallKind::kMemory, scenario, {kNoMemory});
    EXPECT_EQ(failEveryCall(CallKind::kSystem, scenario, {}), 0);
}

} // namespace
