/// Base64 (RFC 4648, section 4) between buffers of the caller, and the framing of PEM certificates.
///
///     char text[9];
///     base64_encode(bytes, 4, text, sizeof text); // 8, for example "AAECAw=="
///
/// Functions return -1 on failure, and for a result that an `int` cannot hold. The content of the
/// destination is then undefined. Only `base64_decode_cert` throws, and only `std::bad_alloc`.
/// Pointers must not be null unless stated. The only state is the pointer `Base64chars`: threads
/// may call all functions at the same time while none changes it.

#ifndef PELORIK_TEXT_BASE64_H
#define PELORIK_TEXT_BASE64_H

#include "pelorik/export.h"

/// The alphabet of `base64_encode` and `base64_decode`: 64 different characters and a NUL, at first
/// "A" to "Z", "a" to "z", "0" to "9", "+" and "/".
///
/// Callers may point it at another alphabet, which the next call uses. White space and "=" keep
/// their meaning in every alphabet. `base64_decode_cert` uses it, the certificate encoder does not.
extern PELORIK_API const char* Base64chars;

/// Encodes `sourceLength` bytes without line breaks, and terminates the text with a NUL.
///
/// The destination needs 4 characters for each group of 3 bytes or fewer, and 1 for the NUL.
/// Returns the number of characters without the NUL, or -1 when `destinationSize` is too small.
/// `source` may be null when `sourceLength` is 0, `destination` when its size is 0.
PELORIK_API int base64_encode(const unsigned char* source, unsigned int sourceLength,
                              char* destination, unsigned int destinationSize);

/// Decodes a NUL-terminated text and returns the number of bytes. Only counts them when
/// `destination` is null.
///
/// Skips white space (space, \\t, \\n, \\v, \\f, \\r) anywhere. Returns -1 for any other character
/// outside the alphabet, an incomplete group of four, missing padding and any other character after
/// it. Bits after the last byte that are not zero, and a destination that is too small, give -1
/// too.
///
/// Compatibility: a text that ends in padding needs one byte more in the destination, because the
/// bits after the last byte are stored before they are checked. Without a destination they are not
/// checked: "Zh==" counts as 1 and decodes as -1.
PELORIK_API int base64_decode(const char* source, unsigned char* destination,
                              unsigned int destinationSize);

/// Returns a number of characters that suffices for `base64_encode_cert_hf` of `length` bytes.
///
/// Compatibility: this is about three times the need, because callers rely on this number. It may
/// not suffice for a negative `length`, which needs as many characters as 0.
PELORIK_API int base64_encode_cert_len_hf(int length, const char* header, const char* footer);

/// Returns a number of characters that suffices for `base64_encode_cert` of `length` bytes, with
/// the same exception.
PELORIK_API int base64_encode_cert_len(int length);

/// Writes `header`, the base64 text of `length` bytes in lines of 64 characters, `footer` and a
/// NUL.
///
/// Every base64 line ends with CR LF, and none is empty; `header` and `footer` contain their own
/// line ends. Returns the number of characters with the NUL. The destination must hold
/// `base64_encode_cert_len_hf` characters, which is not checked. A negative `length` counts as 0;
/// `source` may be null for 0. The alphabet is always that of RFC 4648.
PELORIK_API int base64_encode_cert_hf(const unsigned char* source, int length, char* destination,
                                      const char* header, const char* footer);

/// Does the same between the lines "-----BEGIN CERTIFICATE-----" and "-----END CERTIFICATE-----",
/// each of which ends with CR LF.
PELORIK_API int base64_encode_cert(const unsigned char* source, int length, char* destination);

/// Returns true when `length` characters start like a PEM certificate: any number of "-", then at
/// least 20 characters, of which the first 17 are "BEGIN CERTIFICATE".
PELORIK_API bool is_base64_encoded_cert(const char* text, int length);

/// Decodes the lines of `text` between the first and the last, like `base64_decode`.
///
/// `length` is the length of the text without its NUL, `destinationSize` that of the destination in
/// bytes; a negative one counts as 0. `destination` may be null. The first line ends at the first
/// line feed; a text without one gives -1. Throws `std::bad_alloc`.
///
/// Compatibility: the last character is never read, because it ends the last line. One white space
/// or control character before it is dropped. A line that then ends with "-" is the last line, and
/// is dropped too. So a text with more than two white-space characters after its last line gives
/// -1.
PELORIK_API int base64_decode_cert(const char* text, int length, unsigned char* destination,
                                   int destinationSize);

#endif
