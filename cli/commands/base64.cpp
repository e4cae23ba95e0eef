// pelorik base64: encodes bytes as base64 text, and back.

#include "text/base64.h"

#include "cli/args/options.h"
#include "cli/commands.h"
#include "cli/files/base64_reader.h"
#include "cli/files/text_reader.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"

#include <unistd.h>

namespace cli {

namespace {

constexpr std::size_t kBlock = 3 * 16384; // gives whole groups of characters

struct Base64Options {
    bool decode = false;
    std::string file;
};

Base64Options parseBase64(const Args& args) {
    OptionParser line("base64 [-d] [FILE|-]",
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
    const Args operands = line.parse(args);
    if (operands.size() > 1)
        throw UsageError("unexpected operand '" + operands[1] + "'");
    options.file = operands.empty() ? "-" : operands.front();
    return options;
}

void encode(std::istream& in, Console& console) {
    std::vector<char> bytes(kBlock);
    std::vector<char> text(kBlock / 3 * 4 + 1);
    do {
        in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        const int length = base64_encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                                         static_cast<unsigned>(in.gcount()), text.data(),
                                         static_cast<unsigned>(text.size()));
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
    std::vector<char> piece(kBlock);
    do {
        in.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        text.take({piece.data(), static_cast<std::size_t>(in.gcount())});
    } while (in);
    text.finish();
}

} // namespace

int runBase64(const Args& args, Console& console) {
    const Base64Options options = parseBase64(args);
    TextStream stream(options.file);
    if (options.decode)
        decode(options.file, stream.in(), console);
    else
        encode(stream.in(), console);
    return kDone;
}

} // namespace cli
