// pelorik pem: puts certificates into PEM framing and takes them out of it.

#include "cli/args/options.h"
#include "cli/args/subcommands.h"
#include "cli/files/base64_reader.h"
#include "cli/files/text_reader.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "text/base64.h"

#include <algorithm>
#include <limits>
#include <unistd.h>

namespace cli {

namespace {

constexpr std::size_t kLongest = std::size_t{1} << 24;
constexpr std::string_view kBlanks = " \t\n\v\f\r";
constexpr std::string_view kFirstLine = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view kLastLine = "\n-----END CERTIFICATE-----";

std::string parseOperand(OptionParser& line, const Args& args) {
    line.status(kTrouble, "FILE could not be read, or is longer than 16 MiB; standard output could "
                          "not be written; wrong usage");
    line.status(kInterrupted, "interrupted");
    const Args operands = line.parse(args);
    if (operands.size() > 1)
        throw UsageError("unexpected operand '" + operands[1] + "'");
    return operands.empty() ? "-" : operands.front();
}

// The whole file. No certificate comes near the limit; what never ends, does.
std::string readWhole(const std::string& name) {
    TextStream stream(name);
    std::string content;
    std::vector<char> piece(65536);
    do {
        stream.in().read(piece.data(), static_cast<std::streamsize>(piece.size()));
        content.append(piece.data(), static_cast<std::size_t>(stream.in().gcount()));
        if (content.size() > kLongest)
            throw Error(name + ": longer than 16 MiB");
    } while (stream.in());
    return content;
}

int pemWrap(const Args& args, Console& console) {
    OptionParser line("pem wrap [FILE|-]",
                      "Prints FILE, a certificate in DER, as PEM: base64 text in lines of 64 "
                      "characters between the lines BEGIN CERTIFICATE and END CERTIFICATE. All "
                      "lines end with CR LF. Without FILE, or where FILE is -, reads standard "
                      "input. The bytes are not looked at.");
    line.status(kDone, "the text was printed");
    line.examples("  pelorik pem wrap ca.der > ca.pem\n");
    const std::string bytes = readWhole(parseOperand(line, args));
    const int length = static_cast<int>(bytes.size());
    std::string text(static_cast<std::size_t>(base64_encode_cert_len(length)), '\0');
    const int written = base64_encode_cert(reinterpret_cast<const unsigned char*>(bytes.data()),
                                           length, text.data());
    console.printBlock(std::string_view(text).substr(0, static_cast<std::size_t>(written) - 1));
    return kDone;
}

std::string_view withoutBlanksBehind(std::string_view text) {
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

[[noreturn]] void refuse(const std::string& name, std::ptrdiff_t line, const std::string& why) {
    throw CheckFailed(name + ": line " + std::to_string(line) + ": " + why);
}

// The text up to the end of its last line. The library asks less of the first line and nothing of
// the last: it would leave out what stands beside the one, take a text that was cut off, and
// stumble over empty lines behind it.
std::string_view wholeText(const std::string& name, std::string_view text) {
    text = withoutBlanksBehind(text);
    if (withoutBlanksBehind(text.substr(0, text.find('\n'))) != kFirstLine)
        refuse(name, 1, "is not -----BEGIN CERTIFICATE-----");
    if (!text.ends_with(kLastLine))
        refuse(name, std::count(text.begin(), text.end(), '\n') + 1,
               "is not -----END CERTIFICATE-----, and the last");
    return text;
}

// Finds the place in the lines between the first and the last.
[[noreturn]] void refuseBody(const std::string& name, std::string_view text) {
    const std::size_t start = text.find('\n') + 1;
    Base64Text body(name, 2, [](std::string_view) {});
    body.take(text.substr(start, text.size() - kLastLine.size() + 1 - start));
    body.finish();
    throw CheckFailed(name + ": no certificate");
}

std::string unwrapped(const std::string& name) {
    const std::string content = readWhole(name);
    const std::string_view text = wholeText(name, content);
    std::string bytes(text.size(), '\0');
    const int length = base64_decode_cert(text.data(), static_cast<int>(text.size()),
                                          reinterpret_cast<unsigned char*>(bytes.data()),
                                          static_cast<int>(bytes.size()));
    if (length < 0 || text.find('\0') != std::string_view::npos)
        refuseBody(name, text);
    bytes.resize(static_cast<std::size_t>(length));
    return bytes;
}

int pemUnwrap(const Args& args, Console& console) {
    OptionParser line("pem unwrap [FILE|-]",
                      "Prints the bytes of FILE, one certificate in PEM. Without FILE, or where "
                      "FILE is -, reads standard input. White space may stand anywhere between the "
                      "first and the last line, and behind that. Not to a terminal.");
    line.status(kDone, "the bytes were printed");
    line.status(kFailed, "the text is refused, and nothing was printed");
    line.examples("  pelorik pem unwrap ca.pem > ca.der\n"
                  "  pelorik pem unwrap < ca.pem | openssl x509 -inform DER -text\n");
    const std::string file = parseOperand(line, args);
    if (isTerminal(STDOUT_FILENO))
        throw UsageError("a certificate's bytes are not for a terminal");
    console.printBlock(unwrapped(file));
    return kDone;
}

} // namespace

int runPem(const Args& args, Console& console) {
    static const SubcommandGroup family = {
        "pem",
        "Puts certificates into PEM framing and takes them out of it.",
        {{"wrap", "print a certificate as PEM", pemWrap},
         {"unwrap", "print the bytes of a certificate in PEM", pemUnwrap}},
        "the text is refused",
        "  pelorik pem wrap ca.der > ca.pem\n"
        "  pelorik pem unwrap ca.pem > ca.der\n"};
    return runSubcommand(family, args, console);
}

} // namespace cli
