/// Small configuration documents as trees of XML elements: building, searching, writing and reading
/// them, and an MD5 digest with which a document tells whether it was changed.
///
/// The XML is a narrow subset, of single bytes without any encoding: elements with quoted
/// attributes and either children or text, comments between tags, an optional UTF-8 byte order mark
/// and an optional XML declaration. There are no document types, CDATA sections, processing
/// instructions, namespaces or entities but `&amp;` `&apos;` `&gt;` `&lt;` `&quot;` and numeric
/// references.
///
/// Depth of nesting costs heap, never stack. Deletion alone costs no heap, but stack for at most
/// 1,000 levels.
///
/// A tree belongs to one thread at a time. Compatibility: writing changes it too, because
/// `WriteToString` may set indent levels and `XMLDocument::Write` adds an attribute for a while.

#ifndef PELORIK_CONFIG_VPNXML_H
#define PELORIK_CONFIG_VPNXML_H

#include "pelorik/export.h"

#include <cstdint>
#include <istream>
#include <list>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

class HashMD5_Calc;

/// Thrown by everything that reads a document when the text is not one, or cannot be read.
///
/// `what()` is the fixed text that says what was expected. `XMLDocument::Read` lists the texts.
class PELORIK_API XMLParserError : public std::logic_error {
public:
    /// `message` becomes `what()`.
    explicit XMLParserError(const std::string& message) : std::logic_error(message) {}
    ~XMLParserError() noexcept override;
};

/// Thrown by `XMLDocument::Read` when the document's digest is missing ("empty hash attribute") or
/// wrong ("invalid hash").
class PELORIK_API XMLHashError : public std::logic_error {
public:
    /// `message` becomes `what()`.
    explicit XMLHashError(const std::string& message) : std::logic_error(message) {}
    ~XMLHashError() noexcept override;
};

/// One element: a start tag, and children or a body of text.
///
/// An element owns its children. Elements are neither copied nor assigned.
class PELORIK_API XMLDeclaration {
public:
    /// A key and its value.
    typedef std::pair<std::string, std::string> Attribute;

    /// What stands between `<` and `>`: a name and attributes.
    class PELORIK_API tag {
    public:
        /// A start tag without attributes.
        explicit tag(const std::string& name = std::string())
            : name_(name), closing_(false), deletion_(0) {}

        /// Any bytes; neither checked nor escaped when written.
        const std::string& GetName() const { return name_; }
        void SetName(const std::string& name) { name_ = name; } ///< sets what `GetName` gives

        /// In the order in which they were added or read. One key may stand there several times.
        const std::list<Attribute>& GetAttributes() const { return attributes_; }

        /// Appends an attribute, also when there is one of that key.
        void AddAttr(const std::string& key, const std::string& value) {
            attributes_.emplace_back(key, value);
        }

        /// True when the tag was read as an end tag or a self-closing one.
        bool IsClosing() const { return closing_; }

        /// Skips white space and comments and reads one tag, of any kind, up to and with its `>`.
        /// Returns true when it was self-closing.
        ///
        /// The name is replaced, attributes are added to those that there are, and the closing flag
        /// is set anew. Throws `XMLParserError`; what was read until then stays.
        bool ReadDecl(std::istream& in);

        /// Reads attributes up to `/` or `>`, and returns that byte without taking it.
        ///
        /// Deliberate: a value without quotes is taken for an empty one, and what stands there for
        /// the next key. Throws `XMLParserError`; the attributes read until then stay.
        int ReadAttribs(std::istream& in);

    private:
        friend class XMLDeclaration;
        friend class XMLDocument;
        std::string name_;
        std::list<Attribute> attributes_;
        bool closing_;
        // In the bytes that the flag leaves: where the element stands in a deletion that is under
        // way, either its level or the address of its parent.
        std::uint64_t deletion_ : 56;
    };

    /// An element without attributes, children or body, of indent level 0.
    explicit XMLDeclaration(const std::string& name = std::string())
        : tag_(new tag(name)), indentLevel_(0) {}

    XMLDeclaration(const XMLDeclaration&) = delete;
    XMLDeclaration& operator=(const XMLDeclaration&) = delete;

    /// Deletes the element and everything below it, each child through its own destructor. Takes no
    /// memory.
    ///
    /// Down to 1,000 levels this is plain recursion: the destructors of subclasses run first, then
    /// the children are deleted in document order, and then the element's attributes, body, name
    /// and memory are freed. Below 1,000 levels the children are deleted before the destructors of
    /// their parent run, the last child first.
    ///
    /// A destructor may use all elements above its own. Its own is not among their children any
    /// more; down to 1,000 levels a null child is in its place.
    virtual ~XMLDeclaration();

    /// Any bytes; neither checked nor escaped when written.
    const std::string& GetName() const { return tag_->GetName(); }
    void SetName(const std::string& name) { tag_->SetName(name); } ///< sets what `GetName` gives

    /// The text, with no entities in it. An element that has children is written without its body.
    const std::string& GetBody() const { return body_; }
    void SetBody(const std::string& body) { body_ = body; } ///< sets what `GetBody` gives

    /// How many tabs are written before the element's tags, where they begin a line.
    std::uint32_t GetIndentLevel() const { return indentLevel_; }
    void SetIndentLevel(std::uint32_t level) { indentLevel_ = level; } ///< of this element alone

    /// Appends an attribute, also when there is one of that key.
    void AddAttr(const std::string& key, const std::string& value) { tag_->AddAttr(key, value); }

    /// In the order in which they were added or read.
    const std::list<Attribute>& GetAttributes() const { return tag_->GetAttributes(); }

    /// Appends `child`, which must have been made with `new`, and returns it. It belongs to this
    /// element from then on, also when the call throws for want of memory. A null child is kept and
    /// passed over by every operation, but counts as a child: the body is then neither written nor
    /// digested.
    XMLDeclaration* AddChild(XMLDeclaration* child) {
        std::unique_ptr<XMLDeclaration> owner(child);
        children_.push_back(child);
        return owner.release();
    }

    /// In document order. They still belong to this element.
    const std::vector<XMLDeclaration*>& GetChildren() const { return children_; }

    /// The value of the first attribute of that key; empty when there is none.
    std::string GetAttr(const std::string& key) const;

    /// Removes the first attribute of that key, if there is one.
    void DelAttr(const std::string& key);

    /// The first child of that name, or null. Grandchildren are not searched. The child still
    /// belongs to this element.
    XMLDeclaration* GetElementByName(const std::string& name) const;

    /// The first child of that name one of whose attributes is `key` with `value`, or null. Every
    /// attribute of that key is tried, not only the first.
    XMLDeclaration* GetElementByAttr(const std::string& name, const std::string& key,
                                     const std::string& value) const;

    /// Decodes the body of the first child whose name is `index` in decimal, as `fromHexString`
    /// does, and returns true. Without such a child returns false and leaves `out` as it is.
    bool GetBinBody(unsigned index, std::string& out) const;

    /// Reads the body of the first child whose name is `index` in decimal as a number, as `strtol`
    /// does in base 10 (0 when there are no digits), and returns true. Without such a child returns
    /// false and leaves `out` as it is.
    ///
    /// Deliberate: the number is cut to its low 32 bits, which count as signed: 4294967297 gives 1.
    bool GetBinBody(unsigned index, long& out) const;

    /// Deletes all children, as the destructor does, and then the attributes and the body. Name and
    /// indent level stay. Takes no memory.
    void EraseAll();

    /// Sets the indent level of the children to `level`, of their children to `level` + 1, and so
    /// on. The element's own level stays. Changes no level when it throws `std::bad_alloc`.
    void FormatLineIndents(unsigned level);

    /// Writes the element and everything below it, each element on lines of its own:
    ///
    ///     <name key="value">
    ///     	<child>body</child>
    ///     </name>
    ///
    /// In attribute values `"` `&` `<` `>` are written as entities, in bodies `&` `<` `>`. Every
    /// line ends with a line feed and a flush. Strings are written up to their first NUL byte.
    /// There is no XML declaration, no self-closing tag and no digest. Failures of `out` are not
    /// noticed, unless it was told to throw.
    ///
    /// The time is proportional to the bytes written; the tabs of a deep tree whose levels
    /// `FormatLineIndents` has set are the square of its depth.
    void Write(std::ostream& out);

    /// Sets `out` to what `Write` writes, after `FormatLineIndents(level)` when `level` is not 0.
    /// The indent levels stay changed. `out` stays unchanged when this throws `std::bad_alloc`.
    void WriteToString(std::string& out, unsigned level);

    /// Reads the content and the end tag of this element, whose start tag has been read.
    ///
    /// A text replaces the body: white space before it is dropped, after it kept. Children are
    /// appended to those that there are: white space before and after them is dropped. An element
    /// without either keeps the body and the children that it has.
    ///
    /// Throws `XMLParserError` or `std::bad_alloc`. A text and the children that were complete
    /// stay; the child that was not complete is deleted.
    ///
    /// Compatibility: after a text, a self-closing tag of this element's name ends the element too,
    /// because existing documents rely on it.
    void Read(std::istream& in);

    /// Reads child elements up to an end tag, which it returns, whatever its name.
    ///
    /// Throws as `Read` does.
    std::unique_ptr<tag> ReadElements(std::istream& in);

private:
    friend class XMLDocument;
    class Deletion;
    class Parser;
    explicit XMLDeclaration(std::unique_ptr<tag> startTag)
        : tag_(std::move(startTag)), indentLevel_(0) {}

    std::unique_ptr<tag> tag_;
    std::vector<XMLDeclaration*> children_;
    std::string body_;
    std::uint32_t indentLevel_;
};

/// A document: the root element, and whether it carries a digest of its content.
///
/// The digest is the MD5 of everything that the document says: of the root its name, the keys and
/// values of its attributes, and its children by the same rule or, when it has none, its body. How
/// that is written (indents, line ends, kinds of quotes, entities, comments) is not part of it. It
/// stands on the root as its last attribute, in 32 lower-case hexadecimal digits. It detects
/// accidents, not attackers: whoever can change the document can change the digest.
class PELORIK_API XMLDocument : public XMLDeclaration {
public:
    /// The key of the attribute that carries the digest: "Hash".
    static const std::string HashAttrKey;

    /// With `useHash`, `Write` adds the digest and `Read` demands and checks it.
    explicit XMLDocument(const std::string& name = std::string(), bool useHash = false)
        : XMLDeclaration(name), useHash_(useHash) {}

    ~XMLDocument() override;

    bool UseHash() const { return useHash_; }  ///< whether `Write` and `Read` care for the digest
    void UseHash(bool use) { useHash_ = use; } ///< changes that, for calls to come

    /// Writes the document as `XMLDeclaration::Write` does, with the digest if it is to have one.
    ///
    /// The digest is an attribute of the root only while this runs, also when it throws.
    /// Deliberate: a root that has an attribute "Hash" of its own has it digested and written like
    /// any other, before the digest; afterwards the old one is gone and the digest stays.
    ///
    /// A body that begins with white space is digested with it, but read without it: with a digest,
    /// such a document cannot be read again.
    void Write(std::ostream& out);

    /// Reads a document from `in` up to its end into this one. What this one has stays: read into a
    /// new document, or call `EraseAll` before.
    ///
    /// The root's first attribute "Hash" is removed when the whole document was read, whether or
    /// not a digest is demanded.
    ///
    /// Compatibility, because existing documents rely on it:
    ///
    /// - An input of one byte is an empty document, which keeps its name. White space may surround
    ///   the byte. It is not white space, `<` or EF; right after a byte order mark it is any byte
    ///   but `<`.
    /// - A decimal reference drops one byte before its digits: `&#065;` is "A".
    /// - `--->` does not end a comment.
    ///
    /// Throws `XMLHashError` when the whole document was read and its digest is missing or wrong,
    /// and `XMLParserError` otherwise:
    ///
    /// - "Unexpected end of stream", followed by ", while 'TEXT' ecpected" in a comment, a quoted
    ///   value or a reference, but not right after `&` and `&#`
    /// - "Read error" when the stream is bad before the first byte or after the root; "stream read
    ///   error" when it yields no byte in between, but has not ended
    /// - "Unexpected symbol, when parsing Byte Order Mark (BOM). UTF-8 only supported: EF BB BF"
    /// - "'<!--' expected", "'<' expected at begining of tag", "'>' expected at end of tag",
    ///   "\"xml\" expected", "\"?>\" expected"
    /// - "'=' expected", also when the stream ends or fails there
    /// - "End of file expected", also when the stream has failed before without being bad or at
    ///   its end
    /// - "NAME [End tag mismatch]" when another element's end tag, and "NAME [End tag expected]"
    ///   when a start tag, is where the element NAME should end
    /// - "Unknown Entity"; "invalid hexadecimal value", "to big hexadecimal value" (above 255), the
    ///   same two with "decimal", and "not printable hexadecimal char" (below 9)
    ///
    /// Each leaves the root's name and attributes as far as they were read, its body, and the
    /// children that were complete. So does `std::bad_alloc`, after which the attribute "Hash" may
    /// be there or not, and its digest is not checked.
    void Read(std::istream& in);

    /// Reads the rest of an XML declaration whose `<` has been taken. Its attributes are neither
    /// checked nor used. Throws `XMLParserError`.
    void processXMLheader(std::istream& in);

    /// Reads the document from the file at `path`. A null path names no file.
    ///
    /// Returns false after one line on standard error when the file cannot be opened ("WARNING:
    /// Can`t open NAME file [PATH] for reading") or read ("PARSE ERROR: [PATH] : MESSAGE"). The
    /// second leaves the document empty, but for the name that it has by then.
    bool Load(const char* path);

    /// Writes the document to the file at `path`, which is made or emptied. A null path names no
    /// file.
    ///
    /// A file that this call makes can be read and written by its owner alone when `restrictAccess`
    /// is true; a file that exists keeps its permissions.
    ///
    /// Returns false after one line on standard error when the file cannot be opened ("ERROR: Can`t
    /// open NAME file [PATH] for writing"). Deliberate: errors in writing are not noticed. Where
    /// they matter, `Write` to a stream of your own, and check it.
    bool Save(const char* path, bool restrictAccess);

private:
    bool useHash_;
};

/// Feeds parts of a document to an MD5 calculation, as its digest is defined: for use with
/// `std::for_each` over a list of attributes or of children.
///
/// Copies feed the same calculation, which must outlive them.
class PELORIK_API XMLHashFunctor {
public:
    /// Feeds `calc`, which must outlive this and its copies.
    explicit XMLHashFunctor(HashMD5_Calc* calc) : calc_(calc) {}

    /// Feeds the key, then the value.
    void operator()(const XMLDeclaration::Attribute& attribute) const;

    /// Feeds the element's name, its attributes, and its children or, when it has none, its body. A
    /// null pointer feeds nothing.
    void operator()(const XMLDeclaration* element) const;

private:
    HashMD5_Calc* calc_;
};

/// Sets `out` to `length` bytes at `data` in lower-case hexadecimal digits, high nibble first.
/// `data` must not lie in `out`.
PELORIK_API void toHexString(std::string& out, const char* data, unsigned long length);

/// Decodes the hexadecimal digits `in`, of either case, to `out`.
///
/// Deliberate: `out` is resized to half the length of `in`, not cleared. Decoding stops at the
/// first pair that is not two digits, and the bytes from there on are those that were there, or
/// zero where it grew. An odd number of digits leaves `out` as it is.
PELORIK_API void fromHexString(std::string& out, const std::string& in);

#endif
