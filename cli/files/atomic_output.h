// A file that is there whole or not at all.

#ifndef PELORIK_CLI_FILES_ATOMIC_OUTPUT_H
#define PELORIK_CLI_FILES_ATOMIC_OUTPUT_H

#include "cli/files/descriptor.h"
#include "cli/files/file_identity.h"

#include <functional>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace cli {

// Throws `Error` when there is something at `path` that is neither a regular file nor a
// directory: it could not be read again after it was written.
void requireRegular(const std::string& path);

// Writes to a temporary file beside the target and renames it over the target.
//
// A target that is a symbolic link stays one: the file that it leads to is replaced. Permissions of
// a file that is replaced are kept, and its owner where that is allowed. A target that exists and
// is no regular file (a pipe, /dev/null) is written to in place.
//
// Signals that would end the process wait while there is a temporary file, so that none is left.
class AtomicOutput {
public:
    // Finds out early what would stop `commit`. Throws `Error`.
    explicit AtomicOutput(const std::string& path) : AtomicOutput(path, true) {}

    // The same; with `toBeWritten` false for an output that `commit` is not called for, and that
    // needs no permission.
    AtomicOutput(const std::string& path, bool toBeWritten);

    // True when `name`, whose status is given, leads to the file that will be replaced.
    bool replaces(const std::string& name, const struct stat& status) const {
        return identity_.isAt(name, status);
    }

    // The file that will be replaced: where `path` leads to.
    const std::string& target() const { return target_; }

    // True when there is something that is written to instead of being replaced.
    bool isInPlace() const;

    // Makes `content` the target's content. Throws `Error`, and `Interrupted` while it waits for
    // a pipe's reader; then the target is as before.
    void commit(std::string_view content) { commit(content, nullptr); }

    // The same for a regular file. `inspect` gets the name of the temporary file once everything is
    // written there, and keeps the target as before by throwing.
    using Inspect = std::function<void(const std::string& name)>;
    void commit(std::string_view content, const Inspect& inspect);

private:
    void createTemporary();
    void removeTemporary();
    void replace(std::string_view content, const Inspect& inspect);
    void openInPlace();
    void write(std::string_view content);
    void keepOwnership() const;
    void requirePermission() const;
    [[noreturn]] void fail(int errorNumber) const;

    std::string path_;   // as the user gave it
    std::string target_; // where it leads to
    FileIdentity identity_;
    bool exists_ = false;
    struct stat status_ {}; // of the target when it exists
    Descriptor file_;
    std::string temporary_;
};

} // namespace cli

#endif
