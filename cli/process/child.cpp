#include "cli/process/child.h"

#include "cli/files/descriptor.h"
#include "cli/process/error.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace cli {

namespace {

constexpr int kCannotRun = 126;
constexpr int kNotFound = 127;
constexpr int kSignalled = 128;

// Blocks, as long as it lives, the signals that are waited for: those that are passed on, and
// SIGCHLD.
class SignalsHeldBack {
public:
    SignalsHeldBack() {
        std::signal(SIGCHLD, SIG_DFL); // where it is ignored, a child's status is lost
        sigemptyset(&set_);
        sigaddset(&set_, SIGCHLD);
        for (int signal = 1; signal <= SIGRTMAX; ++signal) {
            if (isTerminating(signal))
                sigaddset(&set_, signal);
        }
        sigprocmask(SIG_BLOCK, &set_, &before_);
    }
    SignalsHeldBack(const SignalsHeldBack&) = delete;
    SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;
    ~SignalsHeldBack() {
        const timespec now{};
        while (sigtimedwait(&set_, nullptr, &now) > 0) {
            // Came too late for the command, and was not meant for the tool.
        }
        release();
    }

    void release() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }

    // Waits for the next one; 0 for none.
    int wait(siginfo_t& info) const { return std::max(0, sigwaitinfo(&set_, &info)); }

private:
    sigset_t set_{};
    sigset_t before_{};
};

// A pipe that closes itself where a program begins: what comes out of it says why none did.
struct ErrorPipe {
    ErrorPipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw Error("cannot make a pipe", errno);
        read = Descriptor(ends[0]);
        write = Descriptor(ends[1]);
    }

    Descriptor read;
    Descriptor write;
};

std::vector<char*> argumentsOf(std::vector<std::string>& command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& word : command)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    return arguments;
}

// The child's part. Nothing here allocates.
[[noreturn]] void becomeCommand(const std::vector<char*>& arguments, pid_t parent,
                                const SignalsHeldBack& signals, int errors) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(kCannotRun); // the tool was gone before
    restoreSignals();      // before pending ones are released: the tool's handler would take them
    signals.release();
    execvp(arguments[0], arguments.data());
    const int error = errno;
    const ssize_t ignored = write(errors, &error, sizeof error);
    static_cast<void>(ignored);
    _exit(error == ENOENT ? kNotFound : kCannotRun);
}

// Whether the child has ended. An answer that is not given would not be announced a second time.
bool hasEnded(pid_t child, int& status) {
    pid_t ended = -1;
    do {
        ended = waitpid(child, &status, WNOHANG);
    } while (ended < 0 && errno == EINTR);
    return ended == child;
}

// True for a signal that the command got as well: a terminal sends SIGINT and SIGQUIT to the whole
// foreground process group, but SIGHUP to the session's leader alone.
bool reachedCommand(const siginfo_t& info) {
    const bool isForGroup = info.si_signo == SIGINT || info.si_signo == SIGQUIT ||
                            (info.si_signo == SIGHUP && getsid(0) != getpid());
    return info.si_code == SI_KERNEL && isForGroup;
}

// Passes signals on until the child has ended.
int waitFor(pid_t child, const SignalsHeldBack& signals) {
    int status = 0;
    while (!hasEnded(child, status)) {
        siginfo_t info{};
        const int signal = signals.wait(info);
        if (signal != 0 && signal != SIGCHLD && !reachedCommand(info))
            kill(child, signal);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
}

} // namespace

CommandEnd runCommand(const std::vector<std::string>& command, int inherited) {
    std::vector<std::string> args = command;
    const std::vector<char*> arguments = argumentsOf(args);
    ErrorPipe errors;
    const SignalsHeldBack signals;
    stopIfInterrupted();
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0)
        throw Error("cannot start a process", errno);
    if (child == 0) {
        fcntl(inherited, F_SETFD, 0); // not to be closed on exec
        becomeCommand(arguments, parent, signals, errors.write.get());
    }
    errors.write.close();
    CommandEnd end{waitFor(child, signals), 0};
    if (read(errors.read.get(), &end.execError, sizeof end.execError) < 0)
        end.execError = 0;
    return end;
}

} // namespace cli
