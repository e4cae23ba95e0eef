// The digests beside libgcrypt's: a message that is fed in any pieces, on the road for newer
// processors and on the portable one, through the classes and through the factories.
//
// The first byte is the algorithm. Then follow the pieces, each a length, two bytes, and its bytes;
// a piece of 0xFFFF bytes takes a digest in between.

#include "digest/hash.h"
#include "digest/roads.h"
#include "fuzz/target.h"
#include "tests/support/peer_digest.h"

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace {

using support::Peer;

bool roadsOpen = true;

struct Algorithm {
    HashFileChecker::Alg number;
    Peer peer;
    std::size_t splitUnit; // a piece that is not the last one is a multiple of it
};

constexpr Algorithm kAlgorithms[] = {
    {HashFileChecker::MD5, Peer::Md5, 1},
    {HashFileChecker::GOST_RFC4357, Peer::Gost94, 32},
    {HashFileChecker::GOST_3411_2012, Peer::Gost2012Bits256, 1},
};

constexpr std::size_t kDigestInBetween = 0xFFFF;

struct Piece {
    std::string bytes;
    bool digestAfter;
};

std::vector<Piece> piecesOf(std::span<const std::uint8_t> input, std::size_t unit) {
    std::vector<Piece> pieces;
    while (input.size() >= 2) {
        const std::size_t number = input[0] + input[1] * std::size_t{256};
        input = input.subspan(2);
        const std::size_t length = std::min(number == kDigestInBetween ? 0 : number, input.size());
        pieces.push_back({{input.begin(), input.begin() + static_cast<std::ptrdiff_t>(length)},
                          number == kDigestInBetween});
        input = input.subspan(length);
    }
    for (std::size_t i = 0; i + 1 < pieces.size(); ++i)
        pieces[i].bytes.resize(pieces[i].bytes.size() / unit * unit);
    return pieces;
}

void require(const IHash& digest, const std::string& expected) {
    fuzz::require(digest.ToStr(false, false) == expected, "the digest is libgcrypt's");
    fuzz::require(digest.Check(expected, false), "a digest is what its text denotes");
}

void feed(const Algorithm& algorithm, const std::vector<Piece>& pieces) {
    const std::unique_ptr<IHashFactory> factory(createHashFactory(algorithm.number));
    const std::unique_ptr<IHash_Calc> calc(factory->createHashCalc());
    std::string message;
    for (const Piece& piece : pieces) {
        // In a block of its own size, so that reading behind it is found.
        const std::vector<char> bytes(piece.bytes.begin(), piece.bytes.end());
        calc->Update(bytes.data(), bytes.size());
        message += piece.bytes;
        if (piece.digestAfter)
            require(*std::unique_ptr<IHash>(factory->createHash(*calc, false)),
                    support::peerDigest(algorithm.peer, message));
    }
    const std::string expected = support::peerDigest(algorithm.peer, message);
    require(*std::unique_ptr<IHash>(factory->createHash(*calc, true)), expected);
    require(*std::unique_ptr<IHash>(factory->createHash(message.data(), message.size())), expected);
}

} // namespace

bool pelorikutil::roads::avx512Gost() {
    return roadsOpen && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
           __builtin_cpu_supports("gfni");
}

bool pelorikutil::roads::avx512Md5() {
    return roadsOpen && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl");
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const Algorithm& algorithm = kAlgorithms[data[0] % std::size(kAlgorithms)];
    const std::vector<Piece> pieces = piecesOf({data + 1, size - 1}, algorithm.splitUnit);
    for (const bool open : {true, false}) {
        roadsOpen = open;
        feed(algorithm, pieces);
    }
    return 0;
}
