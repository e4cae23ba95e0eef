#include "cli/verb.h"

#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "cli/failure.h"

#include <algorithm>

namespace cli {

namespace {

// For words that do not begin with a verb: shows help where it is asked for, and refuses the rest.
[[noreturn]] void explain(const VerbFamily& family, const Words& words) {
    const std::string command = family.command;
    CommandLine line(command + " VERB [OPTION]... OPERAND...",
                     family.about + (" pelorik " + command) + " VERB --help tells more of a verb.");
    for (const Verb& verb : family.verbs)
        line.verb(verb.name, verb.text);
    line.status(kDone, "it was done");
    line.status(kFailed, family.failed);
    line.status(kTrouble, "a file or standard output could not be read or written; wrong usage");
    line.status(kInterrupted, "interrupted");
    line.examples(family.examples);
    line.parse(words);
    throw UsageError(words.empty() ? "which verb?" : "unknown verb '" + words.front() + "'");
}

} // namespace

int runVerb(const VerbFamily& family, const Words& words, Console& console) {
    const std::string first = words.empty() ? std::string() : words.front();
    const auto verb = std::find_if(family.verbs.begin(), family.verbs.end(),
                                   [&](const Verb& known) { return first == known.name; });
    if (verb == family.verbs.end())
        explain(family, words);
    try {
        return verb->run(Words(words.begin() + 1, words.end()), console);
    } catch (const UsageError& error) {
        throw Failure(std::string(error.what()) + " (try: pelorik " + family.command + " " + first +
                      " --help)");
    }
}

void requireOperands(const Words& operands, std::initializer_list<const char*> names) {
    if (operands.size() < names.size())
        throw UsageError(std::string(names.begin()[operands.size()]) + " is missing");
    if (operands.size() > names.size())
        throw UsageError("unexpected operand '" + operands[names.size()] + "'");
}

} // namespace cli
