// XML documents read and written as strictly as a tool has to: nothing is lost on the way without a
// word.

#ifndef PELORIK_CLI_XML_TEXT_H
#define PELORIK_CLI_XML_TEXT_H

#include "config/vpnxml.h"

#include <memory>
#include <string>

namespace cli {

// Reads the document in the file `name` ("-" is standard input), whose digest is demanded when
// `useHash` is set. Throws `Refusal` when the text is no document, with the place where reading
// stopped, or when the digest does not hold; `Failure` when the file cannot be read.
//
// A text without any element, which the library would take for an empty document, is refused.
std::unique_ptr<XMLDocument> readDocument(const std::string& name, bool useHash);

// The text of `document` with a digest.
std::string sealedText(XMLDocument& document);

// Reads `sealed`, the text of a document with a digest, and throws `Refusal` when it is not the
// document any more that was written. `name` is the file that the document came from.
void requireReadsBack(std::istream& sealed, const std::string& name);

} // namespace cli

#endif
