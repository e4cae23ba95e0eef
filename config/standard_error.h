// Standard error for code that may run before the streams exist. Not installed.

#ifndef PELORIK_CONFIG_STANDARD_ERROR_H
#define PELORIK_CONFIG_STANDARD_ERROR_H

#include <ios>
#include <iostream>
#include <ostream>

namespace pelorikutil {

// Returns std::cerr, which a static initialiser of a program that links the archive may need before
// the initialisers of the archive have created it.
inline std::ostream& standardError() {
    const std::ios_base::Init created;
    return std::cerr;
}

} // namespace pelorikutil

#endif
