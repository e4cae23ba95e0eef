// Compares strings with everything that callers compare them with. Every compiler builds it in
// every standard from C++11 on, so it uses no test library. Prints each wrong comparison, and exits
// with 1.

#include "text/agstr.h"

#include <cstddef>
#include <cstdio>
#include <string>
#include <type_traits>
#include <utility>

// Types that are not strings, one of them never complete. The header must accept their comparisons.
struct Incomplete;
bool operator==(const Incomplete& left, char* right);
bool operator!=(char* left, const Incomplete& right);
bool operator==(const Incomplete& left, const Incomplete& right);

namespace {

int failures = 0;

void expect(bool kept, const char* function, const char* comparison) {
    if (kept)
        return;
    std::printf("%s: not so: %s\n", function, comparison);
    ++failures;
}

// Subclasses. An operator that they override answers true to everything, which shows that it was
// called.

struct Inheriting : AGStr {
    using AGStr::AGStr;
};

struct EqualToAll : AGStr {
    using AGStr::AGStr;
    bool operator==(const char*) const override { return true; }
};

struct UnequalToAll : AGStr {
    using AGStr::AGStr;
    bool operator!=(const char*) const override { return true; }
};

struct Both : AGStr {
    using AGStr::AGStr;
    bool operator==(const char*) const override { return true; }
    bool operator!=(const char*) const override { return true; }
};

struct InheritingBoth : Both {
    using Both::Both;
};

// What the operators of a class answer, given what they answer in AGStr.
template<bool overridesEqual, bool overridesUnequal>
struct Answers {
    static constexpr bool kOverridesEqual = overridesEqual;
    static constexpr bool equal(bool inAGStr) {
        return overridesEqual || (!overridesUnequal && inAGStr);
    }
    static constexpr bool unequal(bool inAGStr) { return overridesUnequal || inAGStr; }
};

template<class String>
struct Class : Answers<false, false> {};
template<>
struct Class<EqualToAll> : Answers<true, false> {};
template<>
struct Class<UnequalToAll> : Answers<false, true> {};
template<>
struct Class<Both> : Answers<true, true> {};
template<>
struct Class<InheritingBoth> : Answers<true, true> {};

template<class String>
using ClassOf = Class<typename std::remove_const<String>::type>;

// C++20 may compute `a != b` as `!(a == b)` or `!(b == a)`. The first compilers prefer that for a
// const object of a class that overrides operator==, and no header can prevent it.
template<class String>
constexpr bool mayNegateEqual() {
    return __cplusplus >= 202002L && std::is_const<String>::value &&
           ClassOf<String>::kOverridesEqual;
}

#define EXPECT(comparison) expect(comparison, __PRETTY_FUNCTION__, #comparison)

// Expects all comparisons of `string` with `other` to give the class's answers. `same` says whether
// AGStr takes the two texts for equal.
#define EXPECT_EQUALITY(other, same)                                                               \
    EXPECT((string == other) == ClassOf<String>::equal(same));                                     \
    EXPECT((other == string) == ClassOf<String>::equal(same))
#define EXPECT_INEQUALITY(other, same)                                                             \
    EXPECT((string != other) == ClassOf<String>::unequal(!(same)));                                \
    EXPECT((other != string) == ClassOf<String>::unequal(!(same)))
#define EXPECT_ANSWERS(other, same)                                                                \
    EXPECT_EQUALITY(other, same);                                                                  \
    EXPECT_INEQUALITY(other, same)
#define EXPECT_ANSWERS_TO_CONST(other, same)                                                       \
    EXPECT_EQUALITY(other, same);                                                                  \
    if (!mayNegateEqual<String>()) {                                                               \
        EXPECT_INEQUALITY(other, same);                                                            \
    }

// Every type of pointer on either side.
template<class String>
void compareWithPointers(String& string, const char* text, bool same) {
    char array[4] = "";
    for (std::size_t i = 0; text[i] != '\0'; ++i)
        array[i] = text[i];
    const char constArray[4] = {array[0], array[1], array[2], '\0'};
    char* pointer = array;
    char* const constPointer = array;
    const char* pointerToConst = array;
    const char* const constPointerToConst = array;
    EXPECT_ANSWERS(array, same);
    EXPECT_ANSWERS(pointer, same);
    EXPECT_ANSWERS(constPointer, same);
    EXPECT_ANSWERS_TO_CONST(constArray, same);
    EXPECT_ANSWERS_TO_CONST(pointerToConst, same);
    EXPECT_ANSWERS_TO_CONST(constPointerToConst, same);
    EXPECT_ANSWERS_TO_CONST(std::string(text).c_str(), same);
}

template<class String>
void compareWithLiterals(String& string) {
    EXPECT_ANSWERS_TO_CONST("abc", true);
    EXPECT_ANSWERS_TO_CONST("abd", false);
    EXPECT_ANSWERS_TO_CONST("", false);
}

template<class String>
void compareWithNull(String& string, bool isEmpty) {
    char* pointer = nullptr;
    const char* pointerToConst = nullptr;
    const std::nullptr_t null = nullptr;
    EXPECT_ANSWERS(nullptr, isEmpty);
    EXPECT_ANSWERS(null, isEmpty);
    EXPECT_ANSWERS(pointer, isEmpty);
    EXPECT_ANSWERS_TO_CONST(pointerToConst, isEmpty);
    EXPECT_ANSWERS_TO_CONST(0, isEmpty);
    EXPECT_ANSWERS_TO_CONST(NULL, isEmpty);
}

// With a string on the right, which stands for its text, the left one's operator answers.
template<class String, class Right>
void compareWithString(String& string, Right& right, bool same) {
    EXPECT((string == right) == ClassOf<String>::equal(same));
    EXPECT((string != right) == ClassOf<String>::unequal(!same));
    EXPECT((right == string) == ClassOf<Right>::equal(same));
    EXPECT((right != string) == ClassOf<Right>::unequal(!same));
}

template<class String, class Right>
void compareWithClass(String& abc, String& empty) {
    Right same("abc");
    const Right constSame("abc");
    Right other("abd");
    const Right constOther("abd");
    Right longer("abc", 4); // with a NUL at its end
    const Right none;
    compareWithString(abc, same, true);
    compareWithString(abc, constSame, true);
    compareWithString(abc, other, false);
    compareWithString(abc, constOther, false);
    compareWithString(abc, longer, true);
    compareWithString(abc, none, false);
    compareWithString(empty, same, false);
    compareWithString(empty, none, false); // an empty string differs from ""
}

template<class String>
void compareWithTemporaries(String& string) {
    using Plain = typename std::remove_const<String>::type;
    EXPECT((Plain("abc") == "abc") == ClassOf<String>::equal(true));
    EXPECT((Plain("abc") != "abd") == ClassOf<String>::unequal(true));
    EXPECT(("abc" == Plain("abc")) == ClassOf<String>::equal(true));
    EXPECT(("abd" != Plain("abc")) == ClassOf<String>::unequal(true));
    EXPECT((Plain("abc") == string) == ClassOf<String>::equal(true));
    EXPECT((string != Plain("abd")) == ClassOf<String>::unequal(true));
    EXPECT((string == AGStr("abc")) == ClassOf<String>::equal(true));
    EXPECT(AGStr("abc") == string);
}

template<class String>
void compare(String& abc, String& empty) {
    compareWithPointers(abc, "abc", true);
    compareWithPointers(abc, "abd", false);
    compareWithPointers(empty, "", false);
    compareWithPointers(empty, "abc", false);
    compareWithLiterals(abc);
    compareWithNull(abc, false);
    compareWithNull(empty, true);
    compareWithClass<String, AGStr>(abc, empty);
    compareWithClass<String, Inheriting>(abc, empty);
    compareWithClass<String, EqualToAll>(abc, empty);
    compareWithClass<String, UnequalToAll>(abc, empty);
    compareWithClass<String, Both>(abc, empty);
    compareWithClass<String, InheritingBoth>(abc, empty);
    compareWithTemporaries(abc);
}

template<class String>
void compareClass() {
    String abc("abc");
    const String constAbc("abc");
    String empty("");
    const String constEmpty;
    compare(abc, empty);
    compare(constAbc, constEmpty);
}

// Whether a Left and a Right compare.
template<class Left, class Right, class = bool>
struct AreComparable : std::false_type {};
template<class Left, class Right>
struct AreComparable<Left, Right, decltype(std::declval<Left>() == std::declval<Right>())>
    : std::true_type {};

template<class String, class Other>
constexpr bool compares() {
    return AreComparable<String&, Other>::value && AreComparable<const String&, Other>::value &&
           AreComparable<Other, String&>::value && AreComparable<Other, const String&>::value;
}

template<class String, class Other>
constexpr bool comparesSomehow() {
    return AreComparable<String&, Other>::value || AreComparable<const String&, Other>::value ||
           AreComparable<Other, String&>::value || AreComparable<Other, const String&>::value;
}

static_assert(compares<AGStr, const char*>() && compares<EqualToAll, char*>(), "");
static_assert(!comparesSomehow<AGStr, int&>() && !comparesSomehow<AGStr, const int&>(), "");
static_assert(!comparesSomehow<AGStr, char&>() && !comparesSomehow<AGStr, const char&>(), "");
static_assert(!comparesSomehow<Both, int&>() && !comparesSomehow<Inheriting, char&>(), "");
static_assert(!comparesSomehow<AGStr, double&>() && !comparesSomehow<AGStr, bool&>(), "");
static_assert(!comparesSomehow<AGStr, std::size_t&>() && !comparesSomehow<AGStr, long&>(), "");
static_assert(!comparesSomehow<AGStr, const struct Opaque&>(), "");
static_assert(!comparesSomehow<AGStr, std::string&>() && !comparesSomehow<AGStr, void (&)()>(), "");

static_assert(AreComparable<const Incomplete&, char*>::value, "");
static_assert(AreComparable<const Incomplete&, const Incomplete&>::value, "");
static_assert(!AreComparable<const Incomplete&, const char*>::value, "");

// A class that has a string, and its comparison: with anything.
class Owner : AGStr {
public:
    template<class Other>
    friend bool operator==(const Owner&, const Other&) {
        return true;
    }
    template<class Other>
    friend bool operator==(const Other&, const Owner&) {
        return true;
    }
};

// A subclass with a comparison of its own, which is better than that of two strings.
struct Named : AGStr {
    using AGStr::AGStr;
};
bool operator==(const Named&, const Named&) {
    return true;
}

void compareWithOwnOperators() {
    const Owner owner;
    char text[] = "abc";
    EXPECT(owner == text && text == owner && owner == AGStr() && AGStr() == owner);
    Named abc("abc");
    Named abd("abd");
    const Named constAbd("abd");
    EXPECT(abc == abd && abc == constAbd && !(abc == "abd"));
}

// A namespace with an operator of its own, which hides those outside of it from plain look-up.
namespace apart {
struct Key : AGStr {
    using AGStr::AGStr;
};
struct Other {};
bool operator==(const Other&, const Other&) {
    return false;
}
void compareFromNamespace() {
    Key key("abc");
    char text[] = "abc";
    EXPECT(key == text && text == key && key == AGStr("abc") && !(Other() == Other()));
}
} // namespace apart

} // namespace

int main() {
    compareClass<AGStr>();
    compareClass<Inheriting>();
    compareClass<EqualToAll>();
    compareClass<UnequalToAll>();
    compareClass<Both>();
    compareClass<InheritingBoth>();
    compareWithOwnOperators();
    apart::compareFromNamespace();
    return failures == 0 ? 0 : 1;
}
