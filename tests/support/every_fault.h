// Runs a scenario again and again, each time with another of its calls failing.

#ifndef PELORIK_TESTS_SUPPORT_EVERY_FAULT_H
#define PELORIK_TESTS_SUPPORT_EVERY_FAULT_H

#include "tests/support/fault_injection.h"

#include <functional>
#include <set>
#include <string>

namespace support {

// Does something and tells what came of it. An exception stands for "! " and its text.
using Scenario = std::function<std::string()>;

// What a scenario comes to when a system call or an allocation fails and it does not cope.
using Outcomes = std::set<std::string>;
inline constexpr char kNoMemory[] = "! std::bad_alloc";

// Fails each call of the kind in each of its ways, in a run of its own, and expects the usual
// outcome or one of `documented`, each of which comes at least once, and that nothing is left
// behind. Returns how many runs that took.
long failEveryCall(CallKind kind, const Scenario& scenario, const Outcomes& documented);

// The same for allocations and then for system calls.
void failEverything(const Scenario& scenario, const Outcomes& withoutMemory,
                    const Outcomes& withoutSystem);

} // namespace support

#endif
