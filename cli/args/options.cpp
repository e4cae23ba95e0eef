#include "cli/args/options.h"

#include "cli/process/error.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <sstream>

namespace cli {

namespace {

constexpr unsigned kLargestNumber = 1024;

bool endsOptions(const std::string& word) {
    return word == "--";
}

} // namespace

OptionParser::OptionParser(std::string usage, std::string about)
    : app_(std::make_unique<CLI::App>()) {
    spec_.usage = std::move(usage);
    spec_.about = std::move(about);
    app_->set_help_flag("-h,--help", "show this text");
    // Operands are left to this class: declared ones would be split at commas when in brackets.
    app_->allow_extras();
}

OptionParser::~OptionParser() = default;

void OptionParser::flag(const std::string& names, bool& target, const std::string& text) {
    app_->add_flag(names, target, text);
}

void OptionParser::value(const std::string& names, const std::string& what,
                         std::optional<std::string>& target, const std::string& text) {
    app_->add_option(names, target, text)->type_name(what);
}

void OptionParser::number(const std::string& names, const std::string& what, unsigned& target,
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

void OptionParser::values(const std::string& names, const std::string& what,
                          std::vector<std::string>& target, const std::string& text) {
    app_->add_option(names, target, text)->allow_extra_args(false)->type_name(what);
}

void OptionParser::subcommand(const std::string& name, const std::string& text) {
    spec_.subcommands.push_back({name, text});
}

void OptionParser::status(int number, const std::string& text) {
    spec_.statuses.push_back({number, text});
}

void OptionParser::examples(const std::string& lines) {
    std::istringstream text(lines);
    text.exceptions(std::ios::badbit); // passes on that memory has ended
    for (std::string line; std::getline(text >> std::ws, line);)
        spec_.examples.push_back(line);
}

// The value of a known option in `--name=value`. Throws `UsageError` for one of a flag, because
// CLI11 accepts some.
std::optional<std::string> OptionParser::attachedValue(const std::string& arg) const {
    const std::size_t divider = arg.find('=');
    if (!arg.starts_with("--") || divider == std::string::npos)
        return std::nullopt;
    const CLI::Option* const option = app_->get_option_no_throw(arg.substr(0, divider));
    if (option == nullptr)
        return std::nullopt;
    if (option->get_items_expected_max() == 0)
        throw UsageError(arg.substr(0, divider) + " takes no value");
    return arg.substr(divider + 1);
}

// Makes an attached empty value an arg of its own, because CLI11 takes the next arg for it.
std::vector<std::string> OptionParser::prepared(const std::vector<std::string>& args) const {
    std::vector<std::string> out;
    const auto end = std::find_if(args.begin(), args.end(), endsOptions);
    for (auto arg = args.begin(); arg != args.end(); ++arg) {
        if (arg < end && attachedValue(*arg) == "") {
            out.push_back(arg->substr(0, arg->size() - 1));
            out.emplace_back();
        } else {
            out.push_back(*arg);
        }
    }
    return out;
}

std::vector<std::string> OptionParser::operands() const {
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

std::vector<std::string> OptionParser::parse(const std::vector<std::string>& args) {
    std::vector<std::string> reversed = prepared(args);
    std::reverse(reversed.begin(), reversed.end()); // as CLI11 takes them
    try {
        app_->parse(std::move(reversed));
    } catch (const CLI::CallForHelp&) {
        throw HelpRequested{spec()};
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
    return operands();
}

CommandSpec OptionParser::spec() const {
    CommandSpec spec = spec_;
    for (const CLI::Option* option : app_->get_options()) {
        CommandSpec::Option out;
        std::istringstream names(option->get_name(false, true));
        names.exceptions(std::ios::badbit);
        for (std::string name; std::getline(names, name, ',');)
            out.names.push_back(name);
        if (option->get_items_expected_max() > 0)
            out.value = option->get_type_name();
        out.text = option->get_description();
        spec.options.push_back(std::move(out));
    }
    return spec;
}

} // namespace cli
