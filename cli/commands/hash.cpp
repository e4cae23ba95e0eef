// pelorik hash: the digests of files and streams, in the form of a hash list's lines.

#include "cli/args/options.h"
#include "cli/commands.h"
#include "cli/files/file_source.h"
#include "cli/hashing/file_hasher.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/signals.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace cli {

namespace {

struct HashOptions {
    FileHasher::Algorithms algorithms;
    bool upper = false;
    bool bare = false;
    std::vector<std::string> files;
};

void refuseNonsense(const HashOptions& options) {
    const auto& algorithms = options.algorithms;
    const Algorithm* const gost94 = &kAlgorithms[HashFileChecker::GOST_RFC4357];
    if (options.bare && std::count(algorithms.begin(), algorithms.end(), gost94) > 0)
        throw UsageError("--bare cannot be used with gost94: 64 bare digits are read as gost2012");
    if (std::count(options.files.begin(), options.files.end(), "-") > 1)
        throw UsageError("standard input (-) can be read only once");
}

HashOptions parseHash(const Args& args) {
    OptionParser line(
        "hash [-a ALG]... [--upper] [--bare] [FILE|-]...",
        "Prints the digests of files, one line each: the name, '=' and the digest as a "
        "hash list holds it. Without FILE, or where FILE is -, reads standard input. Names "
        "go to a pipe or a file byte for byte, line breaks included; pelorik list refuses "
        "those that would not read back.");
    HashOptions options;
    std::vector<std::string> names;
    line.values("-a,--algorithm", "ALG", names,
                std::string(kAlgorithmNames) + " (the default); several uses give several lines a "
                                               "file from one reading");
    line.flag("--upper", options.upper, "upper-case digits");
    line.flag("--bare", options.bare, "digits alone, without name and prefix; not for gost94");
    line.status(kDone, "every file was hashed");
    line.status(kFailed, "a file could not be read; the others were hashed");
    line.status(kTrouble, "wrong usage, or standard output could not be written");
    line.status(kInterrupted, "interrupted");
    line.examples("  pelorik hash /usr/bin/env\n"
                  "  pelorik hash -a md5 -a gost2012 --upper disk.img\n"
                  "  tar -c dir | pelorik hash --bare\n");
    options.files = line.parse(args);
    if (names.empty())
        names.emplace_back(kDefaultAlgorithm);
    for (const std::string& name : names)
        options.algorithms.push_back(&algorithmNamed(name));
    if (options.files.empty())
        options.files.emplace_back("-");
    refuseNonsense(options);
    return options;
}

// What the user may try.
std::string hintFor(const std::string& file, int error) {
    if (error == EISDIR)
        return " (pelorik list -r hashes the files in it)";
    if (error == ENOENT && !file.starts_with('/'))
        return " (the name is looked for in the current directory)";
    if (error == ENOENT)
        return " (is the name spelt right?)";
    return "";
}

// Tells the progress line how much there is; of pipes and devices nobody knows.
void expectAll(const std::vector<std::string>& files, Progress& progress) {
    if (!progress.shown())
        return;
    Amount total{files.size(), 0};
    bool known = true;
    for (const std::string& file : files) {
        struct stat status {};
        known = known && ::stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode);
        total.addBytes(static_cast<std::uint64_t>(status.st_size));
    }
    progress.expect({total.files, known ? total.bytes : 0});
}

// Hashes everything that a pipe, a device or standard input yields.
FileHasher::Result hashStream(const std::string& file, const HashOptions& options,
                              FileHasher& hasher) {
    try {
        const FileSource source =
            file == "-" ? FileSource::copyOf(STDIN_FILENO) : FileSource::open(file);
        return hasher.hashStream(source.descriptor(), options.algorithms);
    } catch (const std::system_error& error) {
        return HashError{error.code().value(), errorText(error.code().value()), false};
    }
}

FileHasher::Result hashFile(const std::string& file, const HashOptions& options,
                            FileHasher& hasher) {
    if (file == "-")
        return hashStream(file, options, hasher);
    if (FileHasher::Result error = hasher.look(file.c_str()))
        return error;
    const mode_t mode = hasher.status().st_mode;
    return S_ISREG(mode) || S_ISDIR(mode) ? hasher.hash(file.c_str(), options.algorithms)
                                          : hashStream(file, options, hasher);
}

void print(const std::string& file, const std::vector<Digest>& digests, const HashOptions& options,
           Console& console) {
    for (const Digest& digest : digests) {
        const std::string name = options.bare ? "" : file + "=";
        console.print(name + digest.text(options.upper, !options.bare));
    }
}

// Returns false, with a message, when the file cannot be read.
bool tryToHash(const std::string& file, const HashOptions& options, FileHasher& hasher,
               Console& console) {
    if (const FileHasher::Result error = hashFile(file, options, hasher)) {
        console.error(file + ": " + error->reason + hintFor(file, error->number));
        return false;
    }
    print(file, hasher.digests(), options, console);
    console.progress().addFile();
    return true;
}

} // namespace

int runHash(const Args& args, Console& console) {
    const HashOptions options = parseHash(args);
    FileHasher hasher([&](std::size_t bytes) {
        stopIfInterrupted();
        console.progress().addBytes(bytes);
    });
    expectAll(options.files, console.progress());
    std::size_t hashed = 0;
    std::size_t failed = 0;
    try {
        for (const std::string& file : options.files) {
            stopIfInterrupted();
            ++(tryToHash(file, options, hasher, console) ? hashed : failed);
        }
    } catch (const Interrupted&) {
        console.error("interrupted: " + std::to_string(hashed) + " of " +
                      std::to_string(options.files.size()) + " files hashed");
        return kInterrupted;
    }
    return failed == 0 ? kDone : kFailed;
}

} // namespace cli
