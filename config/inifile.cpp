#include "config/inifile.h"

#include <algorithm>
#include <string_view>

namespace {

constexpr char kWhiteSpace[] = " \t\n\r";
constexpr char kBlank = ' ';

using std::string_view;
using Groups = std::map<std::string, std::map<std::string, std::string>>;

bool isHeader(string_view line) {
    return !line.empty() && line.front() == '[' && line.back() == ']';
}

string_view nameInHeader(string_view header) {
    return header.substr(1, header.size() - 2);
}

string_view withoutLeadingBlanks(string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlank), text.size()));
    return text;
}

string_view withoutTrailingBlanks(string_view text) {
    return text.substr(0, text.find_last_not_of(kBlank) + 1); // npos + 1 is 0: nothing but blanks
}

void store(Groups& groups, const std::string& group, string_view line) {
    const std::size_t divider = line.find('=');
    if (divider == string_view::npos)
        return;
    const string_view name = withoutTrailingBlanks(line.substr(0, divider));
    groups[group][std::string(name)] = withoutLeadingBlanks(line.substr(divider + 1));
}

} // namespace

CIniFileGroupNotFound::~CIniFileGroupNotFound() noexcept = default;

CIniFileVarNameNotFound::~CIniFileVarNameNotFound() noexcept = default;

CIniFileFormatError::~CIniFileFormatError() noexcept = default;

IniFile::IniFile(std::istream& in) {
    std::string group;
    for (std::string line; std::getline(in, line);) {
        cleanupLine(line);
        if (isHeader(line))
            group = nameInHeader(line);
        else
            store(groups_, group, line);
    }
}

std::string IniFile::get(const std::string& group, const std::string& name, const char* def) const {
    const auto values = groups_.find(group);
    if (values == groups_.end())
        throw CIniFileGroupNotFound(group);
    const auto value = values->second.find(name);
    if (value != values->second.end())
        return value->second;
    if (def == nullptr)
        throw CIniFileVarNameNotFound(name);
    return def;
}

std::string IniFile::getAllGroups() const {
    std::string list;
    for (const auto& group : groups_)
        list.append("[").append(group.first).append("] ");
    return list;
}

void IniFile::cleanupLine(std::string& line) {
    const std::size_t first = line.find_first_not_of(kWhiteSpace);
    if (first == std::string::npos || line[first] == '#') {
        line.clear();
        return;
    }
    line.erase(line.find_last_not_of(kWhiteSpace) + 1);
    line.erase(0, first);
}

bool IniFile::parseGroupName(std::string line, std::string& group) {
    if (!isHeader(line))
        return false;
    group = nameInHeader(line);
    return true;
}

std::string IniFile::parseValue(std::string text) {
    return std::string(withoutLeadingBlanks(text));
}

void IniFile::parseLine(std::string line, std::string group) {
    store(groups_, group, line);
}
