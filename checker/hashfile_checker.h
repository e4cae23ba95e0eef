/// File integrity checking: makes hash lists of files and checks files against a hash list.
///
/// A hash list is not signed. Whoever can write both the files and the list can make them agree;
/// keep the list, or a digest of it, where they cannot.
///
/// A file list is a text file with one entry a line, each a path, or a name, `=` and a path. At
/// most 8192 characters a line. Empty lines are skipped; nothing is trimmed; there are no comments.
///
/// A hash list is a text file with one record a line: a name, `=`, and the digest's text (see
/// digest/hash.h). The first `=` divides. At most 4128 characters a line. Empty lines and lines
/// that start with `[` are skipped; nothing is trimmed; there are no comments.
///
/// The operations share no state: several may run on different threads with streams and counters of
/// their own.

#ifndef PELORIK_CHECKER_HASHFILE_CHECKER_H
#define PELORIK_CHECKER_HASHFILE_CHECKER_H

#include "digest/hash.h"
#include "pelorik/export.h"

#include <cstdint>
#include <exception>
#include <list>
#include <ostream>
#include <string>

namespace HashFileChecker {

/// What operations on files throw when they fail, where they do not say otherwise.
class PELORIK_API FileIOException : public std::exception {
public:
    /// Sets all three.
    FileIOException(int error, const std::string& fileName, const std::string& message);
    FileIOException(const FileIOException& other);            ///< copies all three
    FileIOException& operator=(const FileIOException& other); ///< copies all three
    ~FileIOException() noexcept override;

    /// `message`, one of the fixed texts.
    const char* what() const noexcept override;

    std::int32_t error;   ///< the system's error number (2: missing, 13: no permission), or 0
    std::string fileName; ///< the file concerned, or empty
    std::string message;  ///< one of the fixed texts
};

/// One line of a hash list that is to be written.
struct HashPair {
    std::string name; ///< the file list's entry as it was read
    std::string hash; ///< the digest's text
};

/// One line of a hash list that was read.
struct FileHashPair {
    std::string name;  ///< everything before the first `=`
    std::string hash;  ///< everything after it: the digest's text
    std::string extra; ///< always empty
};

/// What `CheckFiles` counts. It only increments: zero the record before the call.
struct Statistics {
    std::uint32_t checked;      ///< records of a known algorithm, counted before the file is read
    std::uint32_t failed;       ///< records of no known algorithm, and files that differ
    std::uint32_t notFound;     ///< files that do not exist
    std::uint32_t accessDenied; ///< files that may not be read
};

/// Appends the entries of the file list at `path`, for which null counts as "", to `out`.
///
/// Deliberate: reading ends without an error at a line that is too long; what was read stays in
/// `out`.
///
/// Throws `FileIOException` with the system's error number and `path`: "Can`t open File List file
/// for reading.", "File List read error."
PELORIK_API void LoadFileList(const char* path, std::list<std::string>& out);

/// Appends the records of the hash list at `path`, for which null counts as "", to `out`.
///
/// Deliberate: reading ends without an error at a line that is too long; what was read stays in
/// `out`.
///
/// Throws `FileIOException` with the system's error number and `path`: "Can`t open HashList file
/// for reading.", "HashList read error.", and "HashList format error" at a line without `=`, when
/// the records before it have been appended. With the last one the number means nothing: it is what
/// some call before left.
PELORIK_API void LoadHashList(const char* path, std::list<FileHashPair>& out);

/// Writes one line a record to `out`, each flushed: the name up to its first `=`, "=", the digest's
/// text. A name ends at its first NUL, and is no longer than that.
///
/// Deliberate: a name of more than 8193 characters stops the process (SIGABRT) after the lines
/// before it were written.
PELORIK_API void PrintHashes(const std::list<HashPair>& pairs, std::ostream& out);

/// Feeds the whole content of the file at `path`, for which null counts as "", to `calc`, in chunks
/// of 65536 bytes.
///
/// The size is taken once, at the start; an empty file feeds nothing. What the system makes wait
/// for its opening, such as a named pipe to which nobody writes, makes the call wait.
///
/// Deliberate: when a chunk comes up short because the file shrank while it was read, `calc` is fed
/// the full chunk all the same (zeros, or what the chunk before left there), so that the digest
/// differs.
///
/// Throws `FileIOException` with the system's error number and `path`: "Can`t open File for
/// reading.", "File read error" (error 0 when the file merely ended early, and that of the seek for
/// what has no size, such as a pipe).
PELORIK_API void GetFileHash(const char* path, IHash_Calc& calc);

/// Stores the digest text of a file, with prefix and in upper case, in `result` and returns true.
///
/// `algorithm` is anything that `createHashFactory` knows; anything else means GOST R 34.11-2012.
/// Returns false, and leaves `result` as it is, when the file cannot be read.
PELORIK_API bool CalcHash(const std::string& fileName, const std::string& algorithm,
                          std::string& result);

/// Writes a hash list (GOST R 34.11-2012, lower case) of the file at `path`, or of the files that
/// the file list at `path` names when `isFileList` is true, to `out`.
///
/// An entry with `=` is read from the path behind the first `=` and listed under the name before
/// it. Deliberate: an entry without `=` is listed as it stands but read by its last path component,
/// relative to the current directory.
///
/// Nothing is written unless every file could be read. Throws `FileIOException`: "File name is
/// empty" for a null or empty `path` and "No files to process" for an empty list, both with error 0
/// and no file name; and whatever `LoadFileList` and `GetFileHash` throw.
PELORIK_API void ProcessFiles(const char* path, bool isFileList, std::ostream& out);

/// Checks files against records, in order, and writes one flushed line to `out` for each that is
/// not as recorded; a file that matches, in either case of the digits, writes nothing:
///
/// - "Can't create hash calculator for NAME [TEXT]." (unknown algorithm)
/// - "File changed: NAME [TEXT]." (the text of the digest that the file has now)
/// - "Warning: File access denied: NAME."
/// - "Warning: File not found: NAME."
///
/// Returns 0, or -1 once a file has changed or an algorithm was unknown; missing and forbidden
/// files do not change the code. With `stopOnError` it returns before the record after the first
/// problem, with -1, -2 (forbidden) or -3 (missing). `stats` may be null.
///
/// Throws a copy of any `FileIOException` of `GetFileHash` whose error is neither 2 nor 13.
PELORIK_API int CheckFiles(const std::list<FileHashPair>& records, std::ostream& out,
                           Statistics* stats, bool stopOnError);

/// Checks files against the hash list at `hashListPath`, without stopping.
///
/// Throws `FileIOException` "File name is empty" (error 0, no file name) for a null or empty path,
/// and whatever `LoadHashList` throws.
PELORIK_API int CheckFiles(const char* hashListPath, std::ostream& out, Statistics* stats);

} // namespace HashFileChecker

#endif
