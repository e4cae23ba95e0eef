// Tells a thread's cancellation from an exception. Not installed.

#ifndef PELORIK_CONFIG_CANCELLATION_H
#define PELORIK_CONFIG_CANCELLATION_H

#include <exception>

namespace pelorikutil {

// Whether what `catch (...)` has just caught is the thread's cancellation, which has to be thrown
// on: a handler that keeps it ends the process. It is no exception of C++, so that there is none to
// point at; catching it by its own type would bind a reference to nothing.
inline bool isCancellation() {
    return std::current_exception() == nullptr;
}

} // namespace pelorikutil

#endif
