#include "tests/config/xml_model.h"

#include <cstring>

namespace {

using std::string;
using xml_model::Node;

struct Refusal {
    string message;
};

class Model {
public:
    explicit Model(std::istream& in) : in_(in) {}

    void document(Node& root) {
        const int first = firstByte();
        if (first == 0xEF && (byte() != 0xBB || byte() != 0xBF))
            throw Refusal{
                "Unexpected symbol, when parsing Byte Order Mark (BOM). UTF-8 only supported: "
                "EF BB BF"};
        if ((first == 0xEF ? byte() : first) == '<') {
            if (in_.peek() == '?')
                declaration();
            else
                in_.putback('<');
            if (!tag(root))
                content(root);
        }
        in_ >> std::ws;
        if (in_.bad())
            throw Refusal{"Read error"};
        if (!in_.eof())
            throw Refusal{"End of file expected"};
    }

private:
    int firstByte() {
        in_ >> std::ws;
        const int got = in_.get();
        if (in_.eof())
            throw Refusal{"Unexpected end of stream"};
        return got;
    }

    int checked(int got, const char* during) {
        if (in_.eof())
            throw Refusal{string("Unexpected end of stream") +
                          (during == nullptr ? "" : string(", while '") + during + "' ecpected")};
        if (!in_)
            throw Refusal{"stream read error"};
        return got;
    }

    int byte(const char* during = nullptr) { return checked(in_.get(), during); }

    int peek() {
        const int got = in_.peek();
        if (in_.eof())
            throw Refusal{"Unexpected end of stream"};
        return got;
    }

    void equals() {
        if (in_.get() != '=')
            throw Refusal{"'=' expected"};
    }

    void startOfToken() {
        in_ >> std::ws;
        if (in_.bad())
            throw Refusal{"stream read error"};
    }

    void putBack(int got) { in_.putback(static_cast<char>(got)); }

    string word() {
        startOfToken();
        string collected;
        for (;;) {
            const int got = byte();
            if (got != 0 && std::strchr("\t\n\r /;<=>", got) != nullptr) {
                putBack(got);
                return collected;
            }
            collected += static_cast<char>(got);
        }
    }

    string until(int end, const char* during) {
        string collected;
        for (;;) {
            const int got = byte(during);
            if (got == end)
                return collected;
            collected += got == '&' ? entity() : static_cast<char>(got);
        }
    }

    string quoted() {
        startOfToken();
        const int quote = byte();
        if (quote == '"' || quote == '\'')
            return until(quote, "\" or '");
        putBack(quote);
        return "";
    }

    string text() {
        startOfToken();
        const string collected = until('<', nullptr);
        putBack('<');
        return collected;
    }

    char entity() {
        const int first = byte();
        if (first == '#')
            return number();
        if (first == 'a') {
            const int second = byte("&amp; or &apos;");
            if (second == 'm')
                return named("p;", "&amp;", '&');
            if (second == 'p')
                return named("os;", "&apos;", '\'');
        }
        if (first == 'g')
            return named("t;", "&gt;", '>');
        if (first == 'l')
            return named("t;", "&lt;", '<');
        if (first == 'q')
            return named("uot;", "&quot;", '"');
        throw Refusal{"Unknown Entity"};
    }

    char named(const string& rest, const char* during, char value) {
        for (const char letter : rest) {
            if (byte(during) != letter)
                throw Refusal{"Unknown Entity"};
        }
        return value;
    }

    char number() {
        const bool isHex = byte() == 'x';
        const string digits = isHex ? "0123456789abcdef" : "0123456789";
        const string kind = isHex ? "hexadecimal" : "decimal";
        std::size_t value = 0;
        for (;;) {
            if (value > 255)
                throw Refusal{"to big " + kind + " value"};
            const int got = byte(isHex ? "#x<hex>;" : "#<num>;");
            if (got == ';')
                break;
            const int lower = isHex && got >= 'A' && got <= 'F' ? got + 32 : got;
            const std::size_t digit = digits.find(static_cast<char>(lower));
            if (digit == string::npos)
                throw Refusal{"invalid " + kind + " value"};
            value = value * digits.size() + digit;
        }
        if (value < 9)
            throw Refusal{"not printable hexadecimal char"};
        return static_cast<char>(value);
    }

    bool comment() {
        in_ >> std::ws;
        const int first = byte();
        if (first != '<') {
            putBack(first);
            return false;
        }
        const int second = byte();
        if (second != '!') {
            putBack(second);
            putBack(first);
            return false;
        }
        if (byte("<!--") != '-' || byte("<!--") != '-')
            throw Refusal{"'<!--' expected"};
        for (;;) {
            if (byte("-->") != '-')
                continue;
            if (byte("-->") != '-')
                continue;
            if (byte("-->") == '>')
                return true;
        }
    }

    bool tag(Node& node) {
        node.closing = false;
        while (comment()) {
        }
        in_ >> std::ws;
        if (byte() != '<')
            throw Refusal{"'<' expected at begining of tag"};
        in_ >> std::ws;
        if (peek() == '/') {
            byte();
            node.closing = true;
        }
        node.name = word();
        if (!node.closing)
            attributes(node);
        in_ >> std::ws;
        const bool selfClosing = !node.closing && in_.peek() == '/';
        if (selfClosing) {
            byte();
            node.closing = true;
        }
        if (byte() != '>')
            throw Refusal{"'>' expected at end of tag"};
        return selfClosing;
    }

    void attributes(Node& node) {
        for (;;) {
            in_ >> std::ws;
            const int next = peek();
            if (next == '/' || next == '>')
                return;
            node.attributes.emplace_back();
            node.attributes.back().first = word();
            in_ >> std::ws;
            equals();
            node.attributes.back().second = quoted();
        }
    }

    Node children(Node& parent) {
        for (;;) {
            Node child;
            const bool selfClosing = tag(child);
            if (child.closing && !selfClosing)
                return child;
            if (!selfClosing)
                content(child);
            parent.children.push_back(child);
        }
    }

    void content(Node& node) {
        in_ >> std::ws;
        Node end;
        if (peek() == '<') {
            end = children(node);
        } else {
            node.body = text();
            tag(end);
        }
        if (!end.closing)
            throw Refusal{node.name + " [End tag expected]"};
        if (end.name != node.name)
            throw Refusal{node.name + " [End tag mismatch]"};
    }

    void declaration() {
        if (word() != "?xml")
            throw Refusal{"\"xml\" expected"};
        for (;;) {
            in_ >> std::ws;
            if (peek() == '?')
                break;
            word();
            in_ >> std::ws;
            equals();
            quoted();
        }
        byte();
        if (byte() != '>')
            throw Refusal{"\"?>\" expected"};
    }

    std::istream& in_;
};

} // namespace

string xml_model::read(std::istream& in, Node& root) {
    try {
        Model(in).document(root);
        return "";
    } catch (const Refusal& refusal) {
        return refusal.message;
    }
}

bool xml_model::same(const XMLDeclaration& element, const Node& node) {
    if (element.GetName() != node.name || element.GetAttributes() != node.attributes ||
        element.GetBody() != node.body || element.GetChildren().size() != node.children.size())
        return false;
    for (std::size_t i = 0; i < node.children.size(); ++i) {
        if (!same(*element.GetChildren()[i], node.children[i]))
            return false;
    }
    return true;
}
