// A child process that runs a function of the test.

#ifndef PELORIK_TESTS_SUPPORT_CHILD_H
#define PELORIK_TESTS_SUPPORT_CHILD_H

#include <csignal>
#include <functional>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {

class Child {
public:
    // Starts a child that ends with what `body` returns as its exit status.
    explicit Child(const std::function<int()>& body) : pid_(fork()) {
        if (pid_ == 0)
            _exit(body());
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() { kill(SIGKILL); }

    // Waits for its end and returns its exit status, or 128 and the signal that ended it.
    int wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    // Ends it by a signal, unless it has been waited for.
    void kill(int signal) {
        if (pid_ <= 0)
            return;
        ::kill(pid_, signal);
        wait();
    }

private:
    pid_t pid_;
};

// What `body` returns when a child process runs it.
inline int inChild(const std::function<int()>& body) {
    return Child(body).wait();
}

} // namespace support

#endif
