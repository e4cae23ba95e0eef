// An ordinary file whose digest goes into a hash list.

#ifndef PELORIK_CLI_LISTED_FILE_H
#define PELORIK_CLI_LISTED_FILE_H

#include "cli/digester.h"
#include "cli/file_source.h"
#include "cli/progress.h"

#include <string>

namespace cli {

// Thrown for a file that cannot be listed.
struct Unlistable {
    std::string why;
    bool isGone; // there is no such file any more
};

// Everything here throws `Unlistable`, and `Interrupted`.
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
