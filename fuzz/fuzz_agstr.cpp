// AGStr beside std::string: the input is a list of changes, each of which both go through.

#include "fuzz/target.h"
#include "text/agstr.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <string_view>

namespace {

using std::string;

constexpr std::size_t kLongest = 2000;

// What is left of the input, taken from its front; zeros behind its end.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

    bool isEmpty() const { return next_ == end_; }

    std::uint8_t byte() { return isEmpty() ? std::uint8_t{0} : *next_++; }
    char character() { return static_cast<char>(byte()); }

    // Mostly small, sometimes as large as can be.
    std::size_t number() {
        const std::uint8_t value = byte();
        return value == 255 ? SIZE_MAX : value;
    }

    string text() {
        string result;
        for (std::size_t length = byte() % 16; length > 0; --length)
            result.push_back(character());
        return result.c_str();
    }

private:
    const std::uint8_t* next_;
    const std::uint8_t* end_;
};

// A string in the making, twice.
struct Pair {
    AGStr actual;
    string expected;

    // A text from the input, or a stretch of the string itself.
    const char* argument(Input& input) {
        const std::size_t start = input.number();
        if (start < expected.size())
            return actual.GetChar() + start;
        own = input.text();
        return own.c_str();
    }

    string own;
};

void requireSame(std::size_t actual, std::size_t expected) {
    fuzz::require(actual == expected, "both give the same number");
}

void requireSame(const AGStr& actual, std::string_view expected) {
    fuzz::require(std::string_view(actual, actual.GetLength()) == expected,
                  "both hold the same text");
    fuzz::require(static_cast<const char*>(actual)[expected.size()] == '\0', "the text has an end");
}

void assign(Pair& pair, Input& input) {
    const char* const text = pair.argument(input);
    pair.expected = string(text);
    pair.actual = text;
}

void append(Pair& pair, Input& input) {
    const char* const text = pair.argument(input);
    pair.expected += string(text);
    pair.actual += text;
}

void appendByte(Pair& pair, Input& input) {
    const char byte = input.character();
    pair.expected += byte;
    pair.actual += byte;
}

void appendItself(Pair& pair, Input&) {
    pair.expected += pair.expected;
    pair.actual += pair.actual;
}

void write(Pair& pair, Input& input) {
    const std::size_t at = input.byte();
    const char byte = input.character();
    pair.expected.resize(std::max(pair.expected.size(), at + 1), ' ');
    pair.expected[at] = byte;
    pair.actual[at] = byte;
}

void resize(Pair& pair, Input& input) {
    const std::size_t length = input.byte();
    pair.expected.resize(length == 0 ? pair.expected.size() : length, ' ');
    fuzz::require((pair.actual.GetBufferSetLength(length) == nullptr) == (length == 0),
                  "only the length zero gives null");
}

void cutAtNul(Pair& pair, Input&) {
    pair.expected = string(pair.expected.c_str());
    pair.actual.SetLengthByBuffer();
}

void insertByte(Pair& pair, Input& input) {
    const std::size_t at = input.byte();
    const char byte = input.character();
    pair.expected.resize(std::max(pair.expected.size(), at), ' ');
    pair.expected.insert(at, 1, byte);
    requireSame(pair.actual.Insert(at, byte), pair.expected.size());
}

void insertText(Pair& pair, Input& input) {
    const std::size_t at = input.byte();
    const char* const argument = pair.argument(input);
    const string text = argument;
    if (!text.empty()) {
        pair.expected.resize(std::max(pair.expected.size(), at), ' ');
        pair.expected.insert(at, text);
        pair.expected = string(pair.expected.c_str());
    }
    requireSame(pair.actual.Insert(at, argument), pair.expected.size());
}

void erase(Pair& pair, Input& input) {
    const std::size_t at = input.number();
    const std::size_t count = input.number();
    if (at < pair.expected.size())
        pair.expected.erase(at, count);
    requireSame(pair.actual.Delete(at, count), pair.expected.size());
}

void removeByte(Pair& pair, Input& input) {
    const char byte = input.character();
    requireSame(pair.actual.Remove(byte), std::erase(pair.expected, byte));
}

std::size_t exchange(string& text, const string& from, const string& to) {
    std::size_t count = 0;
    if (from.empty())
        return 0;
    for (std::size_t at = text.find(from); at != string::npos; at = text.find(from, at)) {
        text.replace(at, from.size(), to);
        at += to.size();
        ++count;
    }
    return count;
}

void removeText(Pair& pair, Input& input) {
    const char* const text = pair.argument(input);
    const std::size_t count = exchange(pair.expected, text, "");
    requireSame(pair.actual.Remove(text), count);
}

void replaceByte(Pair& pair, Input& input) {
    const char from = input.character();
    const char to = input.character();
    const auto count = std::count(pair.expected.begin(), pair.expected.end(), from);
    std::replace(pair.expected.begin(), pair.expected.end(), from, to);
    requireSame(pair.actual.Replace(from, to), static_cast<std::size_t>(count));
}

void replaceText(Pair& pair, Input& input) {
    const char* const from = pair.argument(input);
    const string copyOfFrom = from;
    const string to = input.text();
    const std::size_t count = exchange(pair.expected, copyOfFrom, to);
    requireSame(pair.actual.Replace(from, to.c_str()), count);
}

void changeCase(Pair& pair, Input& input) {
    const bool upper = input.byte() % 2 == 0;
    for (char& c : pair.expected) {
        const int value = static_cast<unsigned char>(c);
        c = static_cast<char>(upper ? std::toupper(value) : std::tolower(value));
    }
    upper ? pair.actual.MakeUpper() : pair.actual.MakeLower();
}

void reverse(Pair& pair, Input&) {
    std::reverse(pair.expected.begin(), pair.expected.end());
    pair.actual.MakeReverse();
}

void format(Pair& pair, Input& input) {
    const char* const argument = pair.argument(input);
    const string text = argument;
    const int width = input.byte();
    pair.expected = text.size() < static_cast<std::size_t>(width)
                        ? string(static_cast<std::size_t>(width) - text.size(), ' ') + text
                        : text;
    requireSame(static_cast<std::size_t>(pair.actual.Format("%*s", width, argument)),
                pair.expected.size());
}

void copy(Pair& pair, Input&) {
    const AGStr copied(pair.actual);
    pair.expected = string(pair.expected.c_str());
    pair.actual = copied;
}

// A part, in which a NUL is followed by NULs only.
void part(Pair& pair, Input& input) {
    const std::size_t start = input.number();
    const std::size_t count = input.number();
    string expected;
    if (start == 0 && count >= pair.expected.size()) {
        expected = pair.expected.c_str();
    } else if (start < pair.expected.size()) {
        expected = pair.expected.substr(start, count);
        expected.replace(std::strlen(expected.c_str()), string::npos,
                         expected.size() - std::strlen(expected.c_str()), '\0');
    }
    requireSame(pair.actual.Mid(start, count), expected);
}

int asIndex(std::size_t found) {
    return found == string::npos ? -1 : static_cast<int>(found);
}

void find(Pair& pair, Input& input) {
    const std::size_t start = input.number();
    const char* const argument = pair.argument(input);
    std::size_t expected = string::npos;
    if (start < pair.expected.size()) {
        const string searched = pair.expected.c_str() + start;
        const std::size_t found = searched.find(argument);
        expected = found == string::npos ? found : start + found;
    }
    fuzz::require(pair.actual.Find(argument, start) == asIndex(expected), "both find the same");
}

void parse(Pair& pair, Input& input) {
    double out = 0;
    const char type = input.character();
    const bool parsed = pair.actual.NumericParse(&out, type);
    const std::size_t first = pair.expected.find_first_not_of(" \t");
    const char start = first == string::npos ? '\0' : pair.expected[first];
    fuzz::require(!parsed || start != '\0', "nothing is no number");
    fuzz::require(!parsed || start != '-' || std::strchr("CSIL", type) == nullptr || type == '\0',
                  "what has no sign is not negative");
}

constexpr void (*kChanges[])(Pair&, Input&) = {
    assign,     append,     appendByte, appendItself, write,      resize,      cutAtNul,
    insertByte, insertText, erase,      removeByte,   removeText, replaceByte, replaceText,
    changeCase, reverse,    format,     copy,         part,       find,        parse,
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Pair pair;
    while (!input.isEmpty() && pair.expected.size() <= kLongest) {
        kChanges[input.byte() % std::size(kChanges)](pair, input);
        requireSame(pair.actual, pair.expected);
    }
    return 0;
}
