// A caller's program: subclasses and formats as callers write them. It is built with -fno-rtti
// against the installed library, so it uses no test library. Prints each failure, and exits with 1.

#include "text/agstr.h"

#include <cstdarg>
#include <cstdio>

// Names that belong to the caller.
namespace wildcard {
class Search {
public:
    Search(const void* object, const char* pattern, const char* text);
    ~Search();
};
Search::Search(const void*, const char*, const char*) {}
Search::~Search() {}
} // namespace wildcard

struct Block {
    int size;
};

namespace {

int failures = 0;

void expect(bool kept, const char* what) {
    if (kept)
        return;
    std::printf("Not so: %s\n", what);
    ++failures;
}

#define EXPECT(condition) expect(condition, #condition)

struct Inheriting : AGStr {
    Block block = {0}; // the caller's own
};

struct Counting : AGStr {
    bool Match(const char* pattern, const char* text) const override {
        ++calls;
        return AGStr::Match(pattern, text);
    }
    mutable int calls = 0;
};

struct Refusing : AGStr {
    bool Scan(const char*&, const char*&) const override { return false; }
};

void matchInSubclasses() {
    const Inheriting inheriting;
    EXPECT(inheriting.Match("a*b?", "axxbc"));
    EXPECT(!inheriting.Match("*.txt", "file.txt.bak"));
    const char* pattern = "*b?";
    const char* text = "axxbc";
    EXPECT(inheriting.Scan(pattern, text) && *pattern == '\0' && *text == '\0');
    const Counting counting;
    EXPECT(counting.Match("*b*c", "abac"));
    EXPECT(counting.calls == 5); // the first, "b*c" at "abac" and "bac", and "c" at "ac" and "c"
    EXPECT(!Refusing().Match("*", "a"));
}

// The formats are in writable memory, where a fortified vsnprintf accepts less than the plain one.
void format() {
    AGStr string;
    char count[] = "four%n more";
    int stored = 0;
    EXPECT(string.Format(count, &stored) == 9 && string == "four more" && stored == 4);
    char second[] = "%2$d";
    EXPECT(string.Format(second, 1, 2) == 1 && string == "2");
    EXPECT(TWFormat(count, &stored) == "four more");
    EXPECT(TWFormat(second, 1, 2) == "2");
}

int formatThroughList(AGStr& string, const char* format, ...) {
    va_list list;
    va_start(list, format);
    const int result = string.Format(format, list);
    va_end(list);
    return result;
}

void formatLists() {
    AGStr string;
    char second[] = "%2$d";
    EXPECT(formatThroughList(string, second, 1, 2) == 1 && string == "2");
    EXPECT(formatThroughList(string, "%s", "text") == 4 && string == "text");
    EXPECT(string.Format("%d", 0) == 1 && string == "0");
    EXPECT(string.Format("%p", nullptr) == 5 && string == "(nil)");
}

} // namespace

int main() {
    const wildcard::Search search(nullptr, "", "");
    matchInSubclasses();
    format();
    formatLists();
    return failures == 0 ? 0 : 1;
}
