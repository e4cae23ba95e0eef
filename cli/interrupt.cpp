#include "cli/interrupt.h"

#include <atomic>
#include <csignal>

namespace cli {

namespace {

std::atomic<bool> requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

extern "C" void onInterrupt(int) {
    requested = true;
}

} // namespace

void watchForInterrupt() {
    struct sigaction before {};
    if (sigaction(SIGINT, nullptr, &before) != 0 || before.sa_handler == SIG_IGN)
        return;
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND); // no SA_RESTART: a waiting read has to return
    sigaction(SIGINT, &action, nullptr);
}

bool interruptRequested() noexcept {
    return requested;
}

void stopIfInterrupted() {
    if (requested)
        throw Interrupted();
}

} // namespace cli
