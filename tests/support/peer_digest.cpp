#include "tests/support/peer_digest.h"

#include "tests/support/bytes.h"

#include <cstdlib>
#include <gcrypt.h>

namespace {

int codeOf(support::Peer algorithm) {
    switch (algorithm) {
    case support::Peer::Md5:
        return GCRY_MD_MD5;
    case support::Peer::Gost94:
        return GCRY_MD_GOSTR3411_CP;
    case support::Peer::Gost2012Bits256:
        return GCRY_MD_STRIBOG256;
    case support::Peer::Gost2012Bits512:
        return GCRY_MD_STRIBOG512;
    }
    std::abort();
}

// libgcrypt wants to be asked for its version before anything else.
bool initialise() {
    gcry_check_version(nullptr);
    gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    return true;
}

} // namespace

std::string support::peerDigest(Peer algorithm, const std::string& message) {
    static const bool initialised = initialise();
    (void)initialised;
    const int code = codeOf(algorithm);
    unsigned char digest[64];
    gcry_md_hash_buffer(code, digest, message.data(), message.size());
    return toHex(digest, gcry_md_get_algo_dlen(code));
}
