// A lock in /run/vpnagent that is held for as long as an object lives.

#ifndef PELORIK_CLI_PROCESS_LOCK_H
#define PELORIK_CLI_PROCESS_LOCK_H

#include "cli/files/descriptor.h"

#include <optional>
#include <string>

namespace cli {

// Excludes the library's `SCChecker` of the same name, and differs from it in three ways:
// - The lock belongs to the open file. A process that inherits its descriptor keeps the lock when
//   this process is killed.
// - The lock counts only when the path still names the locked file.
// - The file is removed before the lock is released, not after.
class Lock {
public:
    // Tries once to take the lock `name`; returns nothing when another process holds it. Throws
    // `Error` when it cannot be taken for another reason.
    static std::optional<Lock> tryToTake(const std::string& name);

    Lock(Lock&& other) noexcept = default;
    Lock& operator=(Lock&&) = delete;
    ~Lock();

    int descriptor() const { return file_.get(); }

    // Returns whether the file existed although nobody held it: its last holder was killed, or
    // another process had just created it and came too late to lock it.
    bool wasThereAlready() const { return wasThere_; }

private:
    Lock(std::string path, Descriptor file, bool wasThere);

    std::string path_;
    Descriptor file_;
    bool wasThere_;
};

} // namespace cli

#endif
