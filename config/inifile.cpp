#include "config/inifile.h"

#include "config/cancellation.h"

#include <algorithm>
#include <ios>
#include <new>
#include <string_view>
#include <utility>

namespace {

constexpr char kBlank = ' ';

using std::string_view;
using Keys = std::map<std::string, std::string>;

bool isWhite(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// The line without white space at its ends; nothing of a comment.
string_view cleaned(string_view line) {
    while (!line.empty() && isWhite(line.front()))
        line.remove_prefix(1);
    if (line.empty() || line.front() == '#')
        return {};
    while (isWhite(line.back()))
        line.remove_suffix(1);
    return line;
}

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

struct KeyLine {
    string_view name;
    string_view value;
};

// Splits a cleaned line at its first "=". False when it has none.
bool split(string_view line, KeyLine& parts) {
    const std::size_t divider = line.find('=');
    if (divider == string_view::npos)
        return false;
    parts = {withoutTrailingBlanks(line.substr(0, divider)),
             withoutLeadingBlanks(line.substr(divider + 1))};
    return true;
}

// Changes nothing when it throws.
void store(Keys& keys, const KeyLine& parts) {
    keys.insert_or_assign(std::string(parts.name), std::string(parts.value));
}

// The lines that std::getline gives, and the stream as it leaves it, except that a failed
// allocation is thrown. std::getline would take it for the end of a text of which only the
// beginning came.
class Lines {
public:
    explicit Lines(std::istream& in)
        : in_(in), wanted_(in.exceptions()),
          changed_(in.good() && (wanted_ & std::ios::badbit) == 0) {
        if (changed_)
            in.exceptions(wanted_ | std::ios::badbit);
    }
    Lines(const Lines&) = delete;
    Lines& operator=(const Lines&) = delete;
    ~Lines() {
        try {
            in_.exceptions(wanted_);
        } catch (const std::ios::failure&) {
            // Has been thrown before.
        }
    }

    bool next(std::string& line) {
        line.clear(); // also when the stream fails before it is asked
        try {
            return !std::getline(in_, line).fail();
        } catch (const std::bad_alloc&) {
            throw;
        } catch (...) {
            if (pelorikutil::isCancellation() || !changed_ || !in_.bad())
                throw; // as the stream was told to
        }
        in_.exceptions(wanted_);
        if (line.empty())
            in_.setstate(std::ios::failbit);
        return false;
    }

private:
    std::istream& in_;
    std::ios::iostate wanted_;
    bool changed_; // so that the stream passes on what its buffer throws
};

} // namespace

CIniFileGroupNotFound::~CIniFileGroupNotFound() noexcept = default;

CIniFileVarNameNotFound::~CIniFileVarNameNotFound() noexcept = default;

CIniFileFormatError::~CIniFileFormatError() noexcept = default;

IniFile::IniFile(std::istream& in) {
    Lines lines(in);
    std::string group;
    Keys* keys = nullptr; // of the group, once it has one
    KeyLine parts;
    for (std::string line; lines.next(line);) {
        const string_view text = cleaned(line);
        if (isHeader(text)) {
            group = nameInHeader(text);
            keys = nullptr;
        } else if (split(text, parts)) {
            if (keys == nullptr)
                keys = &groups_[group];
            store(*keys, parts);
        }
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
    const string_view text = cleaned(line);
    line.erase(0, text.empty() ? line.size() : static_cast<std::size_t>(text.data() - line.data()));
    line.resize(text.size());
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
    KeyLine parts;
    if (!split(line, parts))
        return;
    const auto known = groups_.find(group);
    if (known != groups_.end()) {
        store(known->second, parts);
        return;
    }
    Keys keys;
    store(keys, parts);
    groups_.emplace(std::move(group), std::move(keys));
}
