#include "cli/hashing/hash_list.h"

#include "cli/files/line_reader.h"
#include "cli/process/error.h"

#include <functional>
#include <utility>

namespace cli {

namespace {

bool isRecord(const std::string& line) {
    return !line.empty() && line.front() != '[';
}

// Why the library would not read `line` as what it says; empty when it would.
std::string faultOf(const std::string& line) {
    if (line.size() > kLongestListLine)
        return "longer than " + std::to_string(kLongestListLine) + " characters";
    if (line.find('\0') != std::string::npos)
        return "holds a zero byte: this is no hash list";
    if (!line.empty() && line.back() == '\r')
        return "ends with a carriage return: the list has CRLF line ends, which sed 's/\\r$//' "
               "removes";
    if (isRecord(line) && line.find('=') == std::string::npos)
        return "has no '=' between name and digest";
    return "";
}

// Hands every line to `take`.
void readLines(const std::string& name, const std::function<void(ListLine)>& take) {
    bool hasRecord = false;
    Lines lines(name, '\n', kLongestListLine);
    while (lines.next()) {
        const std::string& line = lines.line();
        const std::string fault = faultOf(line);
        if (!fault.empty())
            lines.refuse(fault);
        hasRecord = hasRecord || isRecord(line);
        take({line, isRecord(line) ? line.find('=') : std::string::npos});
    }
    if (!hasRecord)
        throw Error(name + ": holds no record");
}

} // namespace

std::vector<ListLine> readListLines(const std::string& name) {
    std::vector<ListLine> list;
    readLines(name, [&](ListLine line) { list.push_back(std::move(line)); });
    return list;
}

std::vector<HashFileChecker::FileHashPair> readHashList(const std::string& name) {
    std::vector<HashFileChecker::FileHashPair> records;
    readLines(name, [&](const ListLine& line) {
        if (line.isRecord())
            records.push_back({line.name(), line.digest(), ""});
    });
    return records;
}

std::string validationError(const std::string& name, std::size_t digestLength) {
    if (name.find('=') != std::string::npos)
        return "a name with '='";
    if (name.find('\n') != std::string::npos)
        return "a name with a line break";
    if (name.starts_with('['))
        return "a name that starts with '[' (./ before it helps)";
    if (name.size() + 1 + digestLength > kLongestListLine)
        return "a name of " + std::to_string(name.size()) + " characters";
    return "";
}

} // namespace cli
