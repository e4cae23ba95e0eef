// An ordinary file whose digest goes into a hash list.

#ifndef PELORIK_CLI_HASHING_FILE_HASHER_H
#define PELORIK_CLI_HASHING_FILE_HASHER_H

#include "cli/files/file_source.h"
#include "cli/hashing/digester.h"
#include "cli/output/progress.h"

#include <string>

namespace cli {

// Thrown for a file that cannot be listed.
struct NotHashable {
    std::string why;
    bool isMissing; // there is no such file any more
};

// Everything here throws `NotHashable`, and `Interrupted`.
class ListedFile {
public:
    // Opens the file `name`.
    explicit ListedFile(const std::string& name);

    // The text of its digest by the one algorithm of `digester`: of as many bytes as the file said
    // to have, which is what a check reads, too. A file that gives fewer is refused.
    std::string digest(Digester& digester, Progress& progress);

    const struct stat& status() const { return source_.status(); }

private:
    FileSource source_;
};

} // namespace cli

#endif
