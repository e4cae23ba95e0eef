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
/// Without memory an operation throws `std::bad_alloc`. What it appended, wrote, counted or fed
/// before stays.
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

/// Appends the entries of the file list at `path` to `out`. A null `path` counts as "".
///
/// Compatibility: reading stops without an error at a line that is too long and at a read error,
/// because callers rely on the entries before it, which stay in `out`. A directory, or a file that
/// cannot be read, thus reads as an empty list. A caller that has to know reads the file itself
/// before: every read succeeds up to the end of the file, and no line is too long.
///
/// Throws `FileIOException` with the system's error number and `path`: "Can`t open File List file
/// for reading." The text "File List read error." is reserved for a stream that is bad although a
/// line was read from it, which a conforming standard library never has.
PELORIK_API void LoadFileList(const char* path, std::list<std::string>& out);

/// Appends the records of the hash list at `path` to `out`. A null `path` counts as "".
///
/// Compatibility: reading stops without an error as in `LoadFileList`, for the same reason. Records
/// after that place are missing from `out`, and a check of `out` does not check their files.
///
/// Throws `FileIOException` with the system's error number and `path`: "Can`t open HashList file
/// for reading." At a line without `=` it throws "HashList format error", after the records before
/// that line were appended; the error is then a number that an earlier call left. The text
/// "HashList read error." is reserved as in `LoadFileList`.
PELORIK_API void LoadHashList(const char* path, std::list<FileHashPair>& out);

/// Writes one line a record to `out`, each flushed: the name up to its first `=`, "=", the digest's
/// text. A name ends at its first NUL, and is no longer than that.
///
/// Deliberate: a name of more than 8193 characters stops the process (SIGABRT) after the lines
/// before it were written.
PELORIK_API void PrintHashes(const std::list<HashPair>& pairs, std::ostream& out);

/// Feeds the content of the file at `path` to `calc`, in chunks of 65536 bytes and a last one of
/// the rest. A null `path` counts as "".
///
/// The size is taken once, at the start; an empty file feeds nothing. Opening a FIFO that has no
/// writer blocks.
///
/// Compatibility: a read that ends early after at least one byte does not fail, because callers
/// rely on a digest of a file that shrinks meanwhile. Neither does a device that fails after some
/// bytes of a chunk. `calc` is fed the full chunk: each byte that could not be read is the byte at
/// the same place of the chunk before, or 0xA5 in the first chunk. A file that had these very bytes
/// there gets the digest of the whole file; any other gets another digest. Chunks that follow are
/// read from where the short read ended, and fail when nothing is there.
///
/// Throws `FileIOException` with the system's error number and `path`: "Can`t open File for
/// reading."; "File read error" when a read yields no byte, also after `calc` was fed some chunks.
/// The error is then 0 at the end of the file, and that of the seek for what has no size, such as a
/// pipe.
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
/// and no file name; and whatever `LoadFileList` and `GetFileHash` throw. A list that cannot be
/// read is an empty one (see `LoadFileList`).
///
/// Compatibility: a single `path` of more than 8193 characters stops the process (SIGABRT) after
/// its file was read, because `PrintHashes` does. An entry of a file list is never that long.
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
/// The records of a list that cannot be read to its end are checked as far as they were read (see
/// `LoadHashList`): 0 means that these match.
///
/// Throws `FileIOException` "File name is empty" (error 0, no file name) for a null or empty path,
/// and whatever `LoadHashList` throws.
PELORIK_API int CheckFiles(const char* hashListPath, std::ostream& out, Statistics* stats);

} // namespace HashFileChecker

#endif
