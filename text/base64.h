/// Base64 (RFC 4648, section 4) between caller's buffers, and the framing of PEM certificates.
///
///     char text[9];
///     base64_encode(bytes, 4, text, sizeof text); // 8, for example "AAECAw=="
///
/// Nothing here allocates output or throws, but for `base64_decode_cert`, which may throw
/// `std::bad_alloc`. Failure is the result -1, and so is a result that an `int` cannot hold. What a
/// failed call leaves in the destination is undefined. Pointers must not be null unless said
/// otherwise. The only state is the pointer `Base64chars`: while nobody changes that, everything
/// may be called from several threads.

#ifndef PELORIK_TEXT_BASE64_H
#define PELORIK_TEXT_BASE64_H

#include "pelorik/export.h"

/// The alphabet of `base64_encode` and `base64_decode`: 64 different characters and a NUL, at first
/// "A" to "Z", "a" to "z", "0" to "9", "+" and "/".
///
/// It may be pointed at another alphabet, with effect from the next call on. White space and "="
/// keep their meaning whatever it holds. The certificate encoder does not look at it,
/// `base64_decode_cert` does.
extern PELORIK_API const char* Base64chars;

/// Encodes `sourceLength` bytes, without line breaks, and ends the text with a NUL.
///
/// The destination needs 4 characters for every 3 bytes begun, and 1 for the NUL. Returns the
/// number of characters without the NUL, or -1 when `destinationSize` is too small. `source` may be
/// null when there are no bytes, `destination` when its size is 0.
PELORIK_API int base64_encode(const unsigned char* source, unsigned int sourceLength,
                              char* destination, unsigned int destinationSize);

/// Decodes a text that ends with a NUL and returns the number of bytes.
///
/// White space (space, \\t, \\n, \\v, \\f, \\r) is skipped anywhere. Returns -1 for any other
/// character outside the alphabet, for an unfinished group of four, for missing padding or anything
/// but white space after it, for bits behind the last byte that are not zero, and for a destination
/// that is too small. With a null `destination` the bytes are only counted.
///
/// Deliberate: when the text ends in padding, the destination needs one byte more than is decoded,
/// because the bits behind the last byte are stored before they are checked. Without a destination
/// they are not checked at all: "Zh==" counts as 1 and decodes as -1.
PELORIK_API int base64_decode(const char* source, unsigned char* destination,
                              unsigned int destinationSize);

/// The number of characters that `base64_encode_cert_hf` at most needs for `length` bytes.
///
/// Deliberate: about three times as many as it writes. Callers store this number, so it stays. A
/// negative `length`, for which it may say less than is written, has the need of 0.
PELORIK_API int base64_encode_cert_len_hf(int length, const char* header, const char* footer);

/// The number of characters that `base64_encode_cert` at most needs for `length` bytes.
PELORIK_API int base64_encode_cert_len(int length);

/// Writes `header`, the base64 text of `length` bytes in lines of 64 characters, `footer` and a
/// NUL.
///
/// Every base64 line ends with CR LF, and none is empty; header and footer bring their own line
/// ends. Returns the number of characters with the NUL. Nothing is checked: the destination must
/// hold what `base64_encode_cert_len_hf` says. A negative `length` counts as 0, and then `source`
/// may be null. The alphabet is always the one of RFC 4648.
PELORIK_API int base64_encode_cert_hf(const unsigned char* source, int length, char* destination,
                                      const char* header, const char* footer);

/// The same between "-----BEGIN CERTIFICATE-----" and "-----END CERTIFICATE-----", each on a line
/// that ends with CR LF.
PELORIK_API int base64_encode_cert(const unsigned char* source, int length, char* destination);

/// Whether `length` characters look like a PEM certificate: any number of "-", then at least 20
/// characters of which the first 17 are "BEGIN CERTIFICATE".
PELORIK_API bool is_base64_encoded_cert(const char* text, int length);

/// Decodes what stands between the first and the last line of `text`, as `base64_decode` does.
///
/// `length` is the text's length without its NUL, `destinationSize` the room in bytes; a negative
/// one counts as 0. `destination` may be null. The first line is whatever stands before the first
/// line feed; without one the result is -1. Throws `std::bad_alloc`.
///
/// Deliberate: the very last character is taken for the end of the last line and never looked at,
/// and of the characters before it one white space or control character is dropped, not more. Then
/// a line that ends with "-" is the last line and is dropped too. So a text with more than two
/// characters of white space behind its last line is -1.
PELORIK_API int base64_decode_cert(const char* text, int length, unsigned char* destination,
                                   int destinationSize);

#endif
