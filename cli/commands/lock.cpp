// pelorik lock: runs a command while holding a lock.

#include "cli/process/lock.h"

#include "cli/args/options.h"
#include "cli/commands.h"
#include "cli/process/child.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <optional>
#include <thread>

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr std::chrono::milliseconds kBetweenAttempts{50};
constexpr double kLongestWait = 1e9; // seconds: 30 years

struct LockOptions {
    std::string name;
    Seconds wait{0};
    std::vector<std::string> command;
};

Seconds secondsOf(const std::string& text) {
    double seconds = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] =
        std::from_chars(text.data(), end, seconds, std::chars_format::fixed);
    if (error != std::errc() || stopped != end || !(seconds >= 0 && seconds <= kLongestWait))
        throw UsageError("--wait takes a number of seconds, not '" + text + "'");
    return Seconds(seconds);
}

void refuseUnsafe(const std::string& name) {
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
        throw UsageError("a lock cannot be named '" + name +
                         "': it takes the name of a file, without a directory");
}

LockOptions parseLock(const Args& args) {
    OptionParser line(
        "lock [--wait SECONDS] NAME -- COMMAND [ARG]...",
        "Runs a command while holding the lock NAME, which one process at a time can "
        "have, and ends with the command's own exit status. The lock is the file "
        "/run/vpnagent/NAME; it is released, and the file removed, when the command "
        "ends. Signals that would end this process are passed on to the command. When "
        "this process is killed, the command is killed too, and the lock lasts while "
        "a descendant of the command keeps its descriptor.");
    LockOptions options;
    std::optional<std::string> wait;
    line.value("--wait", "SECONDS", wait,
               "wait so long for a lock that another process holds, instead of giving up at once");
    line.status(kDone, "the command ended with 0; its other statuses are passed on too, and one "
                       "that a signal N killed gives 128 + N");
    line.status(kFailed, "another process holds the lock");
    line.status(kTrouble, "the lock cannot be had for another reason; wrong usage");
    line.status(126, "the command could not be run");
    line.status(127, "the command was not found");
    line.status(kInterrupted, "interrupted while waiting");
    line.examples("  pelorik lock nightly -- ./nightly-job --all\n"
                  "  pelorik lock --wait 10 nightly -- sh -c './nightly-job && ./report'\n");
    const auto divider = std::find(args.begin(), args.end(), "--");
    const std::vector<std::string> operands = line.parse(Args(args.begin(), divider));
    if (operands.size() != 1)
        throw UsageError("one NAME is needed before --");
    if (args.end() - divider < 2)
        throw UsageError("a COMMAND is needed behind --");
    options.name = operands.front();
    options.command.assign(divider + 1, args.end());
    refuseUnsafe(options.name);
    if (wait)
        options.wait = secondsOf(*wait);
    return options;
}

std::optional<Lock> take(const LockOptions& options) {
    const auto start = Clock::now();
    for (;;) {
        std::optional<Lock> lock = Lock::tryToTake(options.name);
        if (lock || Clock::now() - start >= options.wait)
            return lock;
        std::this_thread::sleep_for(kBetweenAttempts);
        stopIfInterrupted();
    }
}

} // namespace

int runLock(const Args& args, Console& console) {
    const LockOptions options = parseLock(args);
    const std::optional<Lock> lock = take(options);
    if (!lock) {
        console.error("another process holds the lock '" + options.name + "'");
        return kFailed;
    }
    if (lock->wasThereAlready())
        console.error("the file of '" + options.name +
                      "' was there already, though nobody held it");
    const CommandEnd end = runCommand(options.command, lock->descriptor());
    if (end.execError != 0)
        console.error(options.command.front() + ": " + errorText(end.execError));
    return end.status;
}

} // namespace cli
