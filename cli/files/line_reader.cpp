#include "cli/files/line_reader.h"

#include "cli/process/error.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace cli {

FileSource openText(const std::string& name) {
    try {
        FileSource source = name == "-" ? FileSource::standardInput() : FileSource::open(name);
        // Of standard input reading finds out: a closed one looks like a directory, too.
        if (name == "-" || !source.isDirectory())
            return source;
    } catch (const std::system_error& error) {
        throw Error(name, error.code().value());
    }
    throw Error(name, EISDIR);
}

Lines::Lines(const std::string& name, char separator, std::size_t longest)
    : name_(name), source_(openText(name)), separator_(separator), longest_(longest) {}

std::string Lines::place() const {
    return name_ + ": line " + std::to_string(number_);
}

void Lines::refuse(const std::string& why) const {
    throw Error(place() + ": " + why);
}

bool Lines::refill() {
    if (at_ == filled_ && !ended_) {
        at_ = 0;
        try {
            filled_ = source_.read(block_.data(), block_.size());
        } catch (const std::system_error& error) {
            throw Error(place(), error.code().value());
        }
        ended_ = filled_ < block_.size();
    }
    return at_ < filled_;
}

bool Lines::next() {
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
