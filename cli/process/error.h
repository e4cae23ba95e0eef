// Why a command ends early. main() turns each into one line on standard error and a status.

#ifndef PELORIK_CLI_PROCESS_ERROR_H
#define PELORIK_CLI_PROCESS_ERROR_H

#include <stdexcept>
#include <string>
#include <system_error>

namespace cli {

// The system's words for an error number.
inline std::string errorText(int number) {
    return std::generic_category().message(number);
}

// The tool cannot do its job: status 2.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    Error(const std::string& what, int errorNumber)
        : std::runtime_error(what + ": " + errorText(errorNumber)) {}
};

// The tool did its job, and the answer is no: status 1.
class CheckFailed : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The command line asks for something that makes no sense: status 2 and a pointer to --help.
class UsageError : public Error {
public:
    using Error::Error;
};

} // namespace cli

#endif
