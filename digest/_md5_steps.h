// RFC 1321's 64 steps over one block, for any kind of word. Not installed.
//
// Of internal linkage, since sources that are compiled for newer processors include it too.

#ifndef PELORIK_DIGEST_MD5_STEPS_H
#define PELORIK_DIGEST_MD5_STEPS_H

#include <stdint.h>

namespace {

// `Steps` has static members f, g, h and i: a round's step for a shift, with the words a to d and
// the sum of a word of the message and a constant. `message(k)` is word k of the block.
template<class Steps, class Word, class Message>
inline __attribute__((always_inline)) void md5Steps(Word& a, Word& b, Word& c, Word& d,
                                                    const Message& message) {
    Steps::template f<7>(a, b, c, d, message(0) + 0xd76aa478);
    Steps::template f<12>(d, a, b, c, message(1) + 0xe8c7b756);
    Steps::template f<17>(c, d, a, b, message(2) + 0x242070db);
    Steps::template f<22>(b, c, d, a, message(3) + 0xc1bdceee);
    Steps::template f<7>(a, b, c, d, message(4) + 0xf57c0faf);
    Steps::template f<12>(d, a, b, c, message(5) + 0x4787c62a);
    Steps::template f<17>(c, d, a, b, message(6) + 0xa8304613);
    Steps::template f<22>(b, c, d, a, message(7) + 0xfd469501);
    Steps::template f<7>(a, b, c, d, message(8) + 0x698098d8);
    Steps::template f<12>(d, a, b, c, message(9) + 0x8b44f7af);
    Steps::template f<17>(c, d, a, b, message(10) + 0xffff5bb1);
    Steps::template f<22>(b, c, d, a, message(11) + 0x895cd7be);
    Steps::template f<7>(a, b, c, d, message(12) + 0x6b901122);
    Steps::template f<12>(d, a, b, c, message(13) + 0xfd987193);
    Steps::template f<17>(c, d, a, b, message(14) + 0xa679438e);
    Steps::template f<22>(b, c, d, a, message(15) + 0x49b40821);

    Steps::template g<5>(a, b, c, d, message(1) + 0xf61e2562);
    Steps::template g<9>(d, a, b, c, message(6) + 0xc040b340);
    Steps::template g<14>(c, d, a, b, message(11) + 0x265e5a51);
    Steps::template g<20>(b, c, d, a, message(0) + 0xe9b6c7aa);
    Steps::template g<5>(a, b, c, d, message(5) + 0xd62f105d);
    Steps::template g<9>(d, a, b, c, message(10) + 0x02441453);
    Steps::template g<14>(c, d, a, b, message(15) + 0xd8a1e681);
    Steps::template g<20>(b, c, d, a, message(4) + 0xe7d3fbc8);
    Steps::template g<5>(a, b, c, d, message(9) + 0x21e1cde6);
    Steps::template g<9>(d, a, b, c, message(14) + 0xc33707d6);
    Steps::template g<14>(c, d, a, b, message(3) + 0xf4d50d87);
    Steps::template g<20>(b, c, d, a, message(8) + 0x455a14ed);
    Steps::template g<5>(a, b, c, d, message(13) + 0xa9e3e905);
    Steps::template g<9>(d, a, b, c, message(2) + 0xfcefa3f8);
    Steps::template g<14>(c, d, a, b, message(7) + 0x676f02d9);
    Steps::template g<20>(b, c, d, a, message(12) + 0x8d2a4c8a);

    Steps::template h<4>(a, b, c, d, message(5) + 0xfffa3942);
    Steps::template h<11>(d, a, b, c, message(8) + 0x8771f681);
    Steps::template h<16>(c, d, a, b, message(11) + 0x6d9d6122);
    Steps::template h<23>(b, c, d, a, message(14) + 0xfde5380c);
    Steps::template h<4>(a, b, c, d, message(1) + 0xa4beea44);
    Steps::template h<11>(d, a, b, c, message(4) + 0x4bdecfa9);
    Steps::template h<16>(c, d, a, b, message(7) + 0xf6bb4b60);
    Steps::template h<23>(b, c, d, a, message(10) + 0xbebfbc70);
    Steps::template h<4>(a, b, c, d, message(13) + 0x289b7ec6);
    Steps::template h<11>(d, a, b, c, message(0) + 0xeaa127fa);
    Steps::template h<16>(c, d, a, b, message(3) + 0xd4ef3085);
    Steps::template h<23>(b, c, d, a, message(6) + 0x04881d05);
    Steps::template h<4>(a, b, c, d, message(9) + 0xd9d4d039);
    Steps::template h<11>(d, a, b, c, message(12) + 0xe6db99e5);
    Steps::template h<16>(c, d, a, b, message(15) + 0x1fa27cf8);
    Steps::template h<23>(b, c, d, a, message(2) + 0xc4ac5665);

    Steps::template i<6>(a, b, c, d, message(0) + 0xf4292244);
    Steps::template i<10>(d, a, b, c, message(7) + 0x432aff97);
    Steps::template i<15>(c, d, a, b, message(14) + 0xab9423a7);
    Steps::template i<21>(b, c, d, a, message(5) + 0xfc93a039);
    Steps::template i<6>(a, b, c, d, message(12) + 0x655b59c3);
    Steps::template i<10>(d, a, b, c, message(3) + 0x8f0ccc92);
    Steps::template i<15>(c, d, a, b, message(10) + 0xffeff47d);
    Steps::template i<21>(b, c, d, a, message(1) + 0x85845dd1);
    Steps::template i<6>(a, b, c, d, message(8) + 0x6fa87e4f);
    Steps::template i<10>(d, a, b, c, message(15) + 0xfe2ce6e0);
    Steps::template i<15>(c, d, a, b, message(6) + 0xa3014314);
    Steps::template i<21>(b, c, d, a, message(13) + 0x4e0811a1);
    Steps::template i<6>(a, b, c, d, message(4) + 0xf7537e82);
    Steps::template i<10>(d, a, b, c, message(11) + 0xbd3af235);
    Steps::template i<15>(c, d, a, b, message(2) + 0x2ad7d2bb);
    Steps::template i<21>(b, c, d, a, message(9) + 0xeb86d391);
}

} // namespace

#endif
