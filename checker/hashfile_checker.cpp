#include "checker/hashfile_checker.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string_view>
#include <unistd.h>

namespace HashFileChecker {

namespace {

constexpr std::size_t kFileListLine = 8192; // characters
constexpr std::size_t kHashListLine = 4128;
constexpr std::size_t kLongestPrintedName = 8193;
constexpr std::size_t kChunk = 65536;

// Stands for each byte of the first chunk that could not be read. Not zero, because a file whose
// zeros at the end could not be read would have the digest of the whole file.
constexpr int kUnreadByte = 0xa5;

constexpr char kReadError[] = "File read error";

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

using std::string_view;

// A null path is taken for the empty one, which names no file.
const char* pathOrEmpty(const char* path) {
    return path == nullptr ? "" : path;
}

// Throws. The number is handed over by value before the exception takes memory, which may change
// errno.
[[noreturn]] void fail(int error, const char* file, const char* message) {
    throw FileIOException(error, file, message);
}

// Calls `take` with each line of the file at `path` that is not empty, up to the first one that
// cannot be read: the end, a line of more than `Limit` characters, or a failing device.
template<std::size_t Limit, class Take>
void readLines(const char* path, const char* openError, const char* readError, Take take) {
    path = pathOrEmpty(path);
    std::ifstream in(path);
    if (!in.good())
        fail(errno, path, openError);
    char line[Limit + 1];
    while (in.getline(line, sizeof line)) {
        // coverage off: what a conforming stream has read leaves it good; others are told of
        if (in.bad())
            fail(errno, path, readError);
        // coverage on
        const auto taken = static_cast<std::size_t>(in.gcount());
        const string_view text(line, in.eof() ? taken : taken - 1);
        if (!text.empty())
            take(text);
    }
}

off_t sizeOf(std::FILE* file) {
    const int descriptor = fileno(file);
    const off_t size = lseek(descriptor, 0, SEEK_END);
    return size < 0 || lseek(descriptor, 0, SEEK_SET) < 0 ? -1 : size;
}

void requirePath(const char* path) {
    if (path == nullptr || *path == '\0')
        fail(0, "", "File name is empty");
}

// The file that a file list's entry stands for.
std::string fileOfEntry(const std::string& entry) {
    const std::size_t divider = entry.find('=');
    if (divider != std::string::npos)
        return entry.substr(divider + 1);
    return entry.substr(entry.rfind('/') + 1); // npos + 1 is 0: the whole entry
}

// The text, with prefix, of a file's digest.
std::string digestText(const IHashFactory& factory, const std::string& path, bool upperCase) {
    const std::unique_ptr<IHash_Calc> calc(factory.createHashCalc());
    GetFileHash(path.c_str(), *calc);
    const std::unique_ptr<IHash> digest(factory.createHash(*calc, true));
    return digest->ToStr(upperCase, true);
}

// Reports a file that could not be read. Returns the code with which a check that stops at the
// first problem ends; throws on what is neither a missing nor a forbidden file.
int reportUnreadable(const FileIOException& problem, std::ostream& out, Statistics& counters) {
    switch (problem.error) {
    case EACCES:
        out << "Warning: File access denied: " << problem.fileName << "." << std::endl;
        ++counters.accessDenied;
        return -2;
    case ENOENT:
        out << "Warning: File not found: " << problem.fileName << "." << std::endl;
        ++counters.notFound;
        return -3;
    default:
        throw problem;
    }
}

} // namespace

FileIOException::FileIOException(int number, const std::string& file, const std::string& text)
    : error(number), fileName(file), message(text) {}

FileIOException::FileIOException(const FileIOException& other) = default;

FileIOException& FileIOException::operator=(const FileIOException& other) = default;

FileIOException::~FileIOException() noexcept = default;

const char* FileIOException::what() const noexcept {
    return message.c_str();
}

void LoadFileList(const char* path, std::list<std::string>& out) {
    readLines<kFileListLine>(path, "Can`t open File List file for reading.",
                             "File List read error.",
                             [&](string_view line) { out.emplace_back(line); });
}

void LoadHashList(const char* path, std::list<FileHashPair>& out) {
    readLines<kHashListLine>(path, "Can`t open HashList file for reading.", "HashList read error.",
                             [&](string_view line) {
                                 if (line.front() == '[')
                                     return;
                                 const std::size_t divider = line.find('=');
                                 if (divider == string_view::npos)
                                     fail(errno, pathOrEmpty(path), "HashList format error");
                                 out.push_back({std::string(line.substr(0, divider)),
                                                std::string(line.substr(divider + 1)),
                                                std::string()});
                             });
}

void PrintHashes(const std::list<HashPair>& pairs, std::ostream& out) {
    for (const HashPair& pair : pairs) {
        const string_view name = pair.name.c_str();
        if (name.size() > kLongestPrintedName)
            std::abort();
        out << name.substr(0, name.find('=')) << "=" << pair.hash << std::endl;
    }
}

void GetFileHash(const char* path, IHash_Calc& calc) {
    path = pathOrEmpty(path);
    const File file(std::fopen(path, "rb"));
    if (!file)
        fail(errno, path, "Can`t open File for reading.");
    off_t remaining = sizeOf(file.get());
    if (remaining < 0)
        fail(errno, path, kReadError);

    char buffer[kChunk];
    for (bool first = true; remaining > 0; first = false) {
        const std::size_t chunk =
            static_cast<std::size_t>(std::min<off_t>(remaining, sizeof buffer));
        errno = 0; // so that a file that ended early is not given an older error's number
        const std::size_t taken = std::fread(buffer, 1, chunk, file.get());
        if (taken == 0)
            fail(errno, path, kReadError);
        if (first)
            std::memset(buffer + taken, kUnreadByte, chunk - taken);
        calc.Update(buffer, chunk);
        remaining -= static_cast<off_t>(chunk);
    }
}

bool CalcHash(const std::string& fileName, const std::string& algorithm, std::string& result) {
    std::unique_ptr<IHashFactory> factory(createHashFactory(algorithm));
    if (!factory)
        factory.reset(createHashFactory(GOST_3411_2012));
    try {
        result = digestText(*factory, fileName, true);
        return true;
    } catch (const FileIOException&) {
        return false;
    }
}

void ProcessFiles(const char* path, bool isFileList, std::ostream& out) {
    requirePath(path);
    std::list<std::string> entries;
    if (isFileList)
        LoadFileList(path, entries);
    else
        entries.emplace_back(path);
    if (entries.empty())
        fail(0, "", "No files to process");

    const std::unique_ptr<IHashFactory> factory(createHashFactory(GOST_3411_2012));
    std::list<HashPair> pairs;
    for (const std::string& entry : entries)
        pairs.push_back({entry, digestText(*factory, fileOfEntry(entry), false)});
    PrintHashes(pairs, out);
}

int CheckFiles(const std::list<FileHashPair>& records, std::ostream& out, Statistics* stats,
               bool stopOnError) {
    Statistics unwanted{};
    Statistics& counters = stats == nullptr ? unwanted : *stats;
    int code = 0;
    for (const FileHashPair& record : records) {
        if (stopOnError && code != 0)
            return code;
        const std::unique_ptr<IHashFactory> factory(createHashFactory(record.hash));
        if (!factory) {
            out << "Can't create hash calculator for " << record.name << " [" << record.hash << "]."
                << std::endl;
            ++counters.failed;
            code = -1;
            continue;
        }
        const std::unique_ptr<IHash_Calc> calc(factory->createHashCalc());
        ++counters.checked;
        try {
            GetFileHash(record.name.c_str(), *calc);
            const std::unique_ptr<IHash> digest(factory->createHash(*calc, true));
            if (digest->Check(record.hash, false) || digest->Check(record.hash, true))
                continue;
            out << "File changed: " << record.name << " [" << digest->ToStr(false, true) << "]."
                << std::endl;
            ++counters.failed;
            code = -1;
        } catch (const FileIOException& problem) {
            const int stopCode = reportUnreadable(problem, out, counters);
            if (stopOnError)
                code = stopCode;
        }
    }
    return code;
}

int CheckFiles(const char* hashListPath, std::ostream& out, Statistics* stats) {
    requirePath(hashListPath);
    std::list<FileHashPair> records;
    LoadHashList(hashListPath, records);
    return CheckFiles(records, out, stats, false);
}

} // namespace HashFileChecker
