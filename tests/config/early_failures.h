// What a static initialiser had printed when `main` began.

#ifndef PELORIK_TESTS_CONFIG_EARLY_FAILURES_H
#define PELORIK_TESTS_CONFIG_EARLY_FAILURES_H

#include <string>

namespace early {

extern const std::string reports;

} // namespace early

#endif
