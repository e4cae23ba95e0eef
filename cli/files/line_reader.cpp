#include "cli/files/line_reader.h"

#include "cli/process/error.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cli {

namespace {

// Returns the descriptor of this process that `path` stands for; -1 when it stands for none.
int descriptorOf(std::string_view path) {
    if (path == "/dev/stdin")
        return STDIN_FILENO;
    for (const std::string_view folder : {"/dev/fd/", "/proc/self/fd/"}) {
        if (!path.starts_with(folder))
            continue;
        int number = -1;
        const std::string_view digits = path.substr(folder.size());
        const auto [stopped, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (error == std::errc() && stopped == digits.data() + digits.size())
            return number;
    }
    return -1;
}

struct stat statusOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        throw std::system_error(errno, std::generic_category());
    return status;
}

FileSource openRegular(const std::string& name) {
    const mode_t mode = statusOf(name).st_mode;
    if (S_ISDIR(mode))
        throw Error(name, EISDIR);
    if (!S_ISREG(mode))
        throw Error(name + ": not a regular file (- reads a list from standard input)");
    FileSource source = FileSource::openWithoutWaiting(name);
    if (!source.isRegular())
        throw Error(name + ": changed while it was opened");
    return source;
}

} // namespace

FileSource openText(const std::string& name) {
    try {
        FileSource source = name == "-" ? FileSource::copyOf(STDIN_FILENO) : FileSource::open(name);
        // Reading finds out about standard input: a closed one looks like a directory, too.
        if (name == "-" || !source.isDirectory())
            return source;
    } catch (const std::system_error& error) {
        throw Error(name, error.code().value());
    }
    throw Error(name, EISDIR);
}

FileSource openList(const std::string& name) {
    const int number = name == "-" ? STDIN_FILENO : descriptorOf(name);
    try {
        // A regular file is read from its beginning.
        if (name == "-" || (number >= 0 && !S_ISREG(statusOf(name).st_mode)))
            return FileSource::copyOf(number);
        return openRegular(name);
    } catch (const std::system_error& error) {
        throw Error(name, error.code().value());
    }
}

LineReader::LineReader(FileSource source, std::string name, char separator, std::size_t longest)
    : name_(std::move(name)), source_(std::move(source)), separator_(separator), longest_(longest) {
}

std::string LineReader::place() const {
    return name_ + ": line " + std::to_string(number_);
}

void LineReader::refuse(const std::string& why) const {
    throw Error(place() + ": " + why);
}

bool LineReader::refill() {
    if (at_ == filled_ && !ended_) {
        at_ = 0;
        try {
            filled_ = source_.read(block_.data(), block_.size());
            ended_ = filled_ < block_.size();
            if (ended_ && !source_.isComplete())
                throw Error(name_ + ": changed while it was read");
        } catch (const std::system_error& error) {
            throw Error(place(), error.code().value());
        }
    }
    return at_ < filled_;
}

bool LineReader::next() {
    line_.clear();
    ++number_;
    if (!refill())
        return false;
    do {
        const unsigned char* const begin = block_.data() + at_;
        const unsigned char* const end =
            begin + std::min(filled_ - at_, longest_ + 1 - line_.size());
        const unsigned char* const found =
            std::find(begin, end, static_cast<unsigned char>(separator_));
        line_.append(begin, found);
        at_ += static_cast<std::size_t>(found - begin);
        if (line_.size() > longest_)
            return true;
        if (found != end) {
            ++at_;
            return true;
        }
    } while (refill());
    return true;
}

} // namespace cli
