#include "cli/output/terminal.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>

namespace cli {

namespace {

unsigned char byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

struct Utf8Lead {
    std::size_t length;     // bytes of the whole sequence, 0 for a byte that starts none
    std::uint32_t bits;     // what the first byte gives to the code point
    std::uint32_t smallest; // the smallest code point that needs this length
};

Utf8Lead leadOf(unsigned char byte) {
    if (byte < 0x80)
        return {1, byte, 0};
    if ((byte & 0xe0) == 0xc0)
        return {2, byte & 0x1fU, 0x80};
    if ((byte & 0xf0) == 0xe0)
        return {3, byte & 0x0fU, 0x800};
    if ((byte & 0xf8) == 0xf0)
        return {4, byte & 0x07U, 0x10000};
    return {0, 0, 0};
}

struct CodePoint {
    std::size_t length; // 0: not UTF-8
    std::uint32_t value;
};

CodePoint decode(std::string_view text) {
    const Utf8Lead lead = leadOf(byteAt(text, 0));
    if (lead.length == 0 || lead.length > text.size())
        return {0, 0};
    std::uint32_t value = lead.bits;
    for (std::size_t i = 1; i < lead.length; ++i) {
        if ((byteAt(text, i) & 0xc0) != 0x80)
            return {0, 0};
        value = value << 6 | (byteAt(text, i) & 0x3fU);
    }
    const bool surrogate = value >= 0xd800 && value <= 0xdfff;
    if (value < lead.smallest || value > 0x10ffff || surrogate)
        return {0, 0};
    return {lead.length, value};
}

bool isObeyed(std::uint32_t value) {
    const bool control = value < 0x20 || (value >= 0x7f && value < 0xa0);
    const bool reorders = value == 0x061c || value == 0x200e || value == 0x200f ||
                          (value >= 0x2028 && value <= 0x202e) ||
                          (value >= 0x2066 && value <= 0x2069);
    return control || reorders;
}

void appendEscaped(std::string& out, unsigned char byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    if (byte == '\n') {
        out += "\\n";
    } else if (byte == '\t') {
        out += "\\t";
    } else {
        out += "\\x";
        out += kDigits[byte >> 4];
        out += kDigits[byte & 15];
    }
}

void appendEscaped(std::string& out, std::string_view bytes) {
    for (std::size_t i = 0; i < bytes.size(); ++i)
        appendEscaped(out, byteAt(bytes, i));
}

// `text` with what `escape` writes, from the bytes and the code point, in place of everything that
// a terminal would obey or could not show.
template<class Escape>
std::string replaced(std::string_view text, Escape escape) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const CodePoint next = decode(text);
        const std::string_view bytes = text.substr(0, next.length == 0 ? 1 : next.length);
        if (next.length == 0 || isObeyed(next.value))
            escape(out, bytes, next.value);
        else
            out += bytes;
        text.remove_prefix(bytes.size());
    }
    return out;
}

const char* codeOf(Colour colour) {
    switch (colour) {
    case Colour::kRed:
        return "\033[31m";
    case Colour::kYellow:
        return "\033[33m";
    case Colour::kGreen:
        return "\033[32m";
    case Colour::kMagenta:
        return "\033[35m";
    default:
        return "";
    }
}

bool colourWanted() {
    const char* const refused = std::getenv("NO_COLOR");
    const char* const kind = std::getenv("TERM");
    return (refused == nullptr || *refused == '\0') && kind != nullptr &&
           std::string_view(kind) != "dumb";
}

} // namespace

bool isTerminal(int descriptor) {
    return isatty(descriptor) == 1;
}

std::size_t terminalWidth(int descriptor) {
    winsize size{};
    if (ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return 80;
    return size.ws_col;
}

std::size_t utf8Length(std::string_view text) {
    return text.empty() ? 0 : decode(text).length;
}

std::string printable(std::string_view text) {
    return replaced(text, [](std::string& out, std::string_view bytes, std::uint32_t) {
        appendEscaped(out, bytes);
    });
}

std::string withoutControls(std::string_view text) {
    return replaced(text, [](std::string& out, std::string_view bytes, std::uint32_t) {
        if (decode(bytes).length == 0)
            out += bytes;
        else
            appendEscaped(out, bytes);
    });
}

std::string printableJson(std::string_view json) {
    return replaced(json, [](std::string& out, std::string_view, std::uint32_t value) {
        char text[16];
        std::snprintf(text, sizeof text, "\\u%04x", static_cast<unsigned>(value));
        out += text;
    });
}

std::string colorized(std::string text, Colour colour) {
    if (colour == Colour::kNone || !colourWanted())
        return text;
    return codeOf(colour) + std::move(text) + "\033[0m";
}

} // namespace cli
