// Base64 text of any length, decoded piece by piece in bounded memory.

#ifndef PELORIK_CLI_FILES_BASE64_READER_H
#define PELORIK_CLI_FILES_BASE64_READER_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

// Characters are judged by the library; this only counts where they stand.
class Base64Text {
public:
    using Sink = std::function<void(std::string_view bytes)>;

    // The text `name`, from the start of `line` on. `sink` gets what it decodes to.
    Base64Text(std::string name, std::size_t line, Sink sink);

    // Both throw `CheckFailed` with the place of the first character that is not as it should be,
    // when everything before its piece of the text has gone to the sink.
    void take(std::string_view text);
    void finish();

private:
    struct Place {
        std::size_t line;
        std::size_t column; // in bytes, from 1
    };

    void decode();
    [[noreturn]] void refuse() const;
    [[noreturn]] void refuse(const Place& place, const std::string& why) const;

    std::string name_;
    Sink sink_;
    Place next_;
    std::string piece_; // without white space
    std::vector<Place> places_;
    std::string bytes_;
    bool padded_ = false; // the text is at its end
};

} // namespace cli

#endif
