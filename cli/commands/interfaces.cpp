// pelorik interfaces: the host's network interfaces and their IPv4 addresses.

#include "cli/args/options.h"
#include "cli/commands.h"
#include "cli/output/json.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/signals.h"
#include "system/netinterface.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <unistd.h>

namespace cli {

namespace {

using vpnfc::NetInterfaceInfo;

constexpr std::size_t kColumns = 5;
constexpr char kNone[] = "-";
constexpr std::size_t kGap = 2; // blanks between columns

using Row = std::array<std::string, kColumns>;

bool parseInterfaces(const Args& args) {
    OptionParser line("interfaces [--json]",
                      "Lists the network interfaces of this host, those that are down included and "
                      "the loopback one excepted: name, index, MTU, IPv4 addresses and IPv4 "
                      "broadcast addresses. The kernel tells the broadcast addresses as a list of "
                      "their own. In a pipe, tabs stand between the columns, commas between "
                      "addresses, and a list without any is '-'.");
    bool json = false;
    line.flag("--json", json, "one JSON object an interface, for programs");
    line.status(kDone, "the interfaces were listed, if there are any");
    line.status(kTrouble, "the kernel could not be asked; wrong usage");
    line.status(kInterrupted, "interrupted");
    line.examples("  pelorik interfaces\n"
                  "  pelorik interfaces --json\n"
                  "  pelorik interfaces | cut -f 1,4\n");
    const std::vector<std::string> operands = line.parse(args);
    if (!operands.empty())
        throw UsageError("unexpected operand '" + operands.front() + "'");
    return json;
}

std::vector<NetInterfaceInfo> collect() {
    std::vector<NetInterfaceInfo> all;
    errno = 0;
    if (!vpnfc::CollectNetInterfaceInfo(all)) {
        stopIfInterrupted();
        if (errno == 0)
            throw Error("the kernel does not list the network interfaces");
        throw Error("cannot ask the kernel for the network interfaces", errno);
    }
    std::sort(all.begin(), all.end(),
              [](const NetInterfaceInfo& left, const NetInterfaceInfo& right) {
                  return left.index < right.index;
              });
    return all;
}

std::vector<std::string> dotted(const std::vector<std::uint32_t>& addresses) {
    std::vector<std::string> texts;
    for (const std::uint32_t address : addresses) {
        char text[INET_ADDRSTRLEN];
        texts.emplace_back(inet_ntop(AF_INET, &address, text, sizeof text));
    }
    return texts;
}

std::string joined(const std::vector<std::string>& texts, const char* separator) {
    std::string all;
    for (const std::string& text : texts)
        all += (all.empty() ? "" : separator) + text;
    return all.empty() ? kNone : all;
}

Row rowOf(const NetInterfaceInfo& info, const char* separator) {
    return {info.name, std::to_string(info.index), std::to_string(info.mtu),
            joined(dotted(info.addresses), separator), joined(dotted(info.broadcasts), separator)};
}

void printTabbed(const std::vector<NetInterfaceInfo>& all, Console& console) {
    for (const NetInterfaceInfo& info : all) {
        const Row row = rowOf(info, ",");
        std::string text = row[0];
        for (std::size_t i = 1; i < kColumns; ++i)
            text += "\t" + row[i];
        console.print(text);
    }
}

bool beginsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xc0U) != 0x80;
}

// Columns that a printable text takes on a terminal, wide characters not considered.
std::size_t widthOf(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), beginsCharacter));
}

void printAligned(const std::vector<NetInterfaceInfo>& all, Console& console) {
    std::vector<Row> rows = {{"NAME", "INDEX", "MTU", "ADDRESSES", "BROADCASTS"}};
    for (const NetInterfaceInfo& info : all) {
        rows.push_back(rowOf(info, " "));
        rows.back()[0] = printable(info.name);
    }
    std::array<std::size_t, kColumns> widths{};
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < kColumns; ++i)
            widths[i] = std::max(widths[i], widthOf(row[i]));
    }
    for (const Row& row : rows) {
        std::string text;
        for (std::size_t i = 0; i + 1 < kColumns; ++i)
            text += row[i] + std::string(widths[i] - widthOf(row[i]) + kGap, ' ');
        console.print(text + row.back());
    }
}

void printJson(const std::vector<NetInterfaceInfo>& all, Console& console) {
    for (const NetInterfaceInfo& info : all) {
        JsonObject object;
        putName(object, "name", info.name);
        object["index"] = info.index;
        object["mtu"] = info.mtu;
        object["addresses"] = dotted(info.addresses);
        object["broadcasts"] = dotted(info.broadcasts);
        console.print(jsonLine(object));
    }
}

} // namespace

int runInterfaces(const Args& args, Console& console) {
    const bool json = parseInterfaces(args);
    const std::vector<NetInterfaceInfo> all = collect();
    if (json)
        printJson(all, console);
    else if (isTerminal(STDOUT_FILENO))
        printAligned(all, console);
    else
        printTabbed(all, console);
    return kDone;
}

} // namespace cli
