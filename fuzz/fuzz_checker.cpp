// Lists: any bytes are read as a second reader says, and a check of what was read against a handful
// of files reports what the rules say of each record.

#include "checker/hashfile_checker.h"
#include "fuzz/scratch.h"
#include "fuzz/target.h"

#include <algorithm>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace HashFileChecker;
using std::string;

const std::map<string, string> kFiles = {
    {"empty", ""}, {"abc", "abc"}, {"long", string(70000, 'x')}};

// The lines of `text` that are not empty, up to one that is too long.
std::vector<string> linesOf(const string& text, std::size_t longest) {
    std::vector<string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        if (end - at > longest)
            break;
        if (end > at)
            lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

void readFileList(const char* path, const string& text) {
    std::list<string> entries;
    LoadFileList(path, entries);
    const std::vector<string> expected = linesOf(text, 8192);
    fuzz::require(std::equal(entries.begin(), entries.end(), expected.begin(), expected.end()),
                  "a file list holds its lines");
}

// Returns the records, up to the first line that is none.
std::list<FileHashPair> readHashList(const char* path, const string& text) {
    std::list<FileHashPair> records;
    bool refused = false;
    try {
        LoadHashList(path, records);
    } catch (const FileIOException& problem) {
        refused = true;
        fuzz::require(problem.message == "HashList format error" && problem.fileName == path,
                      "a list is refused for its format only");
    }
    auto record = records.begin();
    for (const string& line : linesOf(text, 4128)) {
        if (line[0] == '[')
            continue;
        const std::size_t divider = line.find('=');
        if (divider == string::npos) {
            fuzz::require(refused, "a line without a divider is refused");
            refused = false;
            break;
        }
        fuzz::require(record != records.end() && record->name == line.substr(0, divider) &&
                          record->hash == line.substr(divider + 1) && record->extra.empty(),
                      "a record is its line");
        ++record;
    }
    fuzz::require(record == records.end() && !refused, "there are no other records");
    return records;
}

// What a check has to say of a record whose file is `content`.
string verdictOf(const FileHashPair& record, const string& content, Statistics& stats) {
    const std::unique_ptr<IHashFactory> factory(createHashFactory(record.hash));
    if (!factory) {
        ++stats.failed;
        return "Can't create hash calculator for " + record.name + " [" + record.hash + "].\n";
    }
    ++stats.checked;
    const std::unique_ptr<IHash> digest(factory->createHash(content.data(), content.size()));
    const string digits = digest->ToStr(false, true);
    const std::size_t tag = digits.find(':') + 1;
    const bool prefixed = record.hash[0] == '#' || record.hash[0] == '$';
    const string given =
        prefixed ? '#' + record.hash.substr(1) : digits.substr(0, tag) + record.hash;
    string upper = digest->ToStr(true, true);
    if (given == digits || given == upper)
        return "";
    ++stats.failed;
    return "File changed: " + record.name + " [" + digits + "].\n";
}

void check(const std::list<FileHashPair>& records) {
    string expected;
    Statistics stats{};
    for (const FileHashPair& record : records)
        expected += verdictOf(record, kFiles.at(record.name), stats);
    std::ostringstream out;
    Statistics counted{};
    const int code = CheckFiles(records, out, &counted, false);
    fuzz::require(code == (expected.empty() ? 0 : -1), "the code tells of problems");
    fuzz::require(out.str() == expected, "the report is that of the rules");
    fuzz::require(std::memcmp(&counted, &stats, sizeof stats) == 0, "the counters, too");
}

// The records with the names of files that there are.
std::list<FileHashPair> overFiles(std::list<FileHashPair> records) {
    for (FileHashPair& record : records) {
        auto file = kFiles.begin();
        std::advance(file, record.name.size() % kFiles.size());
        record.name = file->first;
    }
    if (records.size() > 20)
        records.resize(20);
    return records;
}

void print(const std::list<FileHashPair>& records, const fuzz::Memory& memory) {
    std::list<HashPair> pairs;
    for (const FileHashPair& record : records)
        pairs.push_back({record.name, record.hash});
    std::ostringstream out;
    PrintHashes(pairs, out);
    memory.hold(out.str());
    std::list<FileHashPair> again;
    LoadHashList(memory.path(), again);
    fuzz::require(again.size() == records.size(), "what was printed can be read");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const fuzz::Scratch scratch(kFiles);
    static const fuzz::Memory memory;
    const fuzz::Inside inside(scratch);
    const string text(data, data + size);
    memory.hold(text);
    readFileList(memory.path(), text);
    const std::list<FileHashPair> records = overFiles(readHashList(memory.path(), text));
    check(records);
    print(records, memory);
    return 0;
}
