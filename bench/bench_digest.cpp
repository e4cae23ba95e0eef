// Each digest of a short, a middling and a long message, beside libgcrypt's.

#include "digest/hash.h"

#include <benchmark/benchmark.h>
#include <cstdint>
#include <gcrypt.h>
#include <memory>
#include <string>

namespace {

struct Algorithm {
    const char* name;
    HashFileChecker::Alg ours;
    int peer;
};

constexpr Algorithm kAlgorithms[] = {
    {"MD5", HashFileChecker::MD5, GCRY_MD_MD5},
    {"GOST94", HashFileChecker::GOST_RFC4357, GCRY_MD_GOSTR3411_CP},
    {"GOST2012", HashFileChecker::GOST_3411_2012, GCRY_MD_STRIBOG256}};
constexpr std::size_t kSizes[] = {64, 1024, 65536};

void countBytes(benchmark::State& state, std::size_t size) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

void ours(benchmark::State& state, HashFileChecker::Alg algorithm, std::size_t size) {
    const std::string message(size, 'x');
    const std::unique_ptr<IHashFactory> factory(createHashFactory(algorithm));
    for (auto _ : state) {
        const std::unique_ptr<IHash> digest(factory->createHash(message.data(), message.size()));
        benchmark::DoNotOptimize(digest->Digest());
    }
    countBytes(state, size);
}

void libgcrypts(benchmark::State& state, int algorithm, std::size_t size) {
    const std::string message(size, 'x');
    unsigned char digest[64];
    for (auto _ : state) {
        gcry_md_hash_buffer(algorithm, digest, message.data(), message.size());
        benchmark::DoNotOptimize(digest);
    }
    countBytes(state, size);
}

const bool registered = [] {
    gcry_check_version(nullptr);
    gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    for (const Algorithm& algorithm : kAlgorithms) {
        for (const std::size_t size : kSizes) {
            const std::string what = std::string(algorithm.name) + "/" + std::to_string(size) + "/";
            benchmark::RegisterBenchmark((what + "pelorik").c_str(), ours, algorithm.ours, size);
            benchmark::RegisterBenchmark((what + "libgcrypt").c_str(), libgcrypts, algorithm.peer,
                                         size);
        }
    }
    return true;
}();

} // namespace
