/// A reader of INI text: groups of `name=value` lines, read once and then looked up.
///
/// The text, line by line; blanks, tabs and carriage returns at both ends of a line mean nothing:
///
/// - A line whose first character is `#` is a comment. Nothing else starts one: `;` means nothing,
///   and neither does `#` behind other text.
/// - A line from `[` to `]` is a header and names the group of the lines that follow. The name is
///   everything between the two: `[ a ]` names the group " a ", `[]` the group "".
/// - Any other line with `=` stores a value. The name is what stands before the first `=`, the
///   value what stands behind it; blanks on either side of that `=` mean nothing, tabs belong to
///   the name or the value. The last of several values of one name holds.
/// - Any other line means nothing.
///
/// Lines before the first header belong to the group "". Names are compared byte by byte. There are
/// no quotes, escapes, continued lines or substitutions.
///
/// Looking values up changes nothing, so several threads may do it in one reader.

#ifndef PELORIK_CONFIG_INIFILE_H
#define PELORIK_CONFIG_INIFILE_H

#include "pelorik/export.h"

#include <istream>
#include <map>
#include <stdexcept>
#include <string>

/// Thrown by `IniFile::get`; `what()` is the bare name of the group that was asked for.
class PELORIK_API CIniFileGroupNotFound : public std::runtime_error {
public:
    /// `text` becomes `what()`.
    explicit CIniFileGroupNotFound(const std::string& text) : std::runtime_error(text) {}
    ~CIniFileGroupNotFound() noexcept override;
};

/// Thrown by `IniFile::get`; `what()` is the bare name of the value that was asked for.
class PELORIK_API CIniFileVarNameNotFound : public std::runtime_error {
public:
    /// `text` becomes `what()`.
    explicit CIniFileVarNameNotFound(const std::string& text) : std::runtime_error(text) {}
    ~CIniFileVarNameNotFound() noexcept override;
};

/// For callers that find a value malformed. The reader itself never throws it.
class PELORIK_API CIniFileFormatError : public std::runtime_error {
public:
    /// `text` becomes `what()`.
    explicit CIniFileFormatError(const std::string& text) : std::runtime_error(text) {}
    ~CIniFileFormatError() noexcept override;
};

/// The values of one INI text.
class PELORIK_API IniFile {
public:
    /// Reads `in` from where it stands to its end, and leaves it there (failbit and eofbit set).
    ///
    /// No text is malformed: a line of no meaning is skipped. A stream that cannot be read gives a
    /// reader without groups; one that fails in the middle gives the lines before. Throws only what
    /// the standard library throws (no memory, or a stream that was told to throw).
    explicit IniFile(std::istream& in);

    /// The value `name` of `group`. Where the group has no such value: `def`, or when `def` is
    /// null, throws `CIniFileVarNameNotFound`.
    ///
    /// Throws `CIniFileGroupNotFound` when there is no such group. Deliberate: also when `def` is
    /// given, so that a missing part of the text is never mistaken for one that relies on defaults.
    std::string get(const std::string& group, const std::string& name,
                    const char* def = nullptr) const;

    /// Every group in the order of their bytes, each as `[`, its name, `]` and a blank; empty when
    /// there are none.
    ///
    /// Deliberate: a group exists once it has a value. A header alone makes none.
    std::string getAllGroups() const;

    /// Removes blanks, tabs, carriage returns and line feeds from both ends of `line`, and
    /// everything when it is a comment.
    static void cleanupLine(std::string& line);

    /// When `line`, which has been cleaned up, is a header, sets `group` to its name and returns
    /// true. Otherwise returns false and leaves `group` as it is.
    bool parseGroupName(std::string line, std::string& group);

    /// `text` without its leading blanks.
    std::string parseValue(std::string text);

    /// Stores the value that `line`, which has been cleaned up, holds in `group`. A line without
    /// `=` stores nothing. Changes nothing when it throws `std::bad_alloc`. For one thread, while
    /// no other looks anything up.
    void parseLine(std::string line, std::string group);

private:
    std::map<std::string, std::map<std::string, std::string>> groups_;
};

#endif
