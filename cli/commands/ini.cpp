// pelorik ini: looks up values in INI texts.

#include "cli/args/options.h"
#include "cli/args/subcommands.h"
#include "cli/files/text_reader.h"
#include "cli/output/json.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "config/inifile.h"

#include <map>
#include <optional>
#include <set>
#include <sstream>

namespace cli {

namespace {

struct GetOptions {
    std::string file;
    std::string group;
    std::string key;
    std::optional<std::string> fallback;
};

GetOptions parseGet(const Args& args) {
    OptionParser line("ini get [--default V] FILE|- GROUP KEY",
                      "Prints the value of KEY in GROUP. The empty GROUP '' holds the lines before "
                      "the first header. Names are compared byte by byte.");
    GetOptions options;
    line.value("--default", "V", options.fallback,
               "print V when the group has no such key; a missing group is an error all the same");
    line.status(kDone, "the value was printed; it may be empty");
    line.status(kFailed, "there is no such group or key");
    line.status(kTrouble, "FILE or standard output could not be read or written; wrong usage");
    line.status(kInterrupted, "interrupted");
    line.examples("  pelorik ini get agent.ini net host\n"
                  "  pelorik ini get --default 443 agent.ini net port\n");
    const Args operands = line.parse(args);
    requireOperands(operands, {"FILE", "GROUP", "KEY"});
    options.file = operands[0];
    options.group = operands[1];
    options.key = operands[2];
    return options;
}

int iniGet(const Args& args, Console& console) {
    const GetOptions options = parseGet(args);
    TextStream text(options.file);
    const IniFile ini(text.in());
    const char* const fallback = options.fallback ? options.fallback->c_str() : nullptr;
    try {
        console.print(ini.get(options.group, options.key, fallback));
    } catch (const CIniFileGroupNotFound&) {
        throw CheckFailed(options.file + ": no group '" + options.group + "'");
    } catch (const CIniFileVarNameNotFound&) {
        throw CheckFailed(options.file + ": no key '" + options.key + "' in group '" +
                          options.group + "'");
    }
    return kDone;
}

// An INI text whose groups and keys can be listed, in the order of their bytes.
//
// The library's reader answers look-ups only, and its list of groups is one text in which a name
// may hold what divides names. So this takes the reader's steps, by the members that it is made of,
// and notes the names on the way; the values are the reader's own.
class IniText {
public:
    explicit IniText(std::istream& in) : values_(withoutText()) {
        std::string group;
        for (std::string line; std::getline(in, line);) {
            IniFile::cleanupLine(line);
            if (!values_.parseGroupName(line, group))
                addLine(line, group);
        }
    }

    using Keys = std::set<std::string>;
    const std::map<std::string, Keys>& groups() const { return keys_; }

    std::string value(const std::string& group, const std::string& key) const {
        return values_.get(group, key);
    }

private:
    static IniFile withoutText() {
        std::istringstream nothing;
        return IniFile(nothing);
    }

    void addLine(const std::string& line, const std::string& group) {
        std::string key = line.substr(0, line.find('='));
        if (key.size() == line.size())
            return;
        key.erase(key.find_last_not_of(' ') + 1); // npos + 1 is 0: nothing but blanks
        values_.parseLine(line, group);
        keys_[group].insert(key);
    }

    IniFile values_;
    std::map<std::string, Keys> keys_;
};

IniText readIni(const std::string& file) {
    TextStream text(file);
    return IniText(text.in());
}

int iniGroups(const Args& args, Console& console) {
    OptionParser line("ini groups FILE|-",
                      "Prints the names of the groups, one a line, in the order of their bytes. A "
                      "group exists once it has a value; lines before the first header belong to "
                      "the group of the empty name.");
    line.status(kDone, "the groups were printed, if there are any");
    line.status(kTrouble, "FILE or standard output could not be read or written; wrong usage");
    line.status(kInterrupted, "interrupted");
    line.examples("  pelorik ini groups agent.ini\n");
    const Args operands = line.parse(args);
    requireOperands(operands, {"FILE"});
    const IniText ini = readIni(operands.front());
    for (const auto& group : ini.groups())
        console.print(group.first);
    return kDone;
}

struct DumpOptions {
    bool json = false;
    std::string file;
};

DumpOptions parseDump(const Args& args) {
    OptionParser line(
        "ini dump [--json] FILE|-",
        "Prints every value that the reader finds, as an INI text: groups and keys in "
        "the order of their bytes, each once, without comments and lines of no "
        "meaning.");
    DumpOptions options;
    line.flag("--json", options.json,
              "one JSON object a value, with group, key and value; bytes that are not UTF-8 are "
              "given in base64, too, as group_base64 and so on");
    line.status(kDone, "the values were printed, if there are any");
    line.status(kTrouble, "FILE or standard output could not be read or written; wrong usage");
    line.status(kInterrupted, "interrupted");
    line.examples("  pelorik ini dump agent.ini\n"
                  "  pelorik ini dump --json agent.ini | jq -r .value\n");
    const Args operands = line.parse(args);
    requireOperands(operands, {"FILE"});
    options.file = operands.front();
    return options;
}

void printJson(const std::string& group, const IniText::Keys& keys, const IniText& ini,
               Console& console) {
    for (const std::string& key : keys) {
        JsonObject object;
        putName(object, "group", group);
        putName(object, "key", key);
        putName(object, "value", ini.value(group, key));
        console.print(jsonLine(object));
    }
}

void printText(const std::string& group, const IniText::Keys& keys, const IniText& ini,
               Console& console) {
    console.print("[" + group + "]");
    for (const std::string& key : keys)
        console.print(key + "=" + ini.value(group, key));
}

int iniDump(const Args& args, Console& console) {
    const DumpOptions options = parseDump(args);
    const IniText ini = readIni(options.file);
    for (const auto& [group, keys] : ini.groups())
        (options.json ? printJson : printText)(group, keys, ini, console);
    return kDone;
}

} // namespace

int runIni(const Args& args, Console& console) {
    static const SubcommandGroup family = {
        "ini",
        "Looks up values in INI texts: groups of name=value lines under [group] headers.",
        {{"get", "print one value", iniGet},
         {"groups", "print the names of the groups", iniGroups},
         {"dump", "print all values", iniDump}},
        "there is no such group or key",
        "  pelorik ini get agent.ini net host\n"
        "  pelorik ini groups agent.ini\n"
        "  pelorik ini dump --json agent.ini\n"};
    return runSubcommand(family, args, console);
}

} // namespace cli
