// The pelorik tool: finds the command and turns every way in which it can end into an exit status.

#include "cli/args/options.h"
#include "cli/commands.h"
#include "cli/files/descriptor.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <exception>
#include <fcntl.h>
#include <new>
#include <unistd.h>

namespace cli {

namespace {

constexpr char kVersion[] = "pelorik " PELORIK_VERSION "\n";

std::string overview(std::size_t columns) {
    constexpr std::size_t kTextColumn = 14;
    std::string text = "Usage: pelorik COMMAND [OPTION]... [OPERAND]...\n"
                       "       pelorik --help | --version\n\n" +
                       wrapped("Digests of files and checks against a list of them, network "
                               "interfaces, locks, XML documents and INI texts.",
                               0, columns) +
                       "\n\nCommands:\n";
    for (const Command& command : allCommands()) {
        std::string line = std::string("  ") + command.name;
        line.resize(kTextColumn, ' ');
        text += line + wrapped(command.text, kTextColumn, columns) + "\n";
    }
    return text + "\n" +
           wrapped("pelorik COMMAND --help tells a command's options and exit statuses.", 0,
                   columns) +
           "\n\nExamples:\n"
           "  pelorik list -r -o /root/client.list /opt/PELORIKclient\n"
           "  pelorik check /root/client.list\n";
}

// A descriptor 0, 1 or 2 that is closed would be the next file's: what is meant for standard output
// would end up there. In their place stands one that can be neither read nor written.
void occupyStandardDescriptors() {
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) != -1)
            continue;
        const int opened = ::open("/", O_PATH);
        if (opened != descriptor && opened >= 0)
            ::close(opened);
    }
}

// Runs `work` and flushes. Returns the status in which the tool ends.
template<class Work>
int guarded(Console& console, const std::string& helpFor, Work work) {
    int status = kDone;
    try {
        status = work();
    } catch (const HelpRequested& help) {
        console.printBlock(helpText(help.spec, console.helpColumns()));
    } catch (const CheckFailed& refusal) {
        console.error(refusal.what());
        status = kFailed;
    } catch (const UsageError& error) {
        console.error(std::string(error.what()) + " (try: " + helpFor + " --help)");
        status = kTrouble;
    }
    console.flush();
    return status;
}

template<class Work>
int finalStatus(Console& console, const std::string& helpFor, Work work) {
    try {
        return guarded(console, helpFor, work);
    } catch (const Interrupted&) {
        console.error("interrupted");
        return kInterrupted;
    } catch (const std::bad_alloc&) {
        console.error("out of memory");
    } catch (const std::exception& failure) {
        console.error(failure.what());
    }
    return kTrouble;
}

int runWithoutCommand(const std::string& word, Console& console) {
    if (word == "--version")
        console.printBlock(kVersion);
    else if (word == "--help" || word == "-h")
        console.printBlock(overview(console.helpColumns()));
    else
        throw UsageError(word.empty() ? "which command?" : "unknown command '" + word + "'");
    return kDone;
}

int run(const Args& args) {
    const std::string first = args.empty() ? std::string() : args.front();
    const auto command =
        std::find_if(allCommands().begin(), allCommands().end(),
                     [&](const Command& candidate) { return first == candidate.name; });
    if (command == allCommands().end()) {
        Console console("pelorik");
        return finalStatus(console, "pelorik", [&] { return runWithoutCommand(first, console); });
    }
    const std::string name = "pelorik " + first;
    Console console("pelorik: " + first);
    return finalStatus(console, name,
                       [&] { return command->run(Args(args.begin() + 1, args.end()), console); });
}

// For what comes before there is a command to catch it, or out of the complaint about something
// else. Allocates nothing.
int giveUp(const char* why) {
    for (const char* text : {"pelorik: ", why, "\n"})
        writeAll(STDERR_FILENO, text);
    return kTrouble;
}

// Static objects are made where nothing catches. All that can be missing there is memory.
std::terminate_handler usualHandler = nullptr;

[[noreturn]] void giveUpBeforeMain() {
    ::_exit(giveUp("out of memory"));
}

[[gnu::constructor(101)]] void watchStaticObjects() {
    usualHandler = std::set_terminate(giveUpBeforeMain);
}

} // namespace

} // namespace cli

int main(int argc, char** argv) {
    std::set_terminate(cli::usualHandler);
    cli::occupyStandardDescriptors();
    cli::watchForTermination();
    cli::failWritesBeyondLimit();
    int status = cli::kTrouble;
    try {
        status = cli::run(cli::Args(argv + std::min(argc, 1), argv + argc));
    } catch (const std::bad_alloc&) {
        status = cli::giveUp("out of memory");
    } catch (const std::exception& failure) {
        status = cli::giveUp(failure.what());
    }
    if (status == cli::kInterrupted)
        cli::endAsTerminated();
    return status;
}
