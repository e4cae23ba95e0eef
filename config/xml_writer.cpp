#include "config/standard_error.h"
#include "config/vpnxml.h"
#include "config/xml_digest.h"
#include "config/xml_walk.h"

#include <algorithm>
#include <cstddef>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using std::string_view;

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

// Writes lines to a stream, in pieces of bounded size, each line with a flush at its end.
class LineWriter {
public:
    explicit LineWriter(std::ostream& out) : out_(out) {}

    void tabs(std::size_t count) {
        for (; count > kPiece; count -= kPiece)
            add(std::string(kPiece, '\t'));
        add(std::string(count, '\t'));
    }

    void add(string_view text) {
        if (line_.size() + text.size() > kPiece)
            flushPiece();
        if (text.size() > kPiece)
            write(text);
        else
            line_ += text;
    }

    // Adds `text` with each of the bytes of `special` in it as an entity.
    void escaped(string_view text, string_view special) {
        for (std::size_t plain; (plain = text.find_first_of(special)) != string_view::npos;) {
            add(text.substr(0, plain));
            add(entity(text[plain]));
            text.remove_prefix(plain + 1);
        }
        add(text);
    }

    void endLine() {
        add("\n");
        flushPiece();
        out_.flush();
    }

private:
    static constexpr std::size_t kPiece = 4096;

    static string_view entity(char byte) {
        switch (byte) {
        case '"':
            return "&quot;";
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        default:
            return "&gt;";
        }
    }

    void flushPiece() {
        write(line_);
        line_.clear();
    }

    void write(string_view text) {
        out_.write(text.data(), static_cast<std::streamsize>(text.size()));
    }

    std::ostream& out_;
    std::string line_;
};

// What is written of a string: it ends at its first NUL.
string_view written(const std::string& text) {
    return text.c_str();
}

void writeStart(LineWriter& out, const XMLDeclaration& element) {
    out.tabs(element.GetIndentLevel());
    out.add("<");
    out.add(written(element.GetName()));
    for (const auto& [key, value] : element.GetAttributes()) {
        out.add(" ");
        out.add(written(key));
        out.add("=\"");
        out.escaped(written(value), "\"&<>");
        out.add("\"");
    }
    out.add(">");
    if (element.GetChildren().empty())
        out.escaped(written(element.GetBody()), "&<>");
    else
        out.endLine();
}

void writeEnd(LineWriter& out, const XMLDeclaration& element) {
    if (!element.GetChildren().empty())
        out.tabs(element.GetIndentLevel());
    out.add("</");
    out.add(written(element.GetName()));
    out.add(">");
    out.endLine();
}

// Makes the file at `path`, or what a link there points to, so that only its owner can open it, and
// can whatever the process's mask of permissions takes away. That it cannot be made is found out,
// and reported, by whoever opens it next.
void createForOwner(const char* path) {
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, kOwnerOnly);
    if (descriptor < 0)
        return;
    static_cast<void>(fchmod(descriptor, kOwnerOnly));
    close(descriptor);
}

} // namespace

void XMLDeclaration::Write(std::ostream& out) {
    LineWriter lines(out);
    pelorikutil::visitElements(
        *this, [&](const XMLDeclaration& element, std::size_t) { writeStart(lines, element); },
        [&](const XMLDeclaration& element, std::size_t) { writeEnd(lines, element); });
}

void XMLDeclaration::WriteToString(std::string& out, unsigned level) {
    if (level != 0)
        FormatLineIndents(level);
    std::ostringstream text;
    text.exceptions(std::ios::badbit); // out of memory is no reason to give half a text
    Write(text);
    out = text.str();
}

void XMLDocument::Write(std::ostream& out) {
    if (!useHash_) {
        XMLDeclaration::Write(out);
        return;
    }
    char digits[33];
    AddAttr(HashAttrKey, pelorikutil::digestOf(*this).ToCSTR(digits, false));
    try {
        XMLDeclaration::Write(out);
    } catch (...) {
        tag_->attributes_.pop_back();
        throw;
    }
    DelAttr(HashAttrKey);
}

bool XMLDocument::Save(const char* path, bool restrictAccess) {
    path = path == nullptr ? "" : path;
    const bool restricts = restrictAccess && access(path, F_OK) != 0;
    if (restricts)
        createForOwner(path);
    std::ofstream file(path, std::ios::out | std::ios::trunc);
    if (!file.is_open()) {
        pelorikutil::standardError() << "ERROR: Can`t open " << GetName() << " file [" << path
                                     << "] for writing" << std::endl;
        return false;
    }
    Write(file);
    file.close();
    if (restricts)
        static_cast<void>(chmod(path, kOwnerOnly));
    return true;
}
