/// GOST R 34.11-2012 (RFC 6986) with a 256-bit result: a streaming calculator and the finished
/// 32-byte digest.
///
/// Both classes are plain values: copying one copies its whole state. Different objects may be used
/// on different threads; one object by one thread at a time.

#ifndef PELORIK_DIGEST_GOST34_11_2012_I_H
#define PELORIK_DIGEST_GOST34_11_2012_I_H

#include "digest/gost34_11_2012.h"
#include "pelorik/export.h"

#include <cstdint>

class Hash_GOST_34_11_2012;

/// Takes a message in pieces of any size and finishes it into a `Hash_GOST_34_11_2012`.
///
/// A new calculator is ready for use; there is no reset.
class PELORIK_API Hash_Calc_GOST_34_11_2012 {
public:
    Hash_Calc_GOST_34_11_2012(); ///< begins an empty message

    /// Appends the `size` bytes at `data` to the message. A null `data` adds nothing, whatever
    /// `size` says. How a message is cut into calls does not change its digest.
    void Update(const void* data, unsigned long size);

    /// Ends the message and stores its digest in `out`. Further calls give the same digest; further
    /// `Update` calls give meaningless results.
    void FinalizeHash(Hash_GOST_34_11_2012& out);

private:
    GOST34_11_2012 core_;
    unsigned char buffer_[64];
    std::uint64_t fill_; // bytes in the buffer, 0 to 63 between calls
};

/// A finished 256-bit digest: 32 bytes, byte 0 being the least significant one of the standard's
/// value. Its text is thus the standard's notation read byte-wise from the end.
class PELORIK_API Hash_GOST_34_11_2012 {
public:
    /// The digest of the `size` bytes at `data`; a null `data` is the empty message.
    Hash_GOST_34_11_2012(const void* data, unsigned long size);

    /// The digest of everything that `calc` was fed.
    ///
    /// With `consume` false a copy of `calc` is finished and `calc` may take more data; with true
    /// `calc` itself is finished.
    Hash_GOST_34_11_2012(Hash_Calc_GOST_34_11_2012& calc, bool consume);

    /// Writes the digest as 64 hexadecimal digits, byte 0 first, high nibble first, in upper or
    /// lower case, and a terminating NUL to `out`, which must hold 65 bytes. Returns `out`.
    char* ToCSTR(char* out, bool upperCase) const;

    /// True when `text` is exactly what `ToCSTR` writes with the same `upperCase`.
    ///
    /// Digits of the other case, a shorter or a longer text and a null pointer give false. Nothing
    /// is read past the first difference.
    bool Check(const char* text, bool upperCase) const;

private:
    friend class Hash_Calc_GOST_34_11_2012;
    unsigned char bytes_[32];
};

#endif
