/// A string of bytes that subclasses may change: editing in place, printf formatting, parsing of
/// numbers, wildcards.
///
///     AGStr name = TWFormat("%s-%04d", "tunnel", 7);
///     name.MakeUpper();                       // "TUNNEL-0007"
///     name.Match("*.LOG", "TUNNEL-0007.LOG"); // true
///
/// The text stands in a block of exactly its length and a NUL; every change of the text is one
/// allocation and a copy of the whole, unless it writes bytes in their place (`operator[]`,
/// `MakeUpper`, `MakeLower`, `MakeReverse`, `Replace` of a byte). Bytes may be 0, but what goes
/// through a C string ends at the first one: copies, `operator const char*`, comparisons with a
/// pointer, searches, `Insert` of a text, `NumericParse`. Everything else works by length.
///
/// A string is empty when its length is 0. One that was made by the default constructor, from a
/// null pointer, from 0 bytes or by a `Format` that yields nothing has no block at all; `AGStr("")`
/// and copies of empty strings have one of one byte. Only a subclass or an allocation counter can
/// tell.
///
/// Arguments may point into the string's own text. A length that no block can have is a failed
/// allocation. `std::bad_alloc` is all that is thrown, and leaves the string as it was. Pointers
/// must not be null unless said otherwise. Different strings may be used on different threads.

#ifndef PELORIK_TEXT_AGSTR_H
#define PELORIK_TEXT_AGSTR_H

#include "pelorik/export.h"

#include <cstdarg>
#include <cstddef>
#include <type_traits>

/// The string class.
class PELORIK_API AGStr {
public:
    // The virtual operations come first, in the order of their slots. They call each other through
    // the table, so that a subclass that overrides one changes the others.

    virtual ~AGStr();

    /// Whether the text and `text` differ, as C strings.
    ///
    /// Deliberate: an empty string equals a null pointer and differs from everything else, from ""
    /// too; a string that is not empty differs from a null pointer.
    virtual bool operator!=(const char* text) const;

    /// The opposite of `operator!=`.
    virtual bool operator==(const char* text) const;

    /// Like strcasecmp(text of this string, `text`); 0 when this string is empty and `text` null, 1
    /// when only one of both is so.
    virtual int CompareNoCase(const char* text) const;

    /// Appends this string to `destination` and returns that.
    virtual AGStr& toStr(AGStr& destination) const;

    /// Whether `pattern` matches the whole of `text`, byte by byte: "?" stands for one byte, "*"
    /// for any number of them, every other byte for itself. This string's own text plays no part.
    ///
    /// At each "*" it goes on with `Scan`, which ends the matching when it returns false or leaves
    /// `pattern` where it is. The cost is at most in proportion to the product of both lengths; in
    /// a subclass, that is how many times `Match` is called, each failure being remembered for the
    /// length of the outermost call, so overriding operations must give equal answers for equal
    /// arguments.
    virtual bool Match(const char* pattern, const char* text) const;

    /// Matches a "*" at which `pattern` stands, and all that follows: skips the stars, and for each
    /// "?" among them one byte of `text`, then calls `Match` with the rest of the pattern at one
    /// position of the text after another until one matches. A star at the end of the pattern
    /// matches the rest of the text without a call.
    ///
    /// Returns true with both pointers at the ends of their texts, or false with both unmoved.
    ///
    /// Deliberate: once 1000 calls of it are nested in each other, in a subclass, it matches the
    /// rest without calling `Match`, so that a long pattern cannot exhaust the stack.
    virtual bool Scan(const char*& pattern, const char*& text) const;

    /// Makes the number the text, as printf's "%.16g" prints it.
    virtual void VarToString(double value);

    // Construction. A constructor knows no overriding `VarToString`.

    AGStr();                 ///< the empty string
    AGStr(const char* text); ///< null: the empty string

    /// The first `count` bytes of `text`; null gives the empty string.
    ///
    /// Deliberate: the length is `count` even when `text` ends before. The rest are NULs.
    AGStr(const char* text, std::size_t count);

    AGStr(char byte);           ///< one byte, which may be 0
    AGStr(int number);          ///< in decimal
    AGStr(unsigned int number); ///< in decimal
    AGStr(double number);       ///< as `VarToString` does
    AGStr(const AGStr& other);  ///< the text up to its first NUL

    // Assignment. Numbers go through `VarToString`.

    AGStr& operator=(const AGStr& other);  ///< the text up to its first NUL
    AGStr& operator=(const char* text);    ///< null: the empty string
    AGStr& operator=(char byte);           ///< one byte, which may be 0
    AGStr& operator=(int number);          ///< as `VarToString` does
    AGStr& operator=(unsigned int number); ///< as `VarToString` does
    AGStr& operator=(double number);       ///< as `VarToString` does

    ///@{

    /// Appends what a new AGStr of the argument holds. An overriding `VarToString` has no part.
    AGStr& operator+=(const AGStr& other);
    AGStr& operator+=(const char* text);
    AGStr& operator+=(char byte);
    AGStr& operator+=(int number);
    AGStr& operator+=(unsigned int number);
    AGStr& operator+=(double number);
    ///@}

    ///@{

    /// A copy of the left side with the right side appended.
    AGStr operator+(const AGStr& other) const;
    AGStr operator+(char byte) const;
    AGStr operator+(const char* text) const;
    AGStr operator+(unsigned int number) const;
    AGStr operator+(int number) const;
    AGStr operator+(double number) const;
    ///@}

    // Access.

    std::size_t GetLength() const; ///< in bytes, without the NUL behind the text

    /// The byte at `index`; 0 at the end of the text and behind it.
    char operator[](std::size_t index) const;

    /// The byte at `index`, for writing, too.
    ///
    /// Deliberate: a string that ends at or before `index` grows to `index` + 1 bytes, with blanks,
    /// even when the byte is only read.
    char& operator[](std::size_t index);

    /// The text, which may be written within its length; never null. An empty string may give a NUL
    /// that it shares with others. The pointer is good until a change allocates.
    char* GetChar();
    operator char*(); ///< as `GetChar`

    /// The text as a C string; never null.
    operator const char*() const;

    /// Makes the length `newLength`, cutting the end off or filling up with blanks, and returns the
    /// text, all of which may be written.
    ///
    /// Deliberate: 0 changes nothing and returns null.
    char* GetBufferSetLength(std::size_t newLength);

    /// Makes the first NUL the end of the text, after writing through a pointer.
    void SetLengthByBuffer();

    ///@{

    /// A part as a new string, cut off where this string ends. A NUL in it is followed by NULs
    /// only.
    AGStr Mid(std::size_t start, std::size_t count) const;
    AGStr Mid(std::size_t start) const;
    AGStr Left(std::size_t count) const;
    AGStr Right(std::size_t count) const;
    AGStr SpanIncluding(const char* set) const; ///< as far as all bytes are in `set`
    AGStr SpanExcluding(const char* set) const; ///< as far as no byte is in `set`
    ///@}

    // Editing in place.

    void MakeUpper();   ///< by the locale, byte by byte
    void MakeLower();   ///< by the locale, byte by byte
    void MakeReverse(); ///< byte by byte

    /// Inserts `byte` at `position`, or behind as many blanks as it takes. Returns the new length.
    std::size_t Insert(std::size_t position, char byte);

    /// Inserts `text` likewise; null or "" changes nothing. Returns the new length.
    ///
    /// Deliberate: the new text ends at its first NUL, even one that was there before.
    std::size_t Insert(std::size_t position, const char* text);

    /// Deletes up to `count` bytes from `position` on. Returns the new length.
    std::size_t Delete(std::size_t position, std::size_t count);

    std::size_t Remove(char byte); ///< deletes every `byte` and returns how many there were

    /// Deletes `text` wherever it stands, from left to right, and returns how often. What only
    /// comes together by that stays. 0 for null or "".
    std::size_t Remove(const char* text);

    std::size_t Replace(char from, char to); ///< overwrites, and returns how often

    /// Puts `to` wherever `from` stands, from left to right, and returns how often. What was put in
    /// is not searched. 0 when either is null, or `from` "".
    std::size_t Replace(const char* from, const char* to);

    ///@{

    /// Searches, from `start` on: the index of the first find, or the last with `ReverseFind`. -1
    /// when there is none, the string is empty, `text` is null, `start` is not within the text, or
    /// the index is beyond an `int`. Searches end at the first NUL and find that too.
    int Find(char byte) const;
    int Find(char byte, std::size_t start) const;
    int Find(const char* text) const;
    int Find(const char* text, std::size_t start) const;
    int ReverseFind(char byte) const;
    ///@}

    /// Makes the text what printf would print, and returns its length.
    ///
    /// A null `format` changes nothing and returns 0. When nothing is printed the string is empty;
    /// when printing fails, the result is negative and the string empty too.
    ///
    /// A literal 0 or nullptr as the only argument behind `format` is taken for a `va_list`: pass a
    /// variable instead.
    int Format(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// The same with an argument list, which is left as it is.
    int Format(const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));

    /// Reads the text as one value and stores it at `out`. `type` says as what:
    ///
    /// - "C", "S", "I": unsigned, of 8, 16 and 32 bits
    /// - "c", "s", "i": signed, of 8, 16 and 32 bits. Deliberate: not -32768 for "s"
    /// - "L", "l": unsigned and signed, of 64 bits. Deliberate: only the range of 32 bits
    /// - "f": a float within +-3.402823466e38; "d": any double
    /// - "b": one byte, 1 for "true", "TRUE" or "1", 0 for "false", "FALSE" or "0"
    ///
    /// Blanks and tabs may stand before and behind a number, but only before a "b". Numbers are
    /// written as strtod reads them, with the locale's decimal point; a fraction is cut off, but
    /// one beyond a bound is out of range. One "F" or "f" may follow for "d" and "f", one "L" or
    /// "l" for "L" and "l". Only "d" takes NaN.
    ///
    /// Returns false without storing for an empty text, for one that does not start with a value or
    /// is out of range, and for "-" with an unsigned type. Deliberate: for a value of 0 that does
    /// not start with "0", such as "-0", "+0" or ".0", too.
    ///
    /// Deliberate: returns false when something else follows the number, but has stored it. Any
    /// other `type` stores nothing, and says whether the text is a number.
    bool NumericParse(void* out, char type) const;

protected:
    std::size_t length; ///< in bytes, without the NUL
    char* buffer;       ///< from `new char[length + 1]`, or null

private:
    struct Block;
};

///@{

/// What a new AGStr of the left side holds, with the right side appended.
PELORIK_API AGStr operator+(double number, const AGStr& text);
PELORIK_API AGStr operator+(const char* left, const AGStr& right);
PELORIK_API AGStr operator+(char byte, const AGStr& text);
///@}

/// A new string made by `AGStr::Format`.
PELORIK_API AGStr TWFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

///@{

/// Two strings compare by value, all their bytes; two empty ones are equal.
///
/// Deliberate: this is not how a string compares with the other's text. It knows nothing of null
/// pointers and does not end at a NUL, and no overriding operator is asked.
PELORIK_API bool operator==(const AGStr& left, const AGStr& right);
PELORIK_API bool operator!=(const AGStr& left, const AGStr& right);
///@}

///@{

/// With a pointer on the left the answer is that of the pointer on the right.
PELORIK_API bool operator==(const char* left, const AGStr& right);
PELORIK_API bool operator!=(const char* left, const AGStr& right);
///@}

// Pointers to writable text need forms of their own, because a string also converts to such a
// pointer. They are templates to leave null pointer constants alone, and to fit subclasses as well
// as an overriding operator does.

/// The type bool, for a string and a `char*`.
template<class String, class Char>
using AGStrComparison = typename std::enable_if<
    std::is_base_of<AGStr, String>::value && std::is_same<Char, char>::value, bool>::type;

///@{

/// A pointer to writable text compares as one to text that is not.
template<class String, class Char>
AGStrComparison<String, Char> operator==(const String& left, Char* right) {
    return static_cast<const AGStr&>(left) == static_cast<const char*>(right);
}

template<class String, class Char>
AGStrComparison<String, Char> operator!=(const String& left, Char* right) {
    return static_cast<const AGStr&>(left) != static_cast<const char*>(right);
}

template<class String, class Char>
AGStrComparison<String, Char> operator==(Char* left, const String& right) {
    return static_cast<const AGStr&>(right) == static_cast<const char*>(left);
}

template<class String, class Char>
AGStrComparison<String, Char> operator!=(Char* left, const String& right) {
    return static_cast<const AGStr&>(right) != static_cast<const char*>(left);
}
///@}

#endif
