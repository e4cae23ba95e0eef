// pelorik xml: checks, seals, formats and queries XML documents.

#include "cli/args/options.h"
#include "cli/args/subcommands.h"
#include "cli/files/atomic_output.h"
#include "cli/files/text_reader.h"
#include "cli/process/error.h"
#include "cli/process/exit_status.h"
#include "cli/process/signals.h"
#include "config/vpnxml.h"

#include <algorithm>
#include <array>
#include <optional>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <sys/stat.h>

namespace cli {

namespace {

// No element that was read can have this name: a slash ends one.
constexpr char kNoRoot[] = "/";

void requireRoot(const XMLDocument& document, const std::string& name) {
    if (document.GetName() == kNoRoot)
        throw CheckFailed(name + ": holds no element");
}

std::string hintFor(const std::string& digestError) {
    if (digestError == "invalid hash")
        return " (the document was changed after it was sealed; where that is meant, pelorik xml "
               "seal renews the digest)";
    return " (there is no digest: pelorik xml seal adds one, --no-hash checks without)";
}

[[noreturn]] void refuseWriting(const std::string& name, const std::string& problem) {
    throw CheckFailed(
        name + ": nothing was written, since it would not read back as it is: " + problem +
        " (what cannot be written: a text that begins with white space, a zero byte, a "
        "second Hash attribute of the root, a name that begins with '!' or '?')");
}

// Reads the document `text` of the file `name`, whose digest is demanded when `useHash` is set.
// Throws `CheckFailed` when the text is no document, with the place where reading stopped, or when
// the digest does not hold; `Error` when the file cannot be read.
//
// A text without any element, which the library would take for an empty document, is refused.
std::unique_ptr<XMLDocument> readDocument(TextStream& text, const std::string& name, bool useHash) {
    auto document = std::make_unique<XMLDocument>(kNoRoot, useHash);
    try {
        document->Read(text.in());
    } catch (const XMLParserError& error) {
        throw CheckFailed(name + ": " + text.place() + ": " + error.what());
    } catch (const XMLHashError& error) {
        requireRoot(*document, name);
        throw CheckFailed(name + ": " + error.what() + hintFor(error.what()));
    }
    requireRoot(*document, name);
    return document;
}

// The same for the file `name`; "-" is standard input.
std::unique_ptr<XMLDocument> readDocument(const std::string& name, bool useHash) {
    TextStream text(name);
    return readDocument(text, name, useHash);
}

// The text of `document` with a digest.
std::string sealedText(XMLDocument& document) {
    std::ostringstream text;
    text.exceptions(std::ios::badbit | std::ios::failbit);
    document.UseHash(true);
    document.Write(text);
    return std::move(text).str();
}

// Reads `sealed`, the text of a document with a digest, and throws `CheckFailed` when it is not the
// document any more that was written. `name` is the file that the document came from.
void requireReadsBack(std::istream& sealed, const std::string& name) {
    try {
        XMLDocument(std::string(), true).Read(sealed);
    } catch (const XMLParserError& error) {
        refuseWriting(name, error.what());
    } catch (const XMLHashError& error) {
        refuseWriting(name, error.what());
    }
}

// A stream's lines to the console. A terminal shows their indents as such, and the rest made safe.
class ConsoleLines : public std::streambuf {
public:
    explicit ConsoleLines(Console& console) : console_(console) { emptyBlock(); }

protected:
    int sync() override {
        std::string_view rest(pbase(), static_cast<std::size_t>(pptr() - pbase()));
        for (std::size_t end; (end = rest.find('\n')) != rest.npos; rest.remove_prefix(end + 1)) {
            line_ += rest.substr(0, end);
            printLine();
        }
        line_ += rest;
        emptyBlock();
        return 0;
    }

    int_type overflow(int_type byte) override {
        sync();
        return sputc(traits_type::to_char_type(byte));
    }

private:
    void emptyBlock() { setp(block_.data(), block_.data() + block_.size()); }

    void printLine() {
        stopIfInterrupted();
        const std::size_t indent = std::min(line_.find_first_not_of('\t'), line_.size());
        console_.printBlock(std::string_view(line_).substr(0, indent));
        console_.print(std::string_view(line_).substr(indent));
        line_.clear();
    }

    Console& console_;
    std::string line_;
    std::array<char, 4096> block_{};
};

int xmlCheck(const Args& args, Console&) {
    OptionParser line("xml check [--no-hash] FILE|-",
                      "Checks that FILE is an XML document and that the digest in the attribute "
                      "Hash of its root is that of its content. Prints nothing when it is. A "
                      "message about the text tells the place where reading stopped, the column in "
                      "bytes: what is wrong stands there or right before it.");
    bool noHash = false;
    line.flag("--no-hash", noHash, "neither demand nor check the digest");
    line.status(kDone, "the document is well-formed and its digest valid");
    line.status(kFailed, "the document is refused, or its digest is missing or wrong");
    line.status(kTrouble, "FILE could not be read; wrong usage");
    line.status(kInterrupted, "interrupted");
    line.examples("  pelorik xml check /etc/client.xml\n"
                  "  ssh gateway cat client.xml | pelorik xml check -\n");
    const Args operands = line.parse(args);
    requireOperands(operands, {"FILE"});
    readDocument(operands.front(), !noHash);
    return kDone;
}

std::string parseSeal(const Args& args) {
    OptionParser line(
        "xml seal FILE",
        "Writes FILE anew with a digest of its content in the attribute Hash of its "
        "root, in place of the digest that it may have. FILE is replaced as a whole, "
        "once what was written has been read back and verified; its permissions are "
        "kept. Indents, comments and the XML declaration are not: they are no part of "
        "the content. pelorik xml format --seal gives an indented document.");
    line.status(kDone, "FILE has a valid digest");
    line.status(kFailed, "FILE is refused and as it was: it is no document, or one that would not "
                         "verify again, such as one with a text that begins with white space");
    line.status(kTrouble, "FILE could not be read or written, and is as it was; wrong usage");
    line.status(kInterrupted, "interrupted; FILE is as it was");
    line.examples("  pelorik xml seal /etc/client.xml\n"
                  "  pelorik xml check --no-hash new.xml && pelorik xml seal new.xml\n");
    const Args operands = line.parse(args);
    requireOperands(operands, {"FILE"});
    if (operands.front() == "-")
        throw UsageError("standard input (-) cannot be sealed: use pelorik xml format --seal");
    return operands.front();
}

int xmlSeal(const Args& args, Console&) {
    const std::string file = parseSeal(args);
    AtomicOutput output(file, AtomicOutput::Use::kEdit);
    TextStream text(output.content(), file);
    const std::unique_ptr<XMLDocument> document = readDocument(text, file, false);
    output.commit(sealedText(*document), [&](FileSource written) {
        requireReadsBack(TextStream(std::move(written), file).in(), file);
    });
    return kDone;
}

struct FormatOptions {
    bool seal = false;
    std::string file;
};

FormatOptions parseFormat(const Args& args) {
    OptionParser line("xml format [--seal] FILE|-",
                      "Prints a document with each element on lines of its own, indented by tabs. "
                      "The digest of FILE is not verified; it, comments and the XML declaration "
                      "are left out. On a terminal, bytes that it would obey are shown as "
                      "escapes.");
    FormatOptions options;
    line.flag("--seal", options.seal, "add the digest of the content");
    line.status(kDone, "the document was printed");
    line.status(kFailed, "FILE is refused and nothing was printed: it is no document, or holds "
                         "what would be lost, such as a text that begins with white space");
    line.status(kTrouble, "FILE or standard output could not be read or written; wrong usage");
    line.status(kInterrupted, "interrupted");
    line.examples("  pelorik xml format client.xml\n"
                  "  pelorik xml format --seal - < draft.xml > client.xml\n");
    const Args operands = line.parse(args);
    requireOperands(operands, {"FILE"});
    options.file = operands.front();
    return options;
}

int xmlFormat(const Args& args, Console& console) {
    const FormatOptions options = parseFormat(args);
    const std::unique_ptr<XMLDocument> document = readDocument(options.file, false);
    {
        std::istringstream sealed(sealedText(*document));
        requireReadsBack(sealed, options.file);
    }
    ConsoleLines lines(console);
    std::ostream out(&lines);
    out.exceptions(std::ios::badbit); // passes on what the console throws
    document->UseHash(options.seal);
    document->FormatLineIndents(1);
    document->Write(out);
    return kDone;
}

struct Query {
    Args names; // of elements, from below the root on
    std::optional<std::string> attribute;
};

Args splitAtSlashes(const std::string& path) {
    Args names;
    std::istringstream text(path);
    text.exceptions(std::ios::badbit); // passes on that memory has ended
    for (std::string name; std::getline(text, name, '/');)
        names.push_back(name);
    if (path.ends_with('/'))
        names.emplace_back();
    return names;
}

// No name can hold a slash, so that only behind the last one an '@' leads to an attribute.
Query parseQuery(const std::string& text) {
    Query query;
    const std::size_t at = text.rfind('@');
    const bool hasAttribute = at != std::string::npos && text.find('/', at) == std::string::npos;
    query.names = splitAtSlashes(hasAttribute ? text.substr(0, at) : text);
    if (hasAttribute)
        query.attribute = text.substr(at + 1);
    if (query.attribute == "" || std::count(query.names.begin(), query.names.end(), "") > 0)
        throw UsageError("a name is empty in '" + text + "'");
    return query;
}

struct GetOptions {
    std::string file;
    Query query;
};

GetOptions parseGet(const Args& args) {
    OptionParser line("xml get FILE|- PATH[@ATTR]",
                      "Prints the text of an element, or one of its attributes, and a line feed. "
                      "PATH is the names of elements joined by '/', from below the root on; of "
                      "several elements of one name it is always the first; an empty PATH is the "
                      "root. The text of an element that has children is empty. The digest of FILE "
                      "is not verified, and the root's attribute Hash, which holds it, not shown.");
    line.status(kDone, "the text or value was printed; it may be empty");
    line.status(kFailed, "there is no such element or attribute, or FILE is no document");
    line.status(kTrouble, "FILE or standard output could not be read or written; wrong usage");
    line.status(kInterrupted, "interrupted");
    line.examples("  pelorik xml get client.xml gateway/address\n"
                  "  pelorik xml get client.xml gateway/address@port\n"
                  "  pelorik xml get client.xml @version\n");
    const Args operands = line.parse(args);
    requireOperands(operands, {"FILE", "PATH"});
    return {operands[0], parseQuery(operands[1])};
}

const XMLDeclaration& elementAt(const GetOptions& options, const XMLDeclaration& root) {
    const XMLDeclaration* element = &root;
    for (const std::string& name : options.query.names) {
        const XMLDeclaration* const child = element->GetElementByName(name);
        if (child == nullptr)
            throw CheckFailed(options.file + ": '" + element->GetName() + "' has no element '" +
                              name + "'");
        element = child;
    }
    return *element;
}

// A missing attribute is not the same as an empty one, as it would be for `GetAttr`.
const std::string& attributeOf(const GetOptions& options, const XMLDeclaration& element) {
    const std::string& key = *options.query.attribute;
    const auto& attributes = element.GetAttributes();
    const auto found = std::find_if(attributes.begin(), attributes.end(),
                                    [&](const auto& attribute) { return attribute.first == key; });
    if (found == attributes.end())
        throw CheckFailed(options.file + ": '" + element.GetName() + "' has no attribute '" + key +
                          "'");
    return found->second;
}

int xmlGet(const Args& args, Console& console) {
    const GetOptions options = parseGet(args);
    const std::unique_ptr<XMLDocument> document = readDocument(options.file, false);
    const XMLDeclaration& element = elementAt(options, *document);
    console.print(options.query.attribute ? attributeOf(options, element) : element.GetBody());
    return kDone;
}

} // namespace

int runXml(const Args& args, Console& console) {
    static const SubcommandGroup family = {
        "xml",
        "Works on XML documents of the client's narrow kind, which can carry a digest of their "
        "content in the attribute Hash of the root.",
        {{"check", "tell whether a document is well-formed and unchanged", xmlCheck},
         {"seal", "write a document's digest into it", xmlSeal},
         {"format", "print a document with indents", xmlFormat},
         {"get", "print an element's text or attribute", xmlGet}},
        "the document is refused, its digest is missing or wrong, or the element or attribute is "
        "not there",
        "  pelorik xml check /etc/client.xml\n"
        "  pelorik xml seal /etc/client.xml\n"
        "  pelorik xml get /etc/client.xml gateway/address@port\n"};
    return runSubcommand(family, args, console);
}

} // namespace cli
