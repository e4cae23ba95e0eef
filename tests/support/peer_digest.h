// Digests as libgcrypt computes them: the independent program that ours are compared with.

#ifndef PELORIK_TESTS_SUPPORT_PEER_DIGEST_H
#define PELORIK_TESTS_SUPPORT_PEER_DIGEST_H

#include <string>

namespace support {

enum class Peer { Md5, Gost94, Gost2012Bits256, Gost2012Bits512 };

// The digest of `message` in lower-case digits.
std::string peerDigest(Peer algorithm, const std::string& message);

} // namespace support

#endif
