// Catches what is written to standard error, whoever writes it, with no file that a mask of
// permissions or another user's name could get in the way of.

#ifndef PELORIK_TESTS_SUPPORT_CAPTURED_STDERR_H
#define PELORIK_TESTS_SUPPORT_CAPTURED_STDERR_H

#include <cstddef>
#include <iostream>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace support {

class CapturedStderr {
public:
    CapturedStderr() : memory_(memfd_create("stderr", MFD_CLOEXEC)), before_(dup(STDERR_FILENO)) {
        if (memory_ < 0 || before_ < 0 || dup2(memory_, STDERR_FILENO) < 0)
            throw std::runtime_error("standard error cannot be captured");
    }

    CapturedStderr(const CapturedStderr&) = delete;
    CapturedStderr& operator=(const CapturedStderr&) = delete;

    ~CapturedStderr() {
        std::cerr.flush();
        dup2(before_, STDERR_FILENO);
        close(before_);
        close(memory_);
    }

    // Everything since the capture began.
    std::string text() const {
        std::cerr.flush();
        std::string text;
        char piece[256];
        for (ssize_t size;
             (size = pread(memory_, piece, sizeof piece, static_cast<off_t>(text.size()))) > 0;)
            text.append(piece, static_cast<std::size_t>(size));
        return text;
    }

private:
    int memory_;
    int before_;
};

} // namespace support

#endif
