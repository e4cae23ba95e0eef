// The INI reader: any bytes can be read, a line that is written from what was read gives it again,
// and the groups that are listed are the groups that there are.

#include "config/inifile.h"
#include "fuzz/target.h"

#include <set>
#include <sstream>
#include <string>
#include <utility>

namespace {

using std::string;

// What the reader knows of `group` and `name`: "+" and the value, "-" without such a value, ""
// without such a group.
string answer(const IniFile& ini, const string& group, const string& name) {
    try {
        return "+" + ini.get(group, name);
    } catch (const CIniFileVarNameNotFound& problem) {
        fuzz::require(problem.what() == string(name.c_str()), "a missing value is named");
        return "-";
    } catch (const CIniFileGroupNotFound& problem) {
        fuzz::require(problem.what() == string(group.c_str()), "a missing group is named");
        return "";
    }
}

// Reads the text through the public steps, asking both readers afterwards for every name seen.
void compareWithSteps(const string& text, const IniFile& whole) {
    std::istringstream nothing;
    IniFile stepwise(nothing);
    std::set<std::pair<string, string>> seen;
    std::istringstream lines(text);
    string group;
    for (string line; std::getline(lines, line);) {
        IniFile::cleanupLine(line);
        if (line.empty() || stepwise.parseGroupName(line, group))
            continue;
        stepwise.parseLine(line, group);
        const string name = line.substr(0, line.find('='));
        seen.emplace(group, name.substr(0, name.find_last_not_of(' ') + 1));
    }
    for (const auto& [asked, name] : seen) {
        fuzz::require(answer(stepwise, asked, name) == answer(whole, asked, name),
                      "the steps give the same value");
    }
    fuzz::require(stepwise.getAllGroups() == whole.getAllGroups(),
                  "the steps make the same groups");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const string text(data, data + size);
    std::istringstream in(text);
    const IniFile ini(in);
    fuzz::require(in.eof() && in.fail(), "the stream was read to its end");
    compareWithSteps(text, ini);

    std::istringstream more(text + "\n[new]\nname = value\n");
    fuzz::require(IniFile(more).get("new", "name") == "value",
                  "a line is read whatever stands before");
    return 0;
}
