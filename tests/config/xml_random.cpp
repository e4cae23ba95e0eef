#include "tests/config/xml_random.h"

#include <cstring>

using std::string;

namespace xml_random {

string Source::white() {
    string text;
    while (oneIn(3))
        text += oneOf(string(" \t\n\r\v\f"));
    return text;
}

// White space and comments, as they may stand between tags.
string Source::between() {
    static const char* const comments[] = {"<!---->", "<!-- c -->", "<!-- <a> & - -- x -->",
                                           "<!--x->y-->"};
    string text = white();
    while (oneIn(6))
        text += oneOf(comments) + white();
    return text;
}

string Source::word() {
    string text;
    do {
        text += oneOf(string("abcxyz019:.-_?!'\"&\x80\xEF\xFF"));
    } while (!oneIn(3));
    return text;
}

string Source::characters(char quote) {
    static const char* const pieces[] = {"&amp;",  "&apos;", "&gt;",    "&lt;",  "&quot;", "&#x41;",
                                         "&#xff;", "&#065;", "&#0255;", "&#x9;", "a",      " ",
                                         "\n",     "]]>",    "\xFF",    "/",     "=",      ";",
                                         "#",      "x'y",    "x\"y"};
    string text;
    while (!oneIn(4)) {
        const string piece = oneOf(pieces);
        if (piece.find(quote) == string::npos)
            text += piece;
    }
    return text;
}

string Source::attribute() {
    const char quote = oneOf(string("'\""));
    return word() + white() + "=" + white() + quote + characters(quote) + quote + white();
}

string Source::element(int depth) {
    const string name = "n" + word();
    string text = "<" + white() + name + " " + white();
    while (oneIn(3))
        text += attribute();
    if (oneIn(4))
        return text + "/>";
    text += ">";
    if (depth > 0 && oneIn(2)) {
        text += between();
        for (std::size_t count = 1 + below(3); count > 0; --count)
            text += element(depth - 1) + between();
    } else if (oneIn(2)) {
        text += white() + "t" + characters('<') + between();
    } else {
        text += between();
    }
    return text + "<" + white() + "/" + white() + name + (oneIn(2) ? " " + white() : "") + ">";
}

string Source::text() {
    string text;
    if (oneIn(4))
        text += "\xEF\xBB\xBF";
    if (oneIn(3)) {
        text += "<?xml " + white();
        while (oneIn(2))
            text += "v" + attribute(); // a "?" would end it
        text += "?>" + between();
    } else if (oneIn(3)) {
        text += "<!-- first -->" + between();
    }
    return text + element(3) + white();
}

string Source::bytes(std::size_t longest) {
    string text;
    for (std::size_t length = below(longest + 1); length > 0; --length)
        text += static_cast<char>(1 + below(255));
    return text;
}

// What can stand as a name: no delimiters, and nothing at its beginning that says something else.
string Source::name() {
    string text = "n";
    for (const char byte : bytes(6)) {
        if (std::strchr("\t\n\r /;<=>", byte) == nullptr)
            text += byte;
    }
    return text;
}

void Source::fill(XMLDeclaration& element, int depth) {
    element.SetName(name());
    while (oneIn(2))
        element.AddAttr(oneIn(8) ? "" : name(), bytes(12));
    if (depth == 0 || oneIn(3)) {
        element.SetBody(oneIn(3) ? "" : "t" + bytes(12));
        return;
    }
    for (std::size_t count = below(4); count > 0; --count)
        fill(*element.AddChild(new XMLDeclaration), depth - 1);
}

} // namespace xml_random
