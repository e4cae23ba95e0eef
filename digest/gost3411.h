/// GOST R 34.11-94 with the substitution boxes id-GostR3411-94-CryptoProParamSet (RFC 4357, section
/// 11.2): an incremental calculator and the finished 32-byte digest.
///
/// Both classes are plain values: copying one copies its whole state. Different objects may be used
/// on different threads; one object by one thread at a time.

#ifndef PELORIK_DIGEST_GOST3411_H
#define PELORIK_DIGEST_GOST3411_H

#include "pelorik/export.h"

#include <cstdint>

class HashGOST3411;

/// Takes a message in pieces and finishes it into a `HashGOST3411`.
///
/// A new calculator holds no defined state: call `Reset` before the first `Update`.
class PELORIK_API HashGOST3411_Calc {
public:
    /// Starts a new message.
    void Reset();

    /// Hashes the `size` bytes at `data`. A null `data` counts as zero bytes.
    ///
    /// Deliberate: nothing is kept between calls. A call whose size is no multiple of 32 is filled
    /// up with zero bytes on its own, so that several calls hash like the concatenation of the
    /// calls, each padded to a multiple of 32 (the length counts real bytes only). The digest is
    /// the standard's when every call but the last has a size that is a multiple of 32.
    void Update(const void* data, unsigned long size);

    /// Adds the length and the control sum and stores the digest in `out`.
    ///
    /// The calculator is changed by it: `Reset` it before any other use.
    void FinalizeHash(HashGOST3411& out);

private:
    unsigned char block_[64]; // cleared by Reset, read by nothing
    unsigned char hash_[32];
    unsigned char sigma_[32]; // sum of all blocks modulo 2^256, byte 0 least significant
    std::uint64_t length_;    // bytes of message, padding not counted
};

/// A finished GOST R 34.11-94 digest: 32 bytes, byte 0 being the least significant one of the
/// standard's 256-bit value. Its text is thus the standard's notation read byte-wise from the end.
class PELORIK_API HashGOST3411 {
public:
    /// The digest of the `size` bytes at `data`; a null `data` is the empty message.
    HashGOST3411(const void* data, unsigned long size);

    /// The digest of everything that `calc` was fed.
    ///
    /// With `consume` false a copy of `calc` is finished and `calc` may take more data; with true
    /// `calc` itself is finished, and must be reset before any other use.
    HashGOST3411(HashGOST3411_Calc& calc, bool consume);

    /// Writes the digest as 64 hexadecimal digits, byte 0 first, high nibble first, in upper or
    /// lower case, and a terminating NUL to `out`, which must hold 65 bytes. Returns `out`.
    char* ToCSTR(char* out, bool upperCase) const;

    /// True when `text` is exactly what `ToCSTR` writes with the same `upperCase`.
    ///
    /// Digits of the other case, a shorter or a longer text and a null pointer give false. Nothing
    /// is read past the first difference.
    bool Check(const char* text, bool upperCase) const;

    /// True when all 32 bytes are equal.
    bool operator==(const HashGOST3411& other) const;

    /// Writes the digest of a NUL-terminated text as 64 upper-case digits and a NUL to `out`, which
    /// must hold 65 bytes. Returns `out`.
    ///
    /// Deliberate: a text of up to 31 characters, and a null `text`, which is the empty one, is
    /// hashed as a whole block of 32 bytes, filled up with zero bytes that count as message. A
    /// longer one is hashed as it is, whatever its length.
    static char* calc(const char* text, char* out);

private:
    friend class HashGOST3411_Calc;
    unsigned char bytes_[32];
};

#endif
