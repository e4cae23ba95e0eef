// Manual pages in the mdoc language.

#include "packaging/describe/described.h"

#include <array>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace describe {

namespace {

// In the order of the manual's conventions.
constexpr std::array<const char*, 8> kSections = {"DESCRIPTION", "ENVIRONMENT", "FILES",
                                                  "EXIT STATUS", "EXAMPLES",    "DIAGNOSTICS",
                                                  "SEE ALSO",    "CAVEATS"};

constexpr std::size_t kLongestLine = 78;

using Sections = std::map<std::string, std::string>; // without their headings

// Text that has to come out as it stands, hyphens and quotes included.
std::string literal(const std::string& text) {
    std::string out = replacedAll(text, "\\", "\\e");
    out = replacedAll(out, "-", "\\-");
    out = replacedAll(out, "'", "\\(aq");
    out = replacedAll(out, "\"", "\\(dq");
    return replacedAll(out, "|", "\\(ba");
}

// A word of a text: names of options come out bold, and can be copied.
std::string textWord(const std::string& word) {
    const std::size_t start = word.find_first_not_of("('");
    if (start == std::string::npos || word[start] != '-')
        return replacedAll(word, "\\", "\\e");
    const std::size_t end = word.find_last_not_of(".,;:)'") + 1;
    if (end <= start + 1)
        return replacedAll(word, "-", "\\-");
    return word.substr(0, start) + "\\fB" + literal(word.substr(start, end - start)) + "\\fR" +
           word.substr(end);
}

bool endsSentence(const std::string& word) {
    return word.ends_with('.') || word.ends_with(".)");
}

// A paragraph: each sentence begins a line, and no line begins like a request.
std::string paragraph(const std::string& text) {
    std::istringstream words(text);
    std::string out;
    std::string line;
    for (std::string word; words >> word;) {
        word = textWord(word);
        if (!line.empty() && line.size() + 1 + word.size() > kLongestLine)
            out += std::exchange(line, "") + "\n";
        if (line.empty() && (word.starts_with('.') || word.starts_with('\'')))
            word.insert(0, "\\&");
        line += (line.empty() ? "" : " ") + word;
        if (endsSentence(word))
            out += std::exchange(line, "") + "\n";
    }
    return line.empty() ? out : out + line + "\n";
}

// "-a" as the argument of a request, which has one dash of its own.
std::string flag(const std::string& name) {
    return "Fl " + replacedAll(name.substr(1), "-", "\\-");
}

// One word of a usage, as requests: an option, the name of an operand, or "|".
std::string usageWord(const std::string& word) {
    if (word == "|" || word == "-")
        return replacedAll(word, "-", "\\-");
    return word.starts_with('-') ? flag(word) : "Ar " + literal(word);
}

std::string usageWords(const std::string& text) {
    std::istringstream words(replacedAll(text, "|", " | "));
    std::string out;
    for (std::string word; words >> word;)
        out += (out.empty() ? "" : " ") + usageWord(word);
    return out;
}

// "[-a ALG]..." as a request of its own.
std::string usagePart(const std::string& part) {
    const bool repeats = part.ends_with("...");
    const std::string once = part.substr(0, part.size() - (repeats ? 3 : 0));
    if (!once.starts_with('['))
        return "." + usageWords(once) + (repeats ? " Ns ..." : "") + "\n";
    const std::string inner = usageWords(once.substr(1, once.size() - 2));
    return repeats ? ".Oo\n." + inner + "\n.Oc Ns ...\n" : ".Op " + inner + "\n";
}

// The parts of a usage: words, and what stands in brackets.
std::vector<std::string> usageParts(const std::string& usage) {
    std::vector<std::string> parts = {""};
    int depth = 0;
    for (const char c : usage) {
        depth += c == '[' ? 1 : c == ']' ? -1 : 0;
        if (c == ' ' && depth == 0)
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

std::string synopsisOf(const Described& command) {
    std::string out = ".Nm pelorik " + command.words + "\n";
    const std::string usage = command.spec.usage.substr(command.words.size());
    for (const std::string& part : usageParts(usage)) {
        if (!part.empty())
            out += usagePart(part);
    }
    return out;
}

std::string optionsOf(const cli::CommandSpec& spec) {
    std::string out = ".Bl -tag -width Ds\n";
    for (const cli::CommandSpec::Option& option : spec.options) {
        out += ".It " + flag(option.names.front());
        if (option.names.size() > 1)
            out += " , " + flag(option.names.back());
        out += option.value.empty() ? "\n" : " Ar " + option.value + "\n";
        out += paragraph(option.text);
    }
    return out + ".El\n";
}

std::string statusesOf(const cli::CommandSpec& spec) {
    std::string out = ".Bl -tag -width Ds\n";
    for (const cli::CommandSpec::Status& status : spec.statuses)
        out += ".It " + std::to_string(status.number) + "\n" + paragraph(status.text);
    return out + ".El\n";
}

std::string examplesOf(const cli::CommandSpec& spec) {
    std::string out = ".Bd -literal -offset indent\n";
    for (const std::string& example : spec.examples)
        out += literal(example) + "\n";
    return out + ".Ed\n";
}

std::string verbOf(const Described& verb) {
    return ".Ss pelorik " + verb.words + "\n" + paragraph(verb.spec.about) +
           ".Pp\nThe options are as follows:\n" + optionsOf(verb.spec) +
           ".Pp\nThe exit status is one of these:\n" + statusesOf(verb.spec) +
           ".Pp\nFor example:\n" + examplesOf(verb.spec);
}

// The sections of a file of prose, which need not exist.
Sections proseIn(const std::filesystem::path& path) {
    Sections sections;
    std::ifstream file(path);
    std::string* section = nullptr;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(".Sh "))
            section = &sections[line.substr(4)];
        else if (section == nullptr)
            throw std::runtime_error(path.native() + ": text before the first section");
        else
            *section += line + "\n";
    }
    return sections;
}

std::string pageOf(const std::string& name, const std::string& text, const std::string& synopsis,
                   Sections sections, const std::string& date) {
    std::string title;
    for (const char c : name)
        title += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    std::string out = ".Dd " + date + "\n.Dt " + title + " 1\n.Os\n.Sh NAME\n.Nm " + name +
                      "\n.Nd " + text + "\n.Sh SYNOPSIS\n" + synopsis;
    for (const char* const section : kSections) {
        const std::string content = sections[section];
        sections.erase(section);
        if (!content.empty())
            out += std::string(".Sh ") + section + "\n" + content;
    }
    if (!sections.empty())
        throw std::runtime_error(name + ": no section is named " + sections.begin()->first);
    return out;
}

std::string commandPage(const Described& command, Sections sections, const std::string& date) {
    std::string synopsis;
    std::string description = paragraph(command.spec.about);
    if (command.subcommands.empty()) {
        synopsis = synopsisOf(command);
        description += ".Pp\nThe options are as follows:\n" + optionsOf(command.spec);
    }
    for (const Described& verb : command.subcommands) {
        synopsis += synopsisOf(verb);
        description += verbOf(verb);
    }
    sections["DESCRIPTION"].insert(0, description);
    sections["EXIT STATUS"].insert(0, statusesOf(command.spec));
    sections["EXAMPLES"].insert(0, examplesOf(command.spec));
    sections["SEE ALSO"].insert(0, ".Xr pelorik 1\n");
    return pageOf("pelorik-" + command.words, command.text, synopsis, sections, date);
}

std::string overviewPage(const std::vector<Described>& commands, Sections sections,
                         const std::string& date) {
    std::string list = ".Pp\nThe commands are as follows:\n.Bl -tag -width interfaces\n";
    std::set<std::string> names; // the manual's own order
    for (const Described& command : commands) {
        list += ".It Cm " + command.words + "\n" + paragraph(command.text);
        names.insert(command.words);
    }
    std::string references;
    for (const std::string& name : names)
        references += ".Xr pelorik-" + name + " 1" + (name == *names.rbegin() ? "\n" : " ,\n");
    sections["DESCRIPTION"] += list + ".El\n";
    sections["SEE ALSO"].insert(0, references);
    const std::string synopsis = ".Nm pelorik\n.Ar COMMAND\n.Oo\n.Ar OPTION\n.Oc Ns ...\n.Oo\n.Ar "
                                 "OPERAND\n.Oc Ns ...\n.Nm pelorik\n.Fl h | Fl \\-help | "
                                 "\\-version\n";
    return pageOf("pelorik", "digests of files and checks against lists of them", synopsis,
                  sections, date);
}

} // namespace

void writeManual(const std::vector<Described>& commands, const std::string& date,
                 const std::filesystem::path& prose, const std::filesystem::path& directory) {
    writeFile(directory / "pelorik.1",
              overviewPage(commands, proseIn(prose / "pelorik.mdoc"), date));
    for (const Described& command : commands)
        writeFile(directory / ("pelorik-" + command.words + ".1"),
                  commandPage(command, proseIn(prose / (command.words + ".mdoc")), date));
}

} // namespace describe
