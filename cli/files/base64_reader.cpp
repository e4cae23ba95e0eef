#include "cli/files/base64_reader.h"

#include "cli/process/error.h"
#include "text/base64.h"

#include <cstring>
#include <utility>

namespace cli {

namespace {

constexpr std::size_t kGroup = 4;
constexpr std::size_t kBlock = 16384 * kGroup;

bool isBlank(char c) {
    return std::strchr(" \t\n\v\f\r", c) != nullptr && c != '\0';
}

// The number of bytes that `text` decodes to, -1 when it is refused. A NUL is no end to a file.
int decoded(const std::string& text, std::string& bytes) {
    bytes.resize(text.size());
    if (text.find('\0') != std::string::npos)
        return -1;
    return base64_decode(text.c_str(), reinterpret_cast<unsigned char*>(bytes.data()),
                         static_cast<unsigned>(bytes.size()));
}

bool isGood(const std::string& text) {
    std::string bytes;
    return decoded(text, bytes) >= 0;
}

} // namespace

Base64Text::Base64Text(std::string name, std::size_t line, Sink sink)
    : name_(std::move(name)), sink_(std::move(sink)), next_{line, 1} {}

void Base64Text::take(std::string_view text) {
    for (const char c : text) {
        if (!isBlank(c)) {
            piece_.push_back(c);
            places_.push_back(next_);
            if (piece_.size() == kBlock)
                decode();
        }
        next_ = c == '\n' ? Place{next_.line + 1, 1} : Place{next_.line, next_.column + 1};
    }
}

void Base64Text::finish() {
    decode();
}

void Base64Text::decode() {
    if (piece_.empty())
        return;
    const int length = padded_ ? -1 : decoded(piece_, bytes_);
    if (length < 0)
        refuse();
    sink_(std::string_view(bytes_).substr(0, static_cast<std::size_t>(length)));
    padded_ = piece_.back() == '=';
    piece_.clear();
    places_.clear();
}

// Looks for what the library did not take.
void Base64Text::refuse() const {
    bool padded = padded_;
    for (std::size_t at = 0; at < piece_.size(); at += kGroup) {
        const std::string group = piece_.substr(at, kGroup);
        if (padded)
            refuse(places_[at], "text behind the padding");
        for (std::size_t i = 0; i < group.size(); ++i) {
            if (group[i] != '=' && !isGood(group[i] + std::string(kGroup - 1, 'A')))
                refuse(places_[at + i], "no base64 character");
        }
        if (group.size() < kGroup)
            refuse(next_, "the text ends within a group of four characters");
        if (!isGood(group))
            refuse(places_[at], "no group of four characters that stands for bytes");
        padded = group.back() == '=';
    }
    refuse(next_, "no base64 text");
}

void Base64Text::refuse(const Place& place, const std::string& why) const {
    throw CheckFailed(name_ + ": line " + std::to_string(place.line) + ", column " +
                      std::to_string(place.column) + ": " + why);
}

} // namespace cli
