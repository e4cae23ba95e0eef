// A file that is written completely or not at all.

#ifndef PELORIK_CLI_FILES_ATOMIC_OUTPUT_H
#define PELORIK_CLI_FILES_ATOMIC_OUTPUT_H

#include "cli/files/descriptor.h"
#include "cli/files/directory_entry.h"
#include "cli/files/file_source.h"

#include <functional>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace cli {

// Writes to a temporary file beside the target and renames it over the target.
//
// A target that is a symbolic link stays one: the file that it leads to is replaced. The new file
// gets the attributes of the old one (`copyAttributes`). A target that exists and is not a regular
// file (a FIFO, /dev/null) is written to in place.
//
// A file that will be replaced stays locked as long as the object lives, so that other processes of
// this tool neither replace it nor read it in order to replace it.
//
// Signals that would end the process wait while there is a temporary file, so that none is left.
class AtomicOutput {
public:
    enum class Use {
        kCreate, // new content, whatever is there
        kEdit,   // content that was made of that of a regular file
        kRead    // only the content of a regular file
    };

    // Finds out early what would prevent `commit`. Throws `Error`, and `Interrupted` while it waits
    // for a lock.
    explicit AtomicOutput(const std::string& path, Use use = Use::kCreate);

    // Returns the content of the file that will be replaced, to be read once from its beginning.
    FileSource content() const { return FileSource::copyOf(file_.get()); }

    // The file that will be replaced: where the path leads to.
    const DirectoryEntry& entry() const { return entry_; }

    // True when there is something that is written to instead of being replaced.
    bool isInPlace() const { return isInPlace_; }

    // Makes `content` the target's content. Throws `Error`, and `Interrupted` while it waits for
    // the reader of a FIFO. The target is unchanged then, unless the error says otherwise.
    //
    // A target that another process has replaced meanwhile is an error. With `Use::kEdit`, so is
    // one that was changed in any other way.
    void commit(std::string_view content) { commit(content, nullptr); }

    // The same for a regular file. `inspect` reads everything that was written, before the target
    // is replaced, and prevents that by throwing.
    using Inspect = std::function<void(FileSource written)>;
    void commit(std::string_view content, const Inspect& inspect);

    // The same for content that need not be in memory as a whole: `produce` passes it to `add` in
    // pieces of any size.
    using Add = std::function<void(std::string_view piece)>;
    using Produce = std::function<void(const Add& add)>;
    void commit(const Produce& produce, const Inspect& inspect = nullptr);

private:
    void openExisting(mode_t type);
    void openRegular();
    void openSpecial();
    void createTemporary();
    void removeTemporary();
    void writeTemporary(const Produce& produce, const Inspect& inspect);
    void requireUnchanged() const;
    bool isExpected(const struct stat& status) const;
    void replace();
    void removeDisplaced();
    void synchronizeDirectory() const;
    void writeInPlace(const Produce& produce);
    [[noreturn]] void fail(int errorNumber) const;
    [[noreturn]] void failAsChanged() const;

    std::string path_; // as the user gave it
    Use use_;
    DirectoryEntry entry_;
    Descriptor file_;       // that will be replaced; or the one that is written to, not for writing
    struct stat status_ {}; // of that file when it was opened
    bool isInPlace_ = false;
    Descriptor temporary_;
    std::string temporaryName_;
};

} // namespace cli

#endif
