#include "text/print.h"

#include <cstdio>

int pelorikutil::print(char* out, std::size_t size, const char* format, va_list arguments) {
    va_list own;
    va_copy(own, arguments);
    const int length = vsnprintf(out, size, format, own);
    va_end(own);
    return length;
}
