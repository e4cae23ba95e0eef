// Completion functions for bash, zsh and fish.

#include "packaging/describe/described.h"

namespace describe {

namespace {

using Option = cli::CommandSpec::Option;

// In single quotes, for bash and zsh.
std::string quoted(const std::string& text) {
    return "'" + replacedAll(text, "'", "'\\''") + "'";
}

// For fish, which knows escapes between single quotes.
std::string quotedForFish(const std::string& text) {
    return "'" + replacedAll(replacedAll(text, "\\", "\\\\"), "'", "\\'") + "'";
}

std::string joined(const std::vector<std::string>& words, const std::string& separator) {
    std::string out;
    for (const std::string& word : words)
        out += (out.empty() ? "" : separator) + word;
    return out;
}

std::vector<std::string> namesOf(const std::vector<Described>& commands) {
    std::vector<std::string> names;
    names.reserve(commands.size());
    for (const Described& command : commands)
        names.push_back(command.words.substr(command.words.find(' ') + 1));
    return names;
}

// Whether files may stand for the operands.
bool takesFiles(const Described& command) {
    const std::string& usage = command.spec.usage;
    return usage.find("FILE") != std::string::npos || usage.find("LIST") != std::string::npos ||
           usage.find("PATH") != std::string::npos || usage.find("OLD") != std::string::npos;
}

// "check:-C|check:--directory": where a value of that kind is due.
std::string bashPlaces(const std::vector<Described>& leaves, ValueKind kind) {
    std::vector<std::string> places;
    for (const Described& leaf : leaves) {
        for (const Option& option : leaf.spec.options) {
            if (kindOf(option) != kind)
                continue;
            for (const std::string& name : option.names)
                places.push_back(quoted(leaf.words + ":" + name));
        }
    }
    return joined(places, " | \\\n        ");
}

std::string bashFamilies(const std::vector<Described>& commands) {
    std::string out;
    for (const Described& command : commands) {
        if (!command.subcommands.empty())
            out += "    " + command.words + ") subcommands='" +
                   joined(namesOf(command.subcommands), " ") + " --help' ;;\n";
    }
    return out;
}

std::string bashOptions(const std::vector<Described>& leaves) {
    std::string out;
    for (const Described& leaf : leaves) {
        std::vector<std::string> names;
        for (const Option& option : leaf.spec.options)
            names.insert(names.end(), option.names.begin(), option.names.end());
        out += "    " + quoted(leaf.words) + ") options='" + joined(names, " ") +
               "' files=" + (takesFiles(leaf) ? "1" : "") + " ;;\n";
    }
    return out;
}

// _arguments reads brackets and colons in a text as its own.
std::string zshText(const std::string& text) {
    std::string out = replacedAll(briefOf(text), "[", "\\[");
    return replacedAll(replacedAll(out, "]", "\\]"), ":", "\\:");
}

std::string zshValue(const Option& option) {
    switch (kindOf(option)) {
    case ValueKind::kNone:
        return "";
    case ValueKind::kAlgorithm:
        return std::string(":") + option.value + ":(" + kAlgorithms + ")";
    case ValueKind::kDirectory:
        return ":" + option.value + ":_files -/";
    case ValueKind::kFile:
        return ":" + option.value + ":_files";
    default:
        return ":" + option.value + ": ";
    }
}

std::string zshArguments(const Described& leaf) {
    std::string out = "        _arguments -s -S";
    for (const Option& option : leaf.spec.options) {
        for (const std::string& name : option.names)
            out += " \\\n            " +
                   quoted("*" + name + "[" + zshText(option.text) + "]" + zshValue(option));
    }
    if (leaf.words == "lock")
        out += " \\\n            '1:lock: ' '*::command:_normal'";
    else if (takesFiles(leaf))
        out += " \\\n            '*:file:_files'";
    return out + " ;;\n";
}

std::string zshNames(const std::vector<Described>& commands) {
    std::string out;
    for (const Described& command : commands)
        out += "        " +
               quoted(command.words.substr(command.words.find(' ') + 1) + ":" + command.text) +
               "\n";
    return out;
}

std::string fishValue(const Option& option) {
    switch (kindOf(option)) {
    case ValueKind::kNone:
        return "";
    case ValueKind::kAlgorithm:
        return std::string(" -x -a '") + kAlgorithms + "'";
    case ValueKind::kDirectory:
        return " -x -a '(__fish_complete_directories)'";
    case ValueKind::kFile:
        return " -r -F";
    default:
        return " -x";
    }
}

std::string fishOption(const std::string& words, const Option& option) {
    std::string out = "complete -c pelorik -n '__pelorik_in " + words + "'";
    for (const std::string& name : option.names)
        out += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    return out + fishValue(option) + " -d " + quotedForFish(briefOf(option.text)) + "\n";
}

std::string fishNames(const std::string& place, const std::vector<Described>& commands) {
    std::string out;
    for (const Described& command : commands)
        out += "complete -c pelorik -f -n '" + place + "' -a " +
               command.words.substr(command.words.find(' ') + 1) + " -d " +
               quotedForFish(command.text) + "\n";
    return out;
}

} // namespace

std::string bashCompletion(const std::vector<Described>& commands) {
    const std::vector<Described> leaves = leavesOf(commands);
    return R"(# bash completion for pelorik. Made from what its commands say of themselves.

_pelorik()
{
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]} subcommands='' options='' files='' index
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W ')" +
           joined(namesOf(commands), " ") + R"( --help --version' -- "$current")
        return
    fi
    case $command in
)" + bashFamilies(commands) +
           R"(    esac
    if [[ $subcommands ]]; then
        if ((COMP_CWORD == 2)); then
            mapfile -t COMPREPLY < <(compgen -W "$subcommands" -- "$current")
            return
        fi
        command+=" ${COMP_WORDS[2]}"
    fi
    case $command in
)" + bashOptions(leaves) +
           R"(    *) return ;;
    esac
    for ((index = 2; index < COMP_CWORD; index++)); do
        [[ ${COMP_WORDS[index]} == -- ]] || continue
        compopt -o filenames 2>/dev/null
        if [[ $command == lock ]] && ((index == COMP_CWORD - 1)); then
            mapfile -t COMPREPLY < <(compgen -c -- "$current")
        else
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
        fi
        return
    done
    case $command:$previous in
    )" + bashPlaces(leaves, ValueKind::kAlgorithm) +
           R"()
        mapfile -t COMPREPLY < <(compgen -W ')" +
           kAlgorithms + R"(' -- "$current")
        return
        ;;
    )" + bashPlaces(leaves, ValueKind::kDirectory) +
           R"()
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
        ;;
    )" + bashPlaces(leaves, ValueKind::kFile) +
           R"()
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    )" + bashPlaces(leaves, ValueKind::kFree) +
           R"()
        return
        ;;
    esac
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    elif [[ $files ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}

complete -F _pelorik pelorik
)";
}

std::string zshCompletion(const std::vector<Described>& commands) {
    std::string out = "#compdef pelorik\n# Made from what the commands say of themselves.\n\n"
                      "local -a names\n"
                      "if ((CURRENT == 2)); then\n    names=(\n" +
                      zshNames(commands) +
                      "    )\n    _describe command names\n    return\nfi\n"
                      "local place=$words[2]\nshift words\n((CURRENT--))\n"
                      "case $place in\n";
    for (const Described& command : commands) {
        if (!command.subcommands.empty())
            out += command.words + ")\n    if ((CURRENT == 2)); then\n        names=(\n" +
                   zshNames(command.subcommands) +
                   "        )\n        _describe verb names\n        return\n    fi\n"
                   "    place+=\" $words[2]\"\n    shift words\n    ((CURRENT--))\n    ;;\n";
    }
    out += "esac\ncase $place in\n";
    for (const Described& leaf : leavesOf(commands))
        out += "    " + quoted(leaf.words) + ")\n" + zshArguments(leaf);
    return out + "esac\n";
}

std::string fishCompletion(const std::vector<Described>& commands) {
    std::string out =
        R"(# fish completion for pelorik. Made from what its commands say of themselves.

# Whether the words behind pelorik begin with those.
function __pelorik_in
    set -l words (commandline -opc)
    set -l last (math 1 + (count $argv))
    test (count $words) -ge $last; and test "$words[2..$last]" = "$argv"
end

# Whether the words behind pelorik are those and no more.
function __pelorik_at
    set -l words (commandline -opc)
    test (count $words) -eq (math 1 + (count $argv)); or return 1
    test (count $argv) -eq 0; or test "$words[2..]" = "$argv"
end

)";
    out += fishNames("__pelorik_at", commands);
    for (const Described& command : commands)
        out += fishNames("__pelorik_at " + command.words, command.subcommands);
    for (const Described& leaf : leavesOf(commands)) {
        if (!takesFiles(leaf))
            out += "complete -c pelorik -f -n '__pelorik_in " + leaf.words + "'\n";
        for (const Option& option : leaf.spec.options)
            out += fishOption(leaf.words, option);
    }
    return out;
}

} // namespace describe
