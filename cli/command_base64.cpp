// pelorik base64: encodes bytes as base64 text, and back.

#include "cli/base64_text.h"
#include "cli/command_line.h"
#include "cli/commands.h"
#include "cli/exit_status.h"
#include "cli/failure.h"
#include "cli/text_stream.h"
#include "text/base64.h"

#include <array>
#include <unistd.h>

namespace cli {

namespace {

constexpr std::size_t kPiece = 3 * 16384; // gives whole groups of characters

struct Base64Options {
    bool decode = false;
    std::string file;
};

Base64Options parseBase64(const Words& words) {
    CommandLine line("base64 [-d] [FILE|-]",
                     "Encodes FILE as base64 text (RFC 4648), on one line. Without FILE, or where "
                     "FILE is -, reads standard input. On a terminal, decoded bytes that it would "
                     "obey are shown as escapes.");
    Base64Options options;
    line.flag("-d,--decode", options.decode,
              "decode; white space may stand anywhere, and anything else that is no base64 text is "
              "refused with its place, once what stands well before it has been printed");
    line.status(kDone, "everything was encoded, or decoded");
    line.status(kFailed, "the text is refused");
    line.status(kTrouble, "FILE or standard output could not be read or written; wrong usage");
    line.status(kInterrupted, "interrupted");
    line.examples("  pelorik base64 client.key > client.txt\n"
                  "  pelorik base64 -d client.txt | cmp - client.key\n");
    const Words operands = line.parse(words);
    if (operands.size() > 1)
        throw UsageError("unexpected operand '" + operands[1] + "'");
    options.file = operands.empty() ? "-" : operands.front();
    return options;
}

void encode(std::istream& in, Console& console) {
    std::array<char, kPiece> bytes;
    std::array<char, kPiece / 3 * 4 + 1> text;
    do {
        in.read(bytes.data(), bytes.size());
        const int length =
            base64_encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                          static_cast<unsigned>(in.gcount()), text.data(), text.size());
        console.printBlock({text.data(), static_cast<std::size_t>(length)});
    } while (in);
    console.printBlock("\n");
}

// A terminal shows the bytes' line feeds as such, and the rest made safe.
void printSafely(std::string_view bytes, Console& console) {
    for (std::size_t end; (end = bytes.find('\n')) != bytes.npos; bytes.remove_prefix(end + 1))
        console.printBlock(printable(bytes.substr(0, end)) + "\n");
    console.printBlock(printable(bytes));
}

void decode(const std::string& name, std::istream& in, Console& console) {
    const bool safely = isTerminal(STDOUT_FILENO);
    Base64Text text(name, 1, [&](std::string_view bytes) {
        safely ? printSafely(bytes, console) : console.printBlock(bytes);
    });
    std::array<char, kPiece> piece;
    do {
        in.read(piece.data(), piece.size());
        text.take({piece.data(), static_cast<std::size_t>(in.gcount())});
    } while (in);
    text.finish();
}

} // namespace

int runBase64(const Words& words, Console& console) {
    const Base64Options options = parseBase64(words);
    TextStream stream(options.file);
    if (options.decode)
        decode(options.file, stream.in(), console);
    else
        encode(stream.in(), console);
    return kDone;
}

} // namespace cli
