#include "cli/hash_list.h"

#include "cli/failure.h"
#include "cli/lines.h"

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

} // namespace

std::vector<HashFileChecker::FileHashPair> readHashList(const std::string& name) {
    std::vector<HashFileChecker::FileHashPair> records;
    Lines lines(name, '\n', kLongestListLine);
    while (lines.next()) {
        const std::string& line = lines.line();
        const std::string fault = faultOf(line);
        if (!fault.empty())
            lines.refuse(fault);
        if (!isRecord(line))
            continue;
        const std::size_t divider = line.find('=');
        records.push_back({line.substr(0, divider), line.substr(divider + 1), ""});
    }
    if (records.empty())
        throw Failure(name + ": holds no record");
    return records;
}

} // namespace cli
