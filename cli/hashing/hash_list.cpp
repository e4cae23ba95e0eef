#include "cli/hashing/hash_list.h"

#include "cli/process/error.h"

#include <utility>

namespace cli {

namespace {

bool startsRecord(const std::string& line) {
    return !line.empty() && line.front() != '[';
}

// Returns why the library would not read `line` as it is meant; empty when it would.
std::string formatError(const std::string& line) {
    if (line.size() > kLongestListLine)
        return "longer than " + std::to_string(kLongestListLine) + " characters";
    if (line.find('\0') != std::string::npos)
        return "holds a zero byte: this is no hash list";
    if (!line.empty() && line.back() == '\r')
        return "ends with a carriage return: the list has CRLF line ends, which sed 's/\\r$//' "
               "removes";
    if (startsRecord(line) && line.find('=') == std::string::npos)
        return "has no '=' between name and digest";
    return "";
}

} // namespace

HashList::HashList(FileSource source, const std::string& name, Lines lines) {
    LineReader reader(std::move(source), name, '\n', kLongestListLine);
    while (reader.next()) {
        const std::string error = formatError(reader.line());
        if (!error.empty())
            reader.refuse(error);
        add(reader.line(), lines);
    }
    if (records_ == 0)
        throw Error(name + ": holds no record");
}

void HashList::add(const std::string& line, Lines lines) {
    if (startsRecord(line)) {
        const std::size_t divider = line.find('=');
        char* const text = texts_.add(line);
        text[divider] = '\0';
        lines_.push_back({text, static_cast<std::uint16_t>(divider),
                          static_cast<std::uint16_t>(line.size() - divider - 1)});
        ++records_;
    } else if (lines == Lines::kAll) {
        lines_.push_back({texts_.add(line), static_cast<std::uint16_t>(line.size()), kNoDigest});
    }
}

std::string validationError(std::string_view name, std::size_t digestLength) {
    if (name.find('=') != std::string_view::npos)
        return "a name with '='";
    if (name.find('\n') != std::string_view::npos)
        return "a name with a line break";
    if (name.starts_with('['))
        return "a name that starts with '[' (./ before it helps)";
    if (name.size() + 1 + digestLength > kLongestListLine)
        return "a name of " + std::to_string(name.size()) + " characters";
    return "";
}

} // namespace cli
