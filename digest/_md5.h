/// MD5 (RFC 1321): an incremental calculator and the finished 16-byte digest.
///
/// MD5 detects accidents, not attackers: whoever can choose the data can make two files of one
/// digest.
///
/// Both classes are plain values: copying one copies its whole state. Different objects may be used
/// on different threads; one object by one thread at a time.

#ifndef PELORIK_DIGEST_MD5_H
#define PELORIK_DIGEST_MD5_H

#include "pelorik/export.h"

#include <cstddef>
#include <cstdint>

class HashMD5;

/// Takes a message piece by piece and finishes it into a `HashMD5`.
///
/// A new calculator holds no defined state: call `Reset` before the first `Update`.
class PELORIK_API HashMD5_Calc {
public:
    /// Starts a new message.
    void Reset();

    /// Appends `length` bytes at `data` to the message.
    ///
    /// A null `data` adds nothing, whatever `length` says.
    ///
    /// Deliberate: the message length, which is part of the digest, counts each call's `length`
    /// modulo 2^32, as RFC 1321's own interface does. A single call of 4 GiB or more therefore
    /// hashes all its bytes but gives a digest of its own; feed such data in smaller pieces.
    void Update(const void* data, std::size_t length);

    /// Pads the message as RFC 1321 says and stores its digest in `out`.
    ///
    /// The calculator has then taken its own padding: `Reset` it before any other use.
    void FinalizeHash(HashMD5& out);

private:
    std::size_t fill() const;        // bytes in the block
    void count(std::uint32_t bytes); // adds to the message's length

    unsigned char block_[64];
    std::uint32_t bitCount_[2]; // low word first
    std::uint32_t state_[4];
};

/// A finished MD5 digest: 16 bytes, in the order in which RFC 1321 prints them.
class PELORIK_API HashMD5 {
public:
    /// The digest of the `length` bytes at `data`, fed in one call, so that RFC 1321's digest takes
    /// less than 4 GiB. A null `data` is the empty message.
    HashMD5(const void* data, std::size_t length);

    /// The digest of everything that `calc` was fed.
    ///
    /// With `finalizeInPlace` false a copy of `calc` is finished and `calc` may take more data;
    /// with true `calc` itself is finished, and must be reset before any other use.
    HashMD5(HashMD5_Calc& calc, bool finalizeInPlace);

    /// Writes the digest as 32 hexadecimal digits, byte 0 first, high nibble first, in upper or
    /// lower case, and a terminating NUL to `out`, which must hold 33 bytes. Returns `out`.
    char* ToCSTR(char* out, bool upperCase) const;

    /// True when `text` is exactly what `ToCSTR` writes with the same `upperCase`.
    ///
    /// Digits of the other case, a shorter or a longer text and a null pointer give false. Nothing
    /// is read past the first difference.
    bool Check(const char* text, bool upperCase) const;

    /// True when all 16 bytes are equal.
    bool operator==(const HashMD5& other) const;

private:
    friend class HashMD5_Calc;
    unsigned char bytes_[16];
};

/// Writes `length` bytes (a multiple of 4) to `out` from the 32-bit words at `in`, each word least
/// significant byte first (RFC 1321's Encode).
PELORIK_API void uint32ToByte(unsigned char* out, unsigned int* in, unsigned int length);

#endif
