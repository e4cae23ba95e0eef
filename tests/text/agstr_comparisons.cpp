// Compares strings with everything that callers compare them with. Built in every standard from
// C++11 on, so plain of words. Says which comparison went wrong, and ends with 1.

#include "text/agstr.h"

#include <cstddef>
#include <cstdio>

namespace {

int failures = 0;

void expect(bool kept, const char* comparison) {
    if (kept)
        return;
    std::printf("Not so: %s\n", comparison);
    ++failures;
}

// Differs from everything, and shows by that whether a comparison asked it.
class Different : public AGStr {
public:
    using AGStr::AGStr;
    bool operator!=(const char*) const override { return true; }
};

#define EXPECT(comparison) expect(comparison, #comparison)

template<class String>
void compareWithPointers(String& abc) {
    char text[] = "abc";
    char* const same = text;
    const char* const sameToRead = text;
    char otherText[] = "abd";
    char* other = otherText;
    char* none = nullptr;
    const char* noneToRead = nullptr;

    EXPECT(abc == "abc");
    EXPECT("abc" == abc);
    EXPECT(!(abc != "abc"));
    EXPECT(!("abc" != abc));
    EXPECT(abc != "abd");
    EXPECT("abd" != abc);
    EXPECT(!(abc == "abd"));
    EXPECT(!("abd" == abc));

    EXPECT(abc == text && text == abc && !(abc != text) && !(text != abc));
    EXPECT(abc == same && same == abc && !(abc != same) && !(same != abc));
    EXPECT(abc == sameToRead && sameToRead == abc);
    EXPECT(!(abc != sameToRead) && !(sameToRead != abc));
    EXPECT(abc != other && other != abc && !(abc == other) && !(other == abc));

    EXPECT(abc != nullptr && nullptr != abc && !(abc == nullptr) && !(nullptr == abc));
    EXPECT(abc != none && none != abc && !(abc == none) && !(none == abc));
    EXPECT(abc != noneToRead && noneToRead != abc);
    EXPECT(!(abc == noneToRead) && !(noneToRead == abc));
    EXPECT(abc != NULL && !(abc == NULL));
}

template<class String>
void compareEmptyWithPointers(String& empty) {
    char text[] = "";
    char* none = nullptr;
    EXPECT(empty != "" && "" != empty && !(empty == "") && !("" == empty));
    EXPECT(empty != text && text != empty && !(empty == text) && !(text == empty));
    EXPECT(empty == nullptr && nullptr == empty && !(empty != nullptr) && !(nullptr != empty));
    EXPECT(empty == none && none == empty && !(empty != none) && !(none != empty));
    EXPECT(empty == NULL && !(empty != NULL));
}

void compareStrings() {
    AGStr abc("abc");
    const AGStr same("abc");
    const AGStr other("abd");
    const AGStr longer("abc", 4);
    EXPECT(abc == same && same == abc && !(abc != same));
    EXPECT(abc != other && other != abc && !(abc == other));
    EXPECT(abc != longer && longer != abc && !(abc == longer));
    EXPECT(abc == AGStr("abc") && AGStr("abc") == abc && AGStr() == AGStr(""));
    EXPECT(abc != AGStr() && AGStr() != abc && !(AGStr() != AGStr("")));
    EXPECT(AGStr("abc") == "abc" && "abc" == AGStr("abc"));
}

void compareSubclass() {
    Different abc("abc");
    const Different same("abc");
    char text[] = "abc";
    EXPECT(!(abc == "abc") && !("abc" == abc) && abc != "abc" && "abc" != abc);
    EXPECT(!(abc == text) && !(text == abc) && abc != text && text != abc);
    EXPECT(!(abc == nullptr) && !(nullptr == abc));
    const AGStr& base = same;
    EXPECT(!(base == "abc") && !("abc" == base) && base != "abc" && "abc" != base);
    EXPECT(static_cast<const AGStr&>(abc) == base);
}

} // namespace

int main() {
    AGStr abc("abc");
    const AGStr constantAbc("abc");
    AGStr empty("");
    const AGStr constantEmpty;
    compareWithPointers(abc);
    compareWithPointers(constantAbc);
    compareEmptyWithPointers(empty);
    compareEmptyWithPointers(constantEmpty);
    compareStrings();
    compareSubclass();
    return failures == 0 ? 0 : 1;
}
