/// A named lock that one process at a time holds, so that a second instance of a program finds out
/// that the first is running.
///
/// The lock is a `lockf` region lock on the file `/var/run/vpnagent/NAME`. The kernel drops it when
/// the holder ends, however it ends, so that a crash never blocks the next start; only the file
/// stays behind.
///
/// `lockf` locks belong to the process: they keep other processes out, not other `SCChecker`
/// objects of the same process, and a child made by `fork` holds none.
///
/// Things to know before use:
///
/// - The directory `/var/run/vpnagent` must exist, and should belong to root and be writable by
///   root alone: whoever may write there may put a symbolic link in the place of a lock file and
///   have the next `lock` truncate what it points to, or a named pipe, which it then waits for.
/// - `name` is not looked at. `..` and names with `/` lead out of the directory, and the file that
///   they lead to is truncated. Pass fixed names.
/// - A second `lock` of the same name in the same process is not refused for the first one's sake.
///   Closing any descriptor of a file drops all locks that the process has on it: where the file's
///   permission bits let the process read it (root), the second `lock` drops the first one's before
///   it takes it anew, and the first `unlock` of either object ends the lock of both.
/// - Between the holder's `close` and its removal of the file, another process may lock the file
///   that is about to be removed; a third one then creates and locks a new file of the same name.
///   Who must exclude that compares the locked descriptor's file with the path's (`fstat`, `stat`)
///   after `lock`, and when they differ closes `fd` and locks again. It never calls `unlock`, but
///   removes the file first and then closes `fd`.
/// - The descriptor is inherited by programs that the process starts. They do not hold the lock.

#ifndef PELORIK_SYSTEM_SCCHECKER_H
#define PELORIK_SYSTEM_SCCHECKER_H

#include "pelorik/export.h"

#include <string>

/// One lock. A plain record without a destructor of its own: an object that goes away while it
/// holds the lock leaves the descriptor open and the lock taken until the process ends.
class PELORIK_API SCChecker {
public:
    /// Takes the lock `name` (a file name, NUL-terminated; null is taken for the empty one) without
    /// waiting. Returns true when it is taken, and false when another process holds it (`errno` is
    /// EAGAIN then) or something else failed; `errno` is that of the failing call. Never throws.
    ///
    /// Without memory for the path it returns false with `errno` ENOMEM, and `path` and `wasAbsent`
    /// are unchanged.
    ///
    /// The file is made with the permission bits 0200, less the umask. The empty name is that of
    /// the directory and always fails.
    ///
    /// Deliberate: the file is truncated before the lock is tried, so that a refused `lock` has
    /// truncated the holder's file. The file is no place to keep anything in.
    ///
    /// Nothing is released first: `unlock` an object before it locks again.
    bool lock(const char* name);

    /// Gives the lock up: closes the descriptor, then deletes the file. Does nothing when `fd` is
    /// negative, so that the holder's file survives a refused `lock`.
    ///
    /// Deliberate: `fd` and `path` are left as they are. A second call closes the same number
    /// again, which may belong to another file by then, and deletes the file again, which may
    /// belong to another holder by then. Call it once.
    void unlock();

    int fd = -1;      ///< the lock file's descriptor while the lock is held, else -1
    std::string path; ///< the lock file's path, set by `lock` when it has the memory

    /// Whether the last `lock` failed to open the file for reading before it made it. True normally
    /// says that no earlier holder left its file behind. But the file's permission bits let only
    /// root read it: for everybody else this is true even when a crashed holder's file is there.
    bool wasAbsent = false;
};

#endif
