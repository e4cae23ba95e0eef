// Letters and numbers go through the C library, and so by the locale: this program's own toupper,
// tolower and strtod know what the machine's locales need not.

#include "text/agstr.h"

#include <cstdlib>
#include <gtest/gtest.h>

// Latin-1's letter a with a diaeresis, and a decimal comma.
#pragma GCC visibility push(default)
extern "C" {

int __wrap_toupper(int byte) {
    return byte == 0xe4 ? 0xc4 : byte;
}

int __wrap_tolower(int byte) {
    return byte == 0xc4 ? 0xe4 : byte;
}

double __wrap_strtod(const char* text, char** end) {
    if (*text != '1' || text[1] != ',')
        return 0;
    *end = const_cast<char*>(text) + 3;
    return 1 + (text[2] - '0') / 10.0;
}
}
#pragma GCC visibility pop

namespace {

TEST(AGStrLocale, ChangesLettersAsTheCLibraryDoes) {
    AGStr text("a\xe4");
    text.MakeUpper();
    EXPECT_STREQ(text, "a\xc4");
    text.MakeLower();
    EXPECT_STREQ(text, "a\xe4");
}

TEST(AGStrLocale, ReadsNumbersAsTheCLibraryDoes) {
    double value = 0;
    EXPECT_TRUE(AGStr("1,5").NumericParse(&value, 'd'));
    EXPECT_EQ(value, 1.5);
}

} // namespace
