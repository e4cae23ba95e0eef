// The tool's commands, as each describes itself when it is asked for help.

#ifndef PELORIK_PACKAGING_DESCRIBE_DESCRIBED_H
#define PELORIK_PACKAGING_DESCRIBE_DESCRIBED_H

#include "cli/args/help.h"

#include <filesystem>
#include <string>
#include <vector>

namespace describe {

struct Described {
    std::string words; // "check", "xml seal"
    std::string text;  // in a few words
    cli::CommandSpec spec;
    std::vector<Described> subcommands;
};

// All commands with their subcommands.
std::vector<Described> describedCommands();

// The commands without subcommands, and the subcommands of the others: whatever takes operands.
std::vector<Described> leavesOf(const std::vector<Described>& commands);

// What may stand for the value of an option.
enum class ValueKind { kNone, kAlgorithm, kDirectory, kFile, kFree };
ValueKind kindOf(const cli::CommandSpec::Option& option);
inline constexpr char kAlgorithms[] = "md5 gost94 gost2012";

// An option's text up to its first semicolon.
std::string briefOf(const std::string& text);

// `text` with `by` wherever `what` stands.
std::string replacedAll(std::string text, const std::string& what, const std::string& by);

// Writes `content` to `path`, and makes the directories that it needs. Throws when it cannot.
void writeFile(const std::filesystem::path& path, const std::string& content);

// The manual pages pelorik.1, pelorik-check.1 and so on in `directory`. What only prose can tell is
// taken from files such as check.mdoc in `prose`.
// `date` is as mdoc wants it: "November 21, 2026".
void writeManual(const std::vector<Described>& commands, const std::string& date,
                 const std::filesystem::path& prose, const std::filesystem::path& directory);

// Completion functions for the shells.
std::string bashCompletion(const std::vector<Described>& commands);
std::string zshCompletion(const std::vector<Described>& commands);
std::string fishCompletion(const std::vector<Described>& commands);

} // namespace describe

#endif
