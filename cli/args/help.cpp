#include "cli/args/help.h"

#include <sstream>

namespace cli {

namespace {

constexpr std::size_t kTextColumn = 26;
constexpr std::size_t kNarrow = 60; // columns in which texts stand below what they explain

// Lines of what is explained and, from a column of their own on, the explanations.
class Table {
public:
    explicit Table(std::size_t columns)
        : columns_(columns), textColumn_(columns < kNarrow ? 6 : kTextColumn) {}

    std::string line(const std::string& left, const std::string& text) const {
        std::string line = "  " + left;
        if (line.size() + 2 > textColumn_)
            line += "\n" + std::string(textColumn_, ' ');
        else
            line.resize(textColumn_, ' ');
        return line + wrapped(text, textColumn_, columns_) + "\n";
    }

private:
    std::size_t columns_;
    std::size_t textColumn_;
};

// "-a, --algorithm ALG"
std::string leftOf(const CommandSpec::Option& option) {
    std::string names = option.names.size() == 1 ? "    " : option.names.front() + ", ";
    names += option.names.back();
    return option.value.empty() ? names : names + " " + option.value;
}

std::string usageText(const std::string& usage, std::size_t columns) {
    const std::string start = "Usage: pelorik ";
    return columns < kNarrow ? wrapped(start + usage, 4, columns)
                             : start + wrapped(usage, start.size(), columns);
}

} // namespace

std::string wrapped(const std::string& text, std::size_t column, std::size_t columns) {
    std::istringstream words(text);
    words.exceptions(std::ios::badbit); // passes on that memory has ended
    std::string out;
    std::size_t used = column;
    for (std::string word; words >> word; used += word.size()) {
        if (used + 1 + word.size() > columns && !out.empty()) {
            out += "\n" + std::string(column, ' ');
            used = column;
        } else if (!out.empty()) {
            out += ' ';
            ++used;
        }
        out += word;
    }
    return out;
}

std::string helpText(const CommandSpec& spec, std::size_t columns) {
    const Table table(columns);
    std::string text =
        usageText(spec.usage, columns) + "\n\n" + wrapped(spec.about, 0, columns) + "\n\n";
    if (!spec.subcommands.empty())
        text += "Verbs:\n";
    for (const CommandSpec::Subcommand& verb : spec.subcommands)
        text += table.line(verb.name, verb.text);
    text += spec.subcommands.empty() ? "Options:\n" : "\nOptions:\n";
    for (const CommandSpec::Option& option : spec.options)
        text += table.line(leftOf(option), option.text);
    text += "\nExit status:\n";
    for (const CommandSpec::Status& status : spec.statuses)
        text += table.line(std::to_string(status.number), status.text);
    text += "\nExamples:\n";
    for (const std::string& example : spec.examples)
        text += "  " + example + "\n";
    return text;
}

} // namespace cli
