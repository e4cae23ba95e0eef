/// GOST R 34.11-2012 (RFC 6986), 256 and 512 bits: the hash function's state, fed portion by
/// portion.
///
/// This is the ground layer. For data of any length use the calculator in gost34_11_2012_i.h, which
/// cuts it into portions.

#ifndef PELORIK_DIGEST_GOST34_11_2012_H
#define PELORIK_DIGEST_GOST34_11_2012_H

#include "pelorik/export.h"

#include <cstddef>
#include <cstdint>

/// A 512-bit value: eight words, word 0 least significant.
struct UInt512 {
    std::uint64_t word[8]; ///< each in the processor's byte order
};

/// The running state of one message.
///
/// A plain value: copying it copies the whole state. Different objects may be used on different
/// threads; one object by one thread at a time.
class PELORIK_API GOST34_11_2012 {
public:
    /// Starts a message. `size` is the digest's size in bits: 512 gives the 512-bit function, every
    /// other value the 256-bit one.
    explicit GOST34_11_2012(int size);

    /// Takes the message's next `size` bytes at `data`.
    ///
    /// Exactly 64 bytes are one full block. Any other number, 0 to 63, is the rest of the message
    /// and runs the final stage; nothing may be added after it. `data` may be null when `size` is
    /// 0.
    ///
    /// A size above 64 breaks the contract: the portion is then cut to 63 bytes.
    void addPortion(const void* data, unsigned long size);

    /// The digest: 64 bytes for 512 bits, else 32, inside this object and valid as long as it is.
    ///
    /// Runs the final stage with an empty rest if it has not run yet. Further calls return the
    /// same.
    const unsigned char* getHash();

private:
    friend class Hash_Calc_GOST_34_11_2012; // for addBlocks

    void addBlocks(const unsigned char* data, std::size_t count);
    void finish(const void* data, unsigned long size);

    UInt512 h_;
    UInt512 n_;     // bits of message so far
    UInt512 sigma_; // sum of all blocks
    unsigned char lastBlock_[64];
    std::int32_t size_;
    bool finished_;
};

/// Writes the `bits`-bit digest (256 or 512) of the `size` bytes at `data` to `out`: `bits` / 8
/// bytes, but never more than the digest has (64 for 512 bits, else 32), and none for negative
/// `bits`. `data` may be null when `size` is 0.
///
/// Deliberate: for messages of 0 to 64 bytes only. A longer one is refused: `out` is left as it is.
PELORIK_API void gost_34_11_2012(const void* data, unsigned long size, void* out, int bits);

#endif
