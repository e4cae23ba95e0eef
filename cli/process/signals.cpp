#include "cli/process/signals.h"

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

extern "C" void onInterrupt(int) {
    requested = true;
}

extern "C" void onTermination(int signal) {
    requested = true;
    terminatedBy = signal;
}

void watchFor(int signal, void (*handler)(int)) {
    struct sigaction before {};
    if (sigaction(signal, nullptr, &before) != 0 || before.sa_handler == SIG_IGN)
        return;
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = static_cast<int>(SA_RESETHAND); // no SA_RESTART: a waiting read has to return
    sigaction(signal, &action, nullptr);
}

} // namespace

void watchForInterrupt() {
    watchFor(SIGINT, onInterrupt);
}

void watchForTermination() {
    watchFor(SIGTERM, onTermination);
    watchFor(SIGHUP, onTermination);
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

void restoreWriteLimit() {
    std::signal(SIGXFSZ, writeLimitBefore);
}

SignalsBlocked::SignalsBlocked() {
    sigset_t set{};
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&set, signal);
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
