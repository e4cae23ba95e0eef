// A lock of the library's that is held for as long as an object lives.

#ifndef PELORIK_CLI_PROCESS_LOCK_H
#define PELORIK_CLI_PROCESS_LOCK_H

#include "system/scchecker.h"

#include <optional>
#include <string>
#include <sys/stat.h>

namespace cli {

// Differs from the library's own order in two ways, so that two holders can never have locked
// different files of one name: a lock counts only when the locked file is still the one that the
// path names, and the file is removed before the lock is given up, not after.
class Lock {
public:
    // Tries once to take the lock `name`; nothing when another process holds it. Throws `Error`
    // when it cannot be had for another reason.
    static std::optional<Lock> tryToTake(const std::string& name);

    Lock(Lock&& other) noexcept;
    Lock& operator=(Lock&&) = delete;
    ~Lock();

    int descriptor() const { return checker_.fd; }

    // Whether the file was there already, though nobody held it: its last holder did not come to
    // remove it, or another process had just made it and came too late to lock it.
    bool wasThereAlready() const { return wasThere_; }

private:
    Lock(SCChecker checker, bool wasThere);

    SCChecker checker_;
    bool wasThere_;
};

} // namespace cli

#endif
