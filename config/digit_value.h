// The digits of numbers in documents. Not installed.

#ifndef PELORIK_CONFIG_DIGIT_VALUE_H
#define PELORIK_CONFIG_DIGIT_VALUE_H

namespace pelorikutil {

// The value of a digit, or -1 for what is none in base 10 or 16.
inline int digitValue(int digit, int base) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (base == 16 && digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    if (base == 16 && digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    return -1;
}

} // namespace pelorikutil

#endif
