// Commands that are families of verbs: `pelorik xml check`, `pelorik xml seal`.

#ifndef PELORIK_CLI_VERB_H
#define PELORIK_CLI_VERB_H

#include "cli/commands.h"

#include <initializer_list>
#include <string>
#include <vector>

namespace cli {

struct Verb {
    const char* name;
    const char* text; // for --help
    int (*run)(const Words& words, Console& console);
};

struct VerbFamily {
    const char* command;
    const char* about; // a paragraph for --help
    std::vector<Verb> verbs;
    const char* failed; // what exit status 1 means
    const char* examples;
};

// Runs the verb that `words` begin with. Errors of its usage become `Failure`, since their pointer
// to --help is the verb's, not the command's.
int runVerb(const VerbFamily& family, const Words& words, Console& console);

// Throws `UsageError` unless there is exactly one operand for each of `names`.
void requireOperands(const Words& operands, std::initializer_list<const char*> names);

} // namespace cli

#endif
