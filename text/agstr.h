/// A polymorphic byte string: editing in place, printf formatting, number parsing, wildcards.
///
///     AGStr name = TWFormat("%s-%04d", "tunnel", 7);
///     name.MakeUpper();                       // "TUNNEL-0007"
///     name.Match("*.LOG", "TUNNEL-0007.LOG"); // true
///
/// A change copies the text into one new block of exactly its length and a NUL. There is no spare
/// capacity, so repeated appending takes quadratic time. Only changes of single bytes
/// (`operator[]` within the text, `MakeUpper`, `MakeLower`, `MakeReverse`, `Replace` of a byte) and
/// `SetLengthByBuffer` keep the block.
///
/// Bytes may be 0, but some operations read C strings, which end at the first NUL. These are
/// copies, comparisons, searches, spans, `Insert` of a text, `SetLengthByBuffer` and
/// `NumericParse`. All other operations use the length.
///
/// A string is empty when its length is 0. The default constructor, null pointers, a count of 0 and
/// a `Format` that prints nothing leave an empty string without a block. `AGStr("")` and copies of
/// empty strings have a block of one byte.
///
/// Arguments may point into the string's own text. Pointers must not be null unless stated.
/// Operations throw only `std::bad_alloc`, also for a length that no block can have, and then leave
/// the string unchanged. Threads may use different strings at the same time.

#ifndef PELORIK_TEXT_AGSTR_H
#define PELORIK_TEXT_AGSTR_H

#include "pelorik/export.h"

#include <cstdarg>
#include <cstddef>
#include <type_traits>

/// The string class.
class PELORIK_API AGStr {
    // Private names contain the name of the class, because they hide others in subclasses.

    // `Format` with an argument list.
    //
    // Compatibility: exported as Format(const char*, va_list), because linked programs call it by
    // that name. A public function of that name would take a literal 0 for a list.
    int formatAGStr(const char* format,
                    va_list list) __asm__("_ZN5AGStr6FormatEPKcP13__va_list_tag")
        __attribute__((format(printf, 2, 0)));

public:
    // The virtual operations, in the order of their slots. They call each other virtually, so a
    // subclass that overrides one changes the others.

    virtual ~AGStr();

    /// Compares with `text` as C strings; true when they differ.
    ///
    /// Compatibility: an empty string equals a null pointer and differs from "", because callers
    /// ask for emptiness by comparing with null. Any other string differs from null.
    virtual bool operator!=(const char* text) const;

    /// Negates `operator!=`.
    virtual bool operator==(const char* text) const;

    /// Compares like strcasecmp(text of this string, `text`). Returns 0 when this string is empty
    /// and `text` is null, and 1 when only one of both holds.
    virtual int CompareNoCase(const char* text) const;

    /// Appends this string to `destination` and returns `destination`.
    virtual AGStr& toStr(AGStr& destination) const;

    /// Returns true when `pattern` matches the whole of `text`, byte by byte. "?" matches one byte,
    /// "*" any number of bytes, every other byte itself. This string's own text is not used.
    ///
    /// Calls `Scan` at each "*". The match fails when `Scan` returns false or leaves `pattern`
    /// unmoved. The cost is at most proportional to the product of both lengths.
    ///
    /// In a subclass that is the number of calls of `Match`. The outermost call remembers failures,
    /// so overrides must give equal answers for equal arguments.
    virtual bool Match(const char* pattern, const char* text) const;

    /// Matches a "*" at `pattern` and the rest. Skips the stars, and one byte of `text` for each
    /// "?" among them. Calls `Match` with the rest of the pattern at successive positions of the
    /// text until one matches. A star at the end of the pattern matches without a call.
    ///
    /// Returns true with both pointers at the ends of their texts, or false with both unmoved.
    ///
    /// Compatibility: in a subclass, calls beyond a nesting depth of 1000 match the rest without
    /// calling `Match`, because a long pattern must not exhaust the stack.
    virtual bool Scan(const char*& pattern, const char*& text) const;

    /// Replaces the text with the number as printf's "%.16g" prints it.
    virtual void VarToString(double value);

    // Construction. Constructors call AGStr's own `VarToString`.

    AGStr();                 ///< the empty string
    AGStr(const char* text); ///< null: the empty string

    /// Copies the first `count` bytes of `text`; null gives the empty string.
    ///
    /// Compatibility: a shorter text is filled up to `count` bytes with NULs, because callers rely
    /// on that length.
    AGStr(const char* text, std::size_t count);

    AGStr(char byte);           ///< one byte, which may be 0
    AGStr(int number);          ///< in decimal
    AGStr(unsigned int number); ///< in decimal
    AGStr(double number);       ///< as `VarToString` prints it
    AGStr(const AGStr& other);  ///< the text up to its first NUL

    // Assignment. Numbers go through the virtual `VarToString`.

    AGStr& operator=(const AGStr& other);  ///< the text up to its first NUL
    AGStr& operator=(const char* text);    ///< null: the empty string
    AGStr& operator=(char byte);           ///< one byte, which may be 0
    AGStr& operator=(int number);          ///< as `VarToString` prints it
    AGStr& operator=(unsigned int number); ///< as `VarToString` prints it
    AGStr& operator=(double number);       ///< as `VarToString` prints it

    ///@{

    /// Appends the text that a new AGStr of the argument has; an empty one changes nothing. An
    /// overridden `VarToString` is not called.
    AGStr& operator+=(const AGStr& other);
    AGStr& operator+=(const char* text);
    AGStr& operator+=(char byte);
    AGStr& operator+=(int number);
    AGStr& operator+=(unsigned int number);
    AGStr& operator+=(double number);
    ///@}

    ///@{

    /// Returns a copy of the left side with the right side appended.
    AGStr operator+(const AGStr& other) const;
    AGStr operator+(char byte) const;
    AGStr operator+(const char* text) const;
    AGStr operator+(unsigned int number) const;
    AGStr operator+(int number) const;
    AGStr operator+(double number) const;
    ///@}

    // Access.

    std::size_t GetLength() const; ///< in bytes, without the terminating NUL

    /// Returns the byte at `index`, or 0 at and after the end of the text.
    char operator[](std::size_t index) const;

    /// Returns the byte at `index` for reading and writing.
    ///
    /// Compatibility: a text of at most `index` bytes grows to `index` + 1 bytes, filled with
    /// blanks, even for reading, because callers write past the end to extend a string.
    char& operator[](std::size_t index);

    /// Returns the text, which callers may write within its length; never null. The pointer is
    /// valid until a change allocates.
    char* GetChar();
    operator char*(); ///< like `GetChar`

    /// Returns the text as a C string; never null.
    operator const char*() const;

    /// Sets the length, truncating the text or filling it up with blanks. Returns the text, of
    /// which callers may write `newLength` bytes.
    ///
    /// Compatibility: 0 changes nothing and returns null, because callers rely on both.
    char* GetBufferSetLength(std::size_t newLength);

    /// Ends the text at its first NUL, after writing through a pointer. Keeps the block.
    void SetLengthByBuffer();

    ///@{

    /// Returns a part as a new string, truncated at the end of this string. After its first NUL,
    /// the part has only NULs.
    AGStr Mid(std::size_t start, std::size_t count) const;
    AGStr Mid(std::size_t start) const;
    AGStr Left(std::size_t count) const;
    AGStr Right(std::size_t count) const;
    AGStr SpanIncluding(const char* set) const; ///< the longest start of bytes in `set`
    AGStr SpanExcluding(const char* set) const; ///< the longest start of bytes not in `set`
    ///@}

    // Editing in place.

    void MakeUpper();   ///< by the locale, byte by byte
    void MakeLower();   ///< by the locale, byte by byte
    void MakeReverse(); ///< byte by byte

    /// Inserts `byte` at `position`, after blanks where the text is shorter. Returns the new
    /// length.
    std::size_t Insert(std::size_t position, char byte);

    /// Inserts `text` likewise; null or "" changes nothing. Returns the new length.
    ///
    /// Compatibility: the result ends at its first NUL, even one that was there before, because
    /// callers take it for a C string.
    std::size_t Insert(std::size_t position, const char* text);

    /// Deletes up to `count` bytes from `position` on. Returns the new length.
    std::size_t Delete(std::size_t position, std::size_t count);

    std::size_t Remove(char byte); ///< deletes every `byte`; returns their number

    /// Deletes every `text` from left to right and returns their number. Occurrences that a
    /// deletion creates stay. Returns 0 for null or "".
    std::size_t Remove(const char* text);

    std::size_t Replace(char from, char to); ///< overwrites every `from`; returns their number

    /// Replaces every `from` from left to right and returns their number. Replacements are not
    /// searched. Returns 0 when either is null, or `from` is "".
    std::size_t Replace(const char* from, const char* to);

    ///@{

    /// Returns the index of the first match from `start` on, or of the last with `ReverseFind`.
    ///
    /// Returns -1 without a match, for an empty string, a null `text`, a `start` outside the text
    /// and an index above `INT_MAX`. Searches end at the first NUL, and a search for NUL finds it.
    int Find(char byte) const;
    int Find(char byte, std::size_t start) const;
    int Find(const char* text) const;
    int Find(const char* text, std::size_t start) const;
    int ReverseFind(char byte) const;
    ///@}

    /// Replaces the text with what printf would print, and returns its length.
    ///
    /// A null `format` changes nothing and returns 0. An empty result leaves the string without a
    /// block. An error of printf does so too, and returns a negative number.
    ///
    /// Prints twice, first to measure, so `%n` stores twice. The second text counts, truncated to
    /// the length of the first. A format must not come from input, because its directives read and
    /// write memory.
    int Format(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// Formats with a `va_list`, which stays unchanged. A literal 0 and `nullptr` are not lists but
    /// arguments to print.
    template<class Tag>
    __attribute__((format(printf, 2, 0))) auto Format(const char* format, Tag* list)
        -> decltype(formatAGStr(format, list)) {
        return formatAGStr(format, list);
    }

    /// Parses the whole text as one value and stores it at `out`. `type` is one of:
    ///
    /// - "C", "S", "I": unsigned, of 8, 16 and 32 bits
    /// - "c", "s", "i": signed, of 8, 16 and 32 bits
    /// - "L", "l": unsigned and signed, of 64 bits
    /// - "f": a float within +-3.402823466e38; "d": any double
    /// - "b": one byte, 1 for "true", "TRUE" or "1", 0 for "false", "FALSE" or "0"
    ///
    /// Blanks and tabs may precede a value and follow a number. Numbers have the form that strtod
    /// reads, with the locale's decimal point. One "F" or "f" may follow for "d" and "f", one "L"
    /// or "l" for "L" and "l". Integers are truncated towards zero after the range check. Only "d"
    /// accepts NaN.
    ///
    /// Returns false and stores nothing for an empty text, a text that does not start with a value,
    /// a value out of range, and "-" with an unsigned type.
    ///
    /// Compatibility, because callers rely on each of these:
    /// - "s" does not accept -32768, and "L" and "l" accept only the range of 32 bits.
    /// - A value of 0 that does not start with "0", such as "-0" or ".0", returns false.
    /// - Other text after the number returns false but stores the number.
    /// - Any other `type` stores nothing and returns whether the text is a number.
    bool NumericParse(void* out, char type) const;

protected:
    std::size_t length; ///< in bytes, without the NUL
    char* buffer;       ///< from `new char[]`, or null

private:
    struct AGStrBlock;

    template<class String>
    static constexpr bool isAGStr() {
        return std::is_convertible<const typename std::remove_reference<String>::type*,
                                   const AGStr*>::value;
    }

    template<class Left, class Right = Left>
    using IfAGStr = typename std::enable_if<isAGStr<Left>() && isAGStr<Right>(), bool>::type;

    template<class String, class Char>
    using IfAGStrAndChar =
        typename std::enable_if<isAGStr<String>() && std::is_same<const Char, const char>::value,
                                bool>::type;

    static const AGStr& asAGStr(const AGStr& string) { return string; }

public:
    // Comparisons with a pointer on the left, a writable pointer, or a string on the right. They
    // are templates because a conversion of an operand would make them ambiguous. As friends inside
    // the class they do not take part in comparisons without a string.
    //
    // `String&&` fits a string that is not const better than the `!(a == b)` that C++20 considers
    // for `a != b`.

    ///@{

    /// Calls the virtual operator of `left` with the text of `right`. So two empty strings differ,
    /// as an empty string differs from "".
    template<class Left, class Right>
    friend IfAGStr<Left, Right> operator==(const Left& left, const Right& right) {
        return asAGStr(left).operator==(asAGStr(right).operator const char*());
    }
    template<class Left, class Right>
    friend IfAGStr<Left, Right> operator!=(const Left& left, const Right& right) {
        return asAGStr(left).operator!=(asAGStr(right).operator const char*());
    }
    ///@}

    ///@{

    /// Calls the virtual operator of the string with the pointer. A literal 0 and `nullptr` are
    /// null pointers; integers and characters do not compare.
    ///
    /// A subclass that overrides `operator==` should override `operator!=` to match, because C++20
    /// may compute `a != b` as `!(a == b)` for its const objects.
    template<class String, class Char>
    friend IfAGStrAndChar<String, Char> operator==(String&& string, Char* text) {
        return asAGStr(string).operator==(text);
    }
    template<class String, class Char>
    friend IfAGStrAndChar<String, Char> operator!=(String&& string, Char* text) {
        return asAGStr(string).operator!=(text);
    }
    template<class String, class Char>
    friend IfAGStrAndChar<String, Char> operator==(Char* text, String&& string) {
        return asAGStr(string).operator==(text);
    }
    template<class String, class Char>
    friend IfAGStrAndChar<String, Char> operator!=(Char* text, String&& string) {
        return asAGStr(string).operator!=(text);
    }
    template<class String>
    friend IfAGStr<String> operator==(String&& string, std::nullptr_t null) {
        return asAGStr(string).operator==(null);
    }
    template<class String>
    friend IfAGStr<String> operator!=(String&& string, std::nullptr_t null) {
        return asAGStr(string).operator!=(null);
    }
    template<class String>
    friend IfAGStr<String> operator==(std::nullptr_t null, String&& string) {
        return asAGStr(string).operator==(null);
    }
    template<class String>
    friend IfAGStr<String> operator!=(std::nullptr_t null, String&& string) {
        return asAGStr(string).operator!=(null);
    }
    ///@}
};

///@{

/// Returns what a new AGStr of the left side holds, with the right side appended.
PELORIK_API AGStr operator+(double number, const AGStr& text);
PELORIK_API AGStr operator+(const char* left, const AGStr& right);
PELORIK_API AGStr operator+(char byte, const AGStr& text);
///@}

/// Returns a new string that `AGStr::Format` makes.
PELORIK_API AGStr TWFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

#endif
