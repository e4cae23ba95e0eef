// Each digest of a short, a middling and a long message, by each road, beside its peers.

#include "bench/race.h"
#include "bench/switchable_roads.h"
#include "digest/hash.h"

#include <array>
#include <gcrypt.h>
#include <nettle/gosthash94.h>
#include <nettle/streebog.h>
// MD5_Init and its kind are OpenSSL's shortest way to MD5, and deprecated.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/md5.h>
#include <rhash.h>
#include <string>

namespace {

using Message = const std::string&;
unsigned char digest[64];

template<class HashT>
void ours(Message message) {
    HashT hash(message.data(), message.size());
    benchmark::DoNotOptimize(hash);
}

template<int Algorithm>
void libgcrypts(Message message) {
    gcry_md_hash_buffer(Algorithm, digest, message.data(), message.size());
}

template<unsigned Algorithm>
void rhashs(Message message) {
    rhash_msg(Algorithm, message.data(), message.size(), digest);
}

const unsigned char* bytesOf(Message message) {
    return reinterpret_cast<const unsigned char*>(message.data());
}

void nettlesGost94(Message message) {
    gosthash94cp_ctx context;
    gosthash94cp_init(&context);
    gosthash94cp_update(&context, message.size(), bytesOf(message));
    gosthash94cp_digest(&context, 32, digest);
}

void nettlesGost2012(Message message) {
    streebog256_ctx context;
    streebog256_init(&context);
    streebog256_update(&context, message.size(), bytesOf(message));
    streebog256_digest(&context, 32, digest);
}

void opensslsMd5(Message message) {
    MD5_CTX context;
    MD5_Init(&context);
    MD5_Update(&context, message.data(), message.size());
    MD5_Final(digest, &context);
}

using Work = void (*)(Message message);

void enter(const char* what, std::size_t size, const char* who, Work work, bool roads) {
    bench::enter(what, size, who, [work, roads, message = std::string(size, 'x')] {
        bench::openRoads(roads);
        work(message);
    });
}

void enterOurs(const char* what, std::size_t size, Work work) {
    if (bench::hasRoad(what))
        enter(what, size, "pelorik-avx512", work, true);
    enter(what, size, "pelorik-portable", work, false);
}

const bool registered = [] {
    gcry_check_version(nullptr);
    gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    rhash_library_init();
    for (const std::size_t size : {64UL, 1024UL, 65536UL}) {
        enterOurs("gost2012", size, ours<Hash_GOST_34_11_2012>);
        enter("gost2012", size, "nettle", nettlesGost2012, false);
        enter("gost2012", size, "libgcrypt", libgcrypts<GCRY_MD_STRIBOG256>, false);
        enter("gost2012", size, "librhash", rhashs<RHASH_GOST12_256>, false);
        enterOurs("gost94", size, ours<HashGOST3411>);
        enter("gost94", size, "nettle", nettlesGost94, false);
        enter("gost94", size, "libgcrypt", libgcrypts<GCRY_MD_GOSTR3411_CP>, false);
        enter("gost94", size, "librhash", rhashs<RHASH_GOST94_CRYPTOPRO>, false);
        enterOurs("md5", size, ours<HashMD5>);
        enter("md5", size, "openssl", opensslsMd5, false);
        enter("md5", size, "librhash", rhashs<RHASH_MD5>, false);
    }
    return true;
}();

} // namespace
