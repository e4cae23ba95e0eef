// Owner, permissions, access control list and extended attributes of a file that replaces another.

#ifndef PELORIK_CLI_FILES_FILE_ATTRIBUTES_H
#define PELORIK_CLI_FILES_FILE_ATTRIBUTES_H

#include <string>

namespace cli {

// Throws `Error` when the file has an attribute that no other content can keep: a signature or
// digest of the content (security.ima, security.evm). `path` is for messages.
void requireReplaceable(int file, const std::string& path);

// Gives the new file `to`, which only its owner may access, the attributes of the file `from`. At
// no moment does `to` grant more than `from`. Throws `Error` when an attribute cannot be kept.
//
// Without the right to change owners, the file belongs to the user. If the group cannot be kept
// either, the new group may do only what all others may do.
//
// File capabilities, set-user-ID and set-group-ID bits are not kept, because writing to a file
// clears them, too.
void copyAttributes(int from, int to, const std::string& path);

} // namespace cli

#endif
