// Letters and numbers follow the locale, since the C library converts them. The replaced toupper,
// tolower and strtod have a locale that the machine may not have.

#include "tests/support/fault_injection.h"
#include "text/agstr.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

namespace calls = support::calls;
using support::Replacement;

// Latin-1's letter a with a diaeresis, and a decimal comma.

int upper(int byte) {
    return byte == 0xe4 ? 0xc4 : byte;
}

int lower(int byte) {
    return byte == 0xc4 ? 0xe4 : byte;
}

double number(const char* text, char** end) {
    if (*text != '1' || text[1] != ',')
        return 0;
    *end = const_cast<char*>(text) + 3;
    return 1 + (text[2] - '0') / 10.0;
}

TEST(AGStrLocale, ChangesLettersAsTheCLibraryDoes) {
    const Replacement toupper(calls::toupper, upper);
    const Replacement tolower(calls::tolower, lower);
    AGStr text("a\xe4");
    text.MakeUpper();
    EXPECT_STREQ(text, "a\xc4");
    text.MakeLower();
    EXPECT_STREQ(text, "a\xe4");
}

TEST(AGStrLocale, ReadsNumbersAsTheCLibraryDoes) {
    const Replacement strtod(calls::strtod, number);
    double value = 0;
    EXPECT_TRUE(AGStr("1,5").NumericParse(&value, 'd'));
    EXPECT_EQ(value, 1.5);
}

} // namespace
