// The printf of AGStr::Format. Not installed.

#ifndef PELORIK_TEXT_PRINT_H
#define PELORIK_TEXT_PRINT_H

#include <cstdarg>
#include <cstddef>

namespace pelorikutil {

// Prints like vsnprintf and leaves `arguments` unchanged.
int print(char* out, std::size_t size, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

} // namespace pelorikutil

#endif
