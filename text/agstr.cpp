#include "text/agstr.h"

#include "text/print.h"
#include "text/wildcard.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <strings.h>

namespace wildcard = pelorikutil::wildcard;

namespace {

constexpr const char* kBlanksAndTabs = " \t";

std::size_t sum(std::size_t left, std::size_t right) {
    if (left > SIZE_MAX - right)
        throw std::bad_alloc();
    return left + right;
}

// Allocates `length` bytes and a NUL after them.
char* newText(std::size_t length) {
    char* const text = new char[sum(length, 1)];
    text[length] = '\0';
    return text;
}

char* put(std::string_view part, char* out) {
    return std::copy(part.begin(), part.end(), out);
}

std::string_view bytesOf(const AGStr& text) {
    return {static_cast<const char*>(text), text.GetLength()};
}

} // namespace

// A new text in a block of exactly its size, which no string owns yet.
struct AGStr::AGStrBlock {
    char* text; // null: no block
    std::size_t length;

    // Deletes the string's old text last, because the arguments of a change may point into it.
    void giveTo(AGStr& string) const {
        delete[] string.buffer;
        string.buffer = text;
        string.length = length;
    }

    // Concatenates the parts, with blanks after the first.
    static AGStrBlock joined(std::string_view head, std::size_t blanks = 0,
                             std::string_view middle = {}, std::string_view tail = {}) {
        const std::size_t length = sum(sum(head.size(), blanks), sum(middle.size(), tail.size()));
        char* const text = newText(length);
        put(tail, put(middle, std::fill_n(put(head, text), blanks, ' ')));
        return {text, length};
    }

    static AGStrBlock inserted(std::string_view text, std::size_t position,
                               std::string_view insertion) {
        const std::size_t at = std::min(position, text.size());
        return joined(text.substr(0, at), position - at, insertion, text.substr(at));
    }

    // Changes nothing for an empty `tail`.
    static AGStr& append(AGStr& string, std::string_view tail) {
        if (!tail.empty())
            joined(bytesOf(string), 0, tail).giveTo(string);
        return string;
    }

    // An empty result has no block. The second printing may be shorter, because "%n" can change an
    // argument of the first. Sets `length` to the result of printf.
    __attribute__((format(printf, 1, 0))) static AGStrBlock
    printed(const char* format, va_list arguments, int& length) {
        length = pelorikutil::print(nullptr, 0, format, arguments);
        if (length <= 0)
            return {nullptr, 0};
        const std::size_t measured = static_cast<std::size_t>(length);
        std::unique_ptr<char[]> text(newText(measured));
        length = std::min(length, pelorikutil::print(text.get(), measured + 1, format, arguments));
        if (length <= 0)
            return {nullptr, 0};
        const std::size_t printed = static_cast<std::size_t>(length);
        return printed == measured ? AGStrBlock{text.release(), measured}
                                   : joined({text.get(), printed});
    }
};

namespace {

// A number at the start of a text, and the end of its suffix.
struct Number {
    double value;
    const char* end;
};

const void* virtualTableOf(const AGStr& string) {
    const void* table = nullptr;
    std::memcpy(static_cast<void*>(&table), static_cast<const void*>(&string), sizeof table);
    return table;
}

// Returns false for subclasses, which may override the virtual operations that call each other.
//
// Compares virtual tables, because classes that are compiled with -fno-rtti have no type
// information. Only the constructors in this file make plain strings, so all of them have the same
// table. It may be a copy in the program (a copy relocation), since the dynamic linker then makes
// these constructors use the copy, too. A string of another copy of the library counts as a
// subclass, and virtual calls give the same answers for it.
bool isExactly(const AGStr& string) {
    const AGStr plain;
    return virtualTableOf(string) == virtualTableOf(plain);
}

std::string_view orEmpty(const char* text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

// The first occurrence of `part`, which is not empty; null when there is none.
const char* findIn(std::string_view text, std::string_view part) {
    return static_cast<const char*>(memmem(text.data(), text.size(), part.data(), part.size()));
}

// Calls `visit` with the text before each occurrence of `part`, and returns the text after the
// last.
template<class Visit>
std::string_view forEachBefore(std::string_view text, std::string_view part, Visit visit) {
    while (const char* const found = findIn(text, part)) {
        const std::size_t before = static_cast<std::size_t>(found - text.data());
        visit(text.substr(0, before));
        text.remove_prefix(before + part.size());
    }
    return text;
}

// Returns the length of a text after `count` replacements, at least one.
std::size_t lengthAfterReplacing(std::size_t length, std::size_t count, std::size_t from,
                                 std::size_t to) {
    if (to <= from)
        return length - count * (from - to);
    // coverage off: takes a text and a replacement of 4 GiB each
    if (to - from > SIZE_MAX / count)
        throw std::bad_alloc();
    // coverage on
    return sum(length, count * (to - from));
}

// Returns an index in `text` as searches report it.
int indexOf(const char* found, const char* text) {
    return found == nullptr || found - text > INT_MAX ? -1 : static_cast<int>(found - text);
}

// Enough for the longest number, such as -1.234567890123457e-308.
using NumberText = std::array<char, 32>;

// "%.16g" never prints a point at the end.
std::string_view printNumber(double value, NumberText& out) {
    std::snprintf(out.data(), out.size(), "%.16g", value);
    return out.data();
}

bool isOneOf(char c, const char* characters) {
    return c != '\0' && std::strchr(characters, c) != nullptr;
}

bool storeBool(const char* text, void* out) {
    const std::string_view word = text;
    const bool isTrue = word == "true" || word == "TRUE" || word == "1";
    if (!isTrue && word != "false" && word != "FALSE" && word != "0")
        return false;
    *static_cast<unsigned char*>(out) = isTrue ? 1 : 0;
    return true;
}

// No range contains NaN.
template<class T>
bool store(double value, double lowest, double highest, void* out) {
    if (!(value >= lowest && value <= highest))
        return false;
    const T stored = static_cast<T>(value);
    std::memcpy(out, &stored, sizeof stored);
    return true;
}

bool storeAs(char type, double value, void* out) {
    switch (type) {
    case 'C':
        return store<std::uint8_t>(value, 0, UINT8_MAX, out);
    case 'c':
        return store<std::int8_t>(value, INT8_MIN, INT8_MAX, out);
    case 'S':
        return store<std::uint16_t>(value, 0, UINT16_MAX, out);
    case 's':
        return store<std::int16_t>(value, -INT16_MAX, INT16_MAX, out);
    case 'I':
        return store<std::uint32_t>(value, 0, UINT32_MAX, out);
    case 'i':
        return store<std::int32_t>(value, INT32_MIN, INT32_MAX, out);
    case 'L':
        return store<std::uint64_t>(value, 0, UINT32_MAX, out);
    case 'l':
        return store<std::int64_t>(value, INT32_MIN, INT32_MAX, out);
    case 'f':
        return store<float>(value, -3.402823466e38, 3.402823466e38, out);
    case 'd':
        std::memcpy(out, &value, sizeof value);
        return true;
    default:
        return true;
    }
}

// Returns true when `pattern` matches the rest of `text` from some position on.
bool matchesSomewhere(const AGStr& string, const char* pattern, const char* text) {
    if (isExactly(string))
        return wildcard::matches(pattern, text, true);
    return wildcard::Search(&string, pattern, text).find([&](const char* position) {
        return string.Match(pattern, position);
    });
}

// Reads the number at the start of `text` and its suffix.
Number readNumber(const char* text, char type) {
    char* end = nullptr;
    const double value = std::strtod(text, &end);
    const bool hasSuffix = (isOneOf(type, "df") && isOneOf(*end, "Ff")) ||
                           (isOneOf(type, "Ll") && isOneOf(*end, "Ll"));
    return {value, hasSuffix ? end + 1 : end};
}

} // namespace

AGStr::~AGStr() {
    delete[] buffer;
}

bool AGStr::operator!=(const char* text) const {
    const bool isEmpty = GetLength() == 0;
    if (isEmpty || text == nullptr)
        return !(isEmpty && text == nullptr);
    return std::strcmp(text, buffer) != 0;
}

bool AGStr::operator==(const char* text) const {
    return !operator!=(text);
}

int AGStr::CompareNoCase(const char* text) const {
    const bool isEmpty = GetLength() == 0;
    if (isEmpty || text == nullptr)
        return isEmpty && text == nullptr ? 0 : 1;
    return strcasecmp(buffer, text);
}

AGStr& AGStr::toStr(AGStr& destination) const {
    return destination += *this;
}

bool AGStr::Match(const char* pattern, const char* text) const {
    if (isExactly(*this))
        return wildcard::matches(pattern, text, false);
    while (*pattern != '\0') {
        if (*pattern == '*') {
            const char* const star = pattern;
            if (!Scan(pattern, text) || pattern == star)
                return false;
        } else {
            if (*text == '\0' || (*pattern != '?' && *pattern != *text))
                return false;
            ++pattern;
            ++text;
        }
    }
    return *text == '\0';
}

bool AGStr::Scan(const char*& pattern, const char*& text) const {
    const char* rest = pattern;
    const char* from = text;
    for (; *rest == '*' || *rest == '?'; ++rest) {
        if (*rest == '?' && *from++ == '\0')
            return false;
    }
    if (*rest != '\0' && !matchesSomewhere(*this, rest, from))
        return false;
    pattern = rest + std::strlen(rest);
    text = from + std::strlen(from);
    return true;
}

void AGStr::VarToString(double value) {
    NumberText text;
    AGStrBlock::joined(printNumber(value, text)).giveTo(*this);
}

AGStr::AGStr() : length(0), buffer(nullptr) {}

AGStr::AGStr(const char* text) : AGStr() {
    operator=(text);
}

AGStr::AGStr(const char* text, std::size_t count) : AGStr() {
    if (text == nullptr || count == 0)
        return;
    const AGStrBlock block = {newText(count), count};
    std::strncpy(block.text, text, count);
    block.giveTo(*this);
}

AGStr::AGStr(char byte) : AGStr() {
    operator=(byte);
}

AGStr::AGStr(int number) : AGStr() {
    operator=(number);
}

AGStr::AGStr(unsigned int number) : AGStr() {
    operator=(number);
}

AGStr::AGStr(double number) : AGStr() {
    operator=(number);
}

AGStr::AGStr(const AGStr& other) : AGStr() {
    operator=(other);
}

AGStr& AGStr::operator=(const AGStr& other) {
    return operator=(static_cast<const char*>(other));
}

AGStr& AGStr::operator=(const char* text) {
    const AGStrBlock block = text == nullptr ? AGStrBlock{nullptr, 0} : AGStrBlock::joined(text);
    block.giveTo(*this);
    return *this;
}

AGStr& AGStr::operator=(char byte) {
    AGStrBlock::joined({&byte, 1}).giveTo(*this);
    return *this;
}

AGStr& AGStr::operator=(int number) {
    return operator=(static_cast<double>(number));
}

AGStr& AGStr::operator=(unsigned int number) {
    return operator=(static_cast<double>(number));
}

AGStr& AGStr::operator=(double number) {
    VarToString(number);
    return *this;
}

AGStr& AGStr::operator+=(const AGStr& other) {
    return AGStrBlock::append(*this, bytesOf(other));
}

AGStr& AGStr::operator+=(const char* text) {
    return AGStrBlock::append(*this, orEmpty(text));
}

AGStr& AGStr::operator+=(char byte) {
    return AGStrBlock::append(*this, {&byte, 1});
}

AGStr& AGStr::operator+=(int number) {
    return operator+=(static_cast<double>(number));
}

AGStr& AGStr::operator+=(unsigned int number) {
    return operator+=(static_cast<double>(number));
}

AGStr& AGStr::operator+=(double number) {
    NumberText text;
    return AGStrBlock::append(*this, printNumber(number, text));
}

namespace {

template<class Left, class Right>
AGStr concatenated(const Left& left, const Right& right) {
    AGStr result(left);
    result += right;
    return result;
}

} // namespace

AGStr AGStr::operator+(const AGStr& other) const {
    return concatenated(*this, other);
}

AGStr AGStr::operator+(char byte) const {
    return concatenated(*this, byte);
}

AGStr AGStr::operator+(const char* text) const {
    return concatenated(*this, text);
}

AGStr AGStr::operator+(unsigned int number) const {
    return concatenated(*this, number);
}

AGStr AGStr::operator+(int number) const {
    return concatenated(*this, number);
}

AGStr AGStr::operator+(double number) const {
    return concatenated(*this, number);
}

AGStr operator+(double number, const AGStr& text) {
    return concatenated(number, text);
}

AGStr operator+(const char* left, const AGStr& right) {
    return concatenated(left, right);
}

AGStr operator+(char byte, const AGStr& text) {
    return concatenated(byte, text);
}

std::size_t AGStr::GetLength() const {
    return buffer == nullptr ? 0 : length;
}

char AGStr::operator[](std::size_t index) const {
    return buffer == nullptr || index > length ? '\0' : buffer[index];
}

char& AGStr::operator[](std::size_t index) {
    if (index >= GetLength())
        AGStrBlock::joined(bytesOf(*this), sum(index, 1) - GetLength()).giveTo(*this);
    return buffer[index];
}

char* AGStr::GetChar() {
    static char none[1];
    return buffer == nullptr ? none : buffer;
}

AGStr::operator char*() {
    return GetChar();
}

AGStr::operator const char*() const {
    return buffer == nullptr ? "" : buffer;
}

char* AGStr::GetBufferSetLength(std::size_t newLength) {
    if (newLength == 0)
        return nullptr;
    const std::string_view kept = bytesOf(*this).substr(0, newLength);
    if (newLength != GetLength())
        AGStrBlock::joined(kept, newLength - kept.size()).giveTo(*this);
    return buffer;
}

void AGStr::SetLengthByBuffer() {
    length = std::strlen(*this);
}

AGStr AGStr::Mid(std::size_t start, std::size_t count) const {
    const std::size_t rest = GetLength() - std::min(start, GetLength());
    if (start == 0 && count >= rest)
        return *this;
    return AGStr(operator const char*() + GetLength() - rest, std::min(count, rest));
}

AGStr AGStr::Mid(std::size_t start) const {
    return Mid(start, GetLength());
}

AGStr AGStr::Left(std::size_t count) const {
    return Mid(0, count);
}

AGStr AGStr::Right(std::size_t count) const {
    return Mid(GetLength() - std::min(count, GetLength()));
}

AGStr AGStr::SpanIncluding(const char* set) const {
    return Left(std::strspn(*this, set));
}

AGStr AGStr::SpanExcluding(const char* set) const {
    return Left(std::strcspn(*this, set));
}

void AGStr::MakeUpper() {
    std::transform(buffer, buffer + GetLength(), buffer,
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
}

void AGStr::MakeLower() {
    std::transform(buffer, buffer + GetLength(), buffer,
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
}

void AGStr::MakeReverse() {
    std::reverse(buffer, buffer + GetLength());
}

std::size_t AGStr::Insert(std::size_t position, char byte) {
    AGStrBlock::inserted(bytesOf(*this), position, {&byte, 1}).giveTo(*this);
    return length;
}

std::size_t AGStr::Insert(std::size_t position, const char* text) {
    if (orEmpty(text).empty())
        return GetLength();
    const std::string_view whole = bytesOf(*this);
    const std::string_view kept = whole.substr(0, whole.find('\0'));
    const bool isBehindANul = kept.size() < std::min(position, whole.size());
    (isBehindANul ? AGStrBlock::joined(kept) : AGStrBlock::inserted(kept, position, text))
        .giveTo(*this);
    return length;
}

std::size_t AGStr::Delete(std::size_t position, std::size_t count) {
    const std::string_view text = bytesOf(*this);
    if (count > 0 && position < text.size()) {
        const std::size_t end = position + std::min(count, text.size() - position);
        AGStrBlock::joined(text.substr(0, position), 0, text.substr(end)).giveTo(*this);
    }
    return GetLength();
}

std::size_t AGStr::Remove(char byte) {
    const std::string_view text = bytesOf(*this);
    const std::size_t count = static_cast<std::size_t>(std::count(text.begin(), text.end(), byte));
    if (count > 0) {
        const AGStrBlock block = {newText(text.size() - count), text.size() - count};
        std::remove_copy(text.begin(), text.end(), block.text, byte);
        block.giveTo(*this);
    }
    return count;
}

std::size_t AGStr::Remove(const char* text) {
    return Replace(text, "");
}

std::size_t AGStr::Replace(char from, char to) {
    char* const end = buffer + GetLength();
    const auto count = std::count(buffer, end, from);
    std::replace(buffer, end, from, to);
    return static_cast<std::size_t>(count);
}

std::size_t AGStr::Replace(const char* from, const char* to) {
    if (orEmpty(from).empty() || to == nullptr)
        return 0;
    const std::string_view text = bytesOf(*this);
    const std::string_view part = from;
    const std::string_view replacement = to;
    std::size_t count = 0;
    forEachBefore(text, part, [&count](std::string_view) { ++count; });
    if (count == 0)
        return 0;

    const std::size_t newLength =
        lengthAfterReplacing(text.size(), count, part.size(), replacement.size());
    const AGStrBlock block = {newText(newLength), newLength};
    char* out = block.text;
    const std::string_view rest = forEachBefore(
        text, part, [&](std::string_view before) { out = put(replacement, put(before, out)); });
    put(rest, out);
    block.giveTo(*this);
    return count;
}

int AGStr::Find(char byte) const {
    return Find(byte, 0);
}

int AGStr::Find(char byte, std::size_t start) const {
    if (start >= GetLength())
        return -1;
    return indexOf(std::strchr(buffer + start, byte), buffer);
}

int AGStr::Find(const char* text) const {
    return Find(text, 0);
}

int AGStr::Find(const char* text, std::size_t start) const {
    if (start >= GetLength() || text == nullptr)
        return -1;
    return indexOf(std::strstr(buffer + start, text), buffer);
}

int AGStr::ReverseFind(char byte) const {
    return GetLength() == 0 ? -1 : indexOf(std::strrchr(buffer, byte), buffer);
}

int AGStr::Format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = formatAGStr(format, arguments);
    va_end(arguments);
    return result;
}

int AGStr::formatAGStr(const char* format, va_list list) {
    if (format == nullptr)
        return 0;
    int result = 0;
    AGStrBlock::printed(format, list, result).giveTo(*this);
    return result;
}

bool AGStr::NumericParse(void* out, char type) const {
    const char* const text = operator const char*();
    const char* const start = text + std::strspn(text, kBlanksAndTabs);
    if (type == 'b')
        return storeBool(start, out);
    const Number number = readNumber(start, type);
    // Rejects texts without a number. With the ranges, that also rejects "-" for unsigned types.
    if ((number.value == 0.0 && *start != '0') || !storeAs(type, number.value, out))
        return false;
    return number.end[std::strspn(number.end, kBlanksAndTabs)] == '\0';
}

AGStr TWFormat(const char* format, ...) {
    AGStr result;
    va_list arguments;
    va_start(arguments, format);
    result.Format(format, arguments);
    va_end(arguments);
    return result;
}
