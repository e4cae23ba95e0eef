#include "cli/command_line.h"

#include "cli/failure.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <sstream>

namespace cli {

namespace {

constexpr std::size_t kColumns = 80;
constexpr std::size_t kTextColumn = 26;
constexpr unsigned kLargestNumber = 1024;

// `left` and, from the column of explanations on, `text`.
std::string helpLine(const std::string& left, const std::string& text) {
    std::string line = "  " + left;
    if (line.size() + 2 > kTextColumn)
        line += "\n" + std::string(kTextColumn, ' ');
    else
        line.resize(kTextColumn, ' ');
    return line + wrapped(text, kTextColumn) + "\n";
}

std::string optionNames(const CLI::Option& option) {
    std::string names = option.get_name(false, true);
    if (const std::size_t comma = names.find(','); comma != std::string::npos)
        names.insert(comma + 1, " ");
    else
        names.insert(0, "    ");
    const bool hasValue = option.get_items_expected_max() > 0;
    return hasValue ? names + " " + option.get_type_name() : names;
}

bool endsOptions(const std::string& word) {
    return word == "--";
}

} // namespace

std::string wrapped(const std::string& text, std::size_t column) {
    std::istringstream words(text);
    std::string out;
    std::size_t used = column;
    for (std::string word; words >> word; used += word.size()) {
        if (used + 1 + word.size() > kColumns) {
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

CommandLine::CommandLine(std::string usage, std::string about)
    : app_(std::make_unique<CLI::App>()), usage_(std::move(usage)), about_(std::move(about)) {
    app_->set_help_flag("-h,--help", "show this text");
    // Operands are left to this class: declared ones would be split at commas when in brackets.
    app_->allow_extras();
}

CommandLine::~CommandLine() = default;

void CommandLine::flag(const std::string& names, bool& target, const std::string& text) {
    app_->add_flag(names, target, text)->disable_flag_override();
}

void CommandLine::value(const std::string& names, const std::string& what,
                        std::optional<std::string>& target, const std::string& text) {
    app_->add_option(names, target, text)->type_name(what);
}

void CommandLine::number(const std::string& names, const std::string& what, unsigned& target,
                         const std::string& text) {
    // CLI11's own numbers may have a sign and be octal or hexadecimal.
    const auto take = [&target, names](const std::string& word) {
        const char* const end = word.data() + word.size();
        const auto [stopped, error] = std::from_chars(word.data(), end, target);
        if (error != std::errc() || stopped != end || target < 1 || target > kLargestNumber)
            throw CLI::ValidationError(names, "'" + word + "' is no number from 1 to " +
                                                  std::to_string(kLargestNumber));
    };
    app_->add_option_function<std::string>(names, take, text)->type_name(what);
}

void CommandLine::values(const std::string& names, const std::string& what,
                         std::vector<std::string>& target, const std::string& text) {
    app_->add_option(names, target, text)->allow_extra_args(false)->type_name(what);
}

void CommandLine::verb(const std::string& name, const std::string& text) {
    verbs_ += helpLine(name, text);
}

void CommandLine::status(int number, const std::string& text) {
    statuses_ += helpLine(std::to_string(number), text);
}

void CommandLine::examples(std::string lines) {
    examples_ = std::move(lines);
}

// CLI11 takes the word behind `--name=` for the value, so an empty value becomes a word of its own.
std::vector<std::string> CommandLine::prepared(const std::vector<std::string>& words) const {
    std::vector<std::string> out;
    const auto end = std::find_if(words.begin(), words.end(), endsOptions);
    for (auto word = words.begin(); word != words.end(); ++word) {
        const bool isOption = word < end && word->starts_with("--") && word->ends_with('=');
        const std::string name = word->substr(0, word->find('='));
        if (isOption && name.size() + 1 == word->size() &&
            app_->get_option_no_throw(name) != nullptr) {
            out.push_back(name);
            out.emplace_back();
        } else {
            out.push_back(*word);
        }
    }
    return out;
}

std::vector<std::string> CommandLine::operands() const {
    std::vector<std::string> operands = app_->remaining();
    const auto end = std::find_if(operands.begin(), operands.end(), endsOptions);
    const auto unknown = std::find_if(operands.begin(), end, [](const std::string& word) {
        return word.size() > 1 && word.front() == '-';
    });
    if (unknown != end)
        throw UsageError("unknown option '" + *unknown + "'");
    if (end != operands.end())
        operands.erase(end);
    return operands;
}

std::vector<std::string> CommandLine::parse(const std::vector<std::string>& words) {
    std::vector<std::string> reversed = prepared(words);
    std::reverse(reversed.begin(), reversed.end()); // as CLI11 takes them
    try {
        app_->parse(std::move(reversed));
    } catch (const CLI::CallForHelp&) {
        throw HelpWanted{help()};
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
    return operands();
}

std::string CommandLine::help() const {
    std::string text =
        "Usage: pelorik " + wrapped(usage_, 15) + "\n\n" + wrapped(about_, 0) + "\n\n";
    if (!verbs_.empty())
        text += "Verbs:\n" + verbs_ + "\n";
    text += "Options:\n";
    for (const CLI::Option* option : app_->get_options())
        text += helpLine(optionNames(*option), option->get_description());
    return text + "\nExit status:\n" + statuses_ + "\nExamples:\n" + examples_;
}

} // namespace cli
