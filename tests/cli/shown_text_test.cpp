// What a person at a terminal is shown: the progress line, counts, and texts that a terminal must
// not obey.

#include "cli/output/counts.h"
#include "cli/output/progress.h"
#include "cli/output/terminal.h"

#include <chrono>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>

namespace {

using namespace cli;
using std::chrono::seconds;

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

TEST(ProgressText, SaysHowFarItIsHowFastAndHowLongItTakes) {
    EXPECT_EQ(progressText({2, 512 * 1024}, {10, 1024 * 1024}, seconds(2)),
              "2 of 10 files, 512.0 KiB of 1.0 MiB, 256.0 KiB/s, 0:02 left");
}

TEST(ProgressText, WritesHoursFromOneHourOn) {
    EXPECT_EQ(progressText({1, kGiB}, {2, 3600 * kGiB}, seconds(1)),
              "1 of 2 files, 1.0 GiB of 3.5 TiB, 1.0 GiB/s, 59:59 left");
    EXPECT_EQ(progressText({1, kGiB}, {2, 3601 * kGiB}, seconds(1)),
              "1 of 2 files, 1.0 GiB of 3.5 TiB, 1.0 GiB/s, 1:00:00 left");
    EXPECT_EQ(progressText({1, kGiB}, {2, (1 + 3723) * kGiB}, seconds(1)),
              "1 of 2 files, 1.0 GiB of 3.6 TiB, 1.0 GiB/s, 1:02:03 left");
}

TEST(ProgressText, LeavesOutWhatIsNotKnown) {
    EXPECT_EQ(progressText({3, 1000}, {0, 0}, seconds(1)), "3 files, 1000 B, 1000 B/s");
    EXPECT_EQ(progressText({0, 0}, {4, 5}, seconds(1)), "0 of 4 files, 0 B of 5 B, 0 B/s");
}

TEST(ProgressText, KnowsNoSpeedBeforeAnyTimeHasPassed) {
    EXPECT_EQ(progressText({1, 1023}, {1, 1024}, seconds(0)),
              "1 of 1 files, 1023 B of 1.0 KiB, 0 B/s");
}

TEST(ProgressText, LeavesOutATimeThatNobodyWaitsFor) {
    EXPECT_EQ(progressText({0, 1}, {1, UINT64_MAX}, seconds(100)),
              "0 of 1 files, 1 B of 16384.0 PiB, 0 B/s");
    EXPECT_EQ(progressText({0, 1}, {1, 1000000001}, seconds(1)),
              "0 of 1 files, 1 B of 953.7 MiB, 1 B/s");
    EXPECT_EQ(progressText({0, 1}, {1, 1000000000}, seconds(1)),
              "0 of 1 files, 1 B of 953.7 MiB, 1 B/s, 277777:46:39 left");
}

TEST(Amount, StopsAtTheLargestNumberOfBytes) {
    Amount amount;
    for (int i = 0; i < 3; ++i)
        amount.addBytes(INT64_MAX);
    EXPECT_EQ(amount.bytes, UINT64_MAX);
    amount.addBytes(1);
    EXPECT_EQ(amount.bytes, UINT64_MAX);
}

TEST(ProgressText, HasNoUnitBeyondPebibytes) {
    EXPECT_EQ(progressText({1, UINT64_MAX}, {0, 0}, seconds(0)), "1 files, 16384.0 PiB, 0 B/s");
}

TEST(CountsText, LeavesOutWhatThereIsNoneOf) {
    EXPECT_EQ(countsText({{3, "unchanged"}, {0, "missing"}, {1, "changed"}}),
              "3 unchanged, 1 changed");
    EXPECT_EQ(countsText({{0, "missing"}}), "none");
    EXPECT_EQ(countsText({}), "none");
}

TEST(Printable, KeepsTextOfEveryLengthOfUtf8) {
    for (const std::string text : {"", "plain ~", "\u00a0", "\u07ff", "\u0800", "\uffff",
                                   "\U00010000", "\U0010ffff", "\u2010", "\u202f", "\u2065"})
        EXPECT_EQ(printable(text), text);
}

TEST(Printable, EscapesWhatATerminalObeys) {
    EXPECT_EQ(printable("a\nb\tc\x1b[0m\x7f"), "a\\nb\\tc\\x1b[0m\\x7f");
    EXPECT_EQ(printable("\u0080\u009f"), "\\xc2\\x80\\xc2\\x9f");
    EXPECT_EQ(printable("\u061c"), "\\xd8\\x9c");
    EXPECT_EQ(printable("\u200e\u200f"), "\\xe2\\x80\\x8e\\xe2\\x80\\x8f");
    EXPECT_EQ(printable("\u2028\u202e"), "\\xe2\\x80\\xa8\\xe2\\x80\\xae");
    EXPECT_EQ(printable("\u2066\u2069"), "\\xe2\\x81\\xa6\\xe2\\x81\\xa9");
}

TEST(Printable, EscapesWhatIsNotUtf8) {
    EXPECT_EQ(printable("\x80g"), "\\x80g");                          // nothing before it
    EXPECT_EQ(printable("\xffg"), "\\xffg");                          // starts nothing
    EXPECT_EQ(printable("\xc3"), "\\xc3");                            // too short
    EXPECT_EQ(printable("\xc3g"), "\\xc3g");                          // goes on with a letter
    EXPECT_EQ(printable("\xc1\xbf"), "\\xc1\\xbf");                   // longer than it need be
    EXPECT_EQ(printable("\xe0\x9f\xbf"), "\\xe0\\x9f\\xbf");          // the same
    EXPECT_EQ(printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");          // half a pair of UTF-16
    EXPECT_EQ(printable("\xed\xbf\xbf"), "\\xed\\xbf\\xbf");          // the other half
    EXPECT_EQ(printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80"); // beyond Unicode
}

TEST(WithoutControls, EscapesControlCharactersAndKeepsOtherBytes) {
    EXPECT_EQ(withoutControls("a\nb\rc\x1b[0m\x7f"), "a\\nb\\x0dc\\x1b[0m\\x7f");
    EXPECT_EQ(withoutControls("\u0085\u061c\u2028"), "\\xc2\\x85\\xd8\\x9c\\xe2\\x80\\xa8");
    EXPECT_EQ(withoutControls("\xff\xc3g\u00e9"), "\xff\xc3g\u00e9");
}

TEST(PrintableJson, EscapesAsJsonDoes) {
    EXPECT_EQ(printableJson("{\"a\":\"\x7f\u202e\"}"), "{\"a\":\"\\u007f\\u202e\"}");
}

TEST(Utf8Length, IsThatOfTheFirstCharacter) {
    EXPECT_EQ(utf8Length(""), 0u);
    EXPECT_EQ(utf8Length("ab"), 1u);
    EXPECT_EQ(utf8Length("\u00e9b"), 2u);
    EXPECT_EQ(utf8Length("\U0001f600"), 4u);
    EXPECT_EQ(utf8Length("\xc3"), 0u);
}

} // namespace
