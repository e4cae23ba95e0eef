#include "packaging/describe/described.h"

#include "cli/args/options.h"
#include "cli/commands.h"

#include <fstream>
#include <stdexcept>

namespace describe {

namespace {

Described describedBy(const cli::Command& command, cli::Args args, const std::string& text) {
    Described out;
    out.words = command.name;
    for (const std::string& arg : args)
        out.words += " " + arg;
    out.text = text;
    args.emplace_back("--help");
    cli::Console console("pelorik");
    try {
        command.run(args, console);
    } catch (const cli::HelpRequested& help) {
        out.spec = help.spec;
        return out;
    }
    throw std::logic_error(out.words + " --help shows no help");
}

} // namespace

std::vector<Described> describedCommands() {
    std::vector<Described> commands;
    for (const cli::Command& command : cli::allCommands()) {
        Described described = describedBy(command, {}, command.text);
        for (const cli::CommandSpec::Subcommand& subcommand : described.spec.subcommands)
            described.subcommands.push_back(
                describedBy(command, {subcommand.name}, subcommand.text));
        commands.push_back(std::move(described));
    }
    return commands;
}

std::vector<Described> leavesOf(const std::vector<Described>& commands) {
    std::vector<Described> leaves;
    for (const Described& command : commands) {
        if (command.subcommands.empty())
            leaves.push_back(command);
        leaves.insert(leaves.end(), command.subcommands.begin(), command.subcommands.end());
    }
    return leaves;
}

ValueKind kindOf(const cli::CommandSpec::Option& option) {
    const std::string& value = option.value;
    if (value.empty())
        return ValueKind::kNone;
    if (value == "ALG")
        return ValueKind::kAlgorithm;
    if (value == "DIR")
        return ValueKind::kDirectory;
    return value == "LIST" || value == "OUT" ? ValueKind::kFile : ValueKind::kFree;
}

std::string briefOf(const std::string& text) {
    return text.substr(0, text.find(';'));
}

std::string replacedAll(std::string text, const std::string& what, const std::string& by) {
    for (std::size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
    return text;
}

void writeFile(const std::filesystem::path& path, const std::string& content) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << content;
    file.close();
    if (!file)
        throw std::runtime_error(path.native() + ": cannot be written");
}

} // namespace describe
