#include "cli/process/signals.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <initializer_list>

namespace cli {

namespace {

std::atomic<bool> requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

std::atomic<int> terminatedBy{0};
static_assert(std::atomic<int>::is_always_lock_free);

void (*writeLimitBefore)(int) = SIG_DFL;

// Faults and SIGABRT keep their core dumps. SIGPIPE ends the process as it ends other tools, and
// SIGXFSZ becomes an error of the write.
constexpr std::array kTerminating = {SIGHUP,  SIGINT,  SIGQUIT,  SIGALRM, SIGTERM,
                                     SIGUSR1, SIGUSR2, SIGXCPU,  SIGIO,   SIGVTALRM,
                                     SIGPROF, SIGPWR,  SIGSTKFLT};

extern "C" void onTermination(int signal) {
    requested = true;
    if (signal != SIGINT)
        terminatedBy = signal;
}

bool isIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

bool isTerminating(int signal) {
    return (signal >= SIGRTMIN && signal <= SIGRTMAX) ||
           std::find(kTerminating.begin(), kTerminating.end(), signal) != kTerminating.end();
}

void watchForTermination() {
    struct sigaction action {};
    action.sa_handler = onTermination;
    action.sa_flags = static_cast<int>(SA_RESETHAND); // no SA_RESTART: a waiting read has to return
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        if (isTerminating(signal) && !isIgnored(signal))
            sigaction(signal, &action, nullptr);
    }
}

void endAsTerminated() {
    if (terminatedBy == 0)
        return;
    std::signal(terminatedBy, SIG_DFL);
    std::raise(terminatedBy);
}

void failWritesBeyondLimit() {
    writeLimitBefore = std::signal(SIGXFSZ, SIG_IGN);
}

void restoreSignals() {
    std::signal(SIGXFSZ, writeLimitBefore);
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        if (isTerminating(signal) && !isIgnored(signal))
            std::signal(signal, SIG_DFL);
    }
}

SignalsBlocked::SignalsBlocked() {
    sigset_t set{};
    sigfillset(&set);
    sigprocmask(SIG_BLOCK, &set, &before_);
}

SignalsBlocked::~SignalsBlocked() {
    sigprocmask(SIG_SETMASK, &before_, nullptr);
}

bool interruptRequested() noexcept {
    return requested;
}

void stopIfInterrupted() {
    if (requested)
        throw Interrupted();
}

} // namespace cli
