// An XML document such as a configuration, of about so many bytes.

#ifndef PELORIK_BENCH_XML_DOCUMENT_H
#define PELORIK_BENCH_XML_DOCUMENT_H

#include <cstddef>
#include <string>

namespace bench {

inline std::string xmlDocument(std::size_t size) {
    std::string text = "<?xml version=\"1.0\"?>\n<config version=\"3\">\n";
    for (unsigned i = 0; text.size() < size; ++i) {
        const std::string number = std::to_string(i);
        text += "\t<server id=\"" + number + "\" name=\"gate-" + number +
                ".example\">\n\t\t<address proto=\"udp\" port=\"" + std::to_string(4500 + i % 100) +
                "\">10." + std::to_string(i % 200) + ".7." + std::to_string(i % 250) +
                "</address>\n\t\t<note>primary &amp; backup, line " + number +
                "</note>\n\t</server>\n";
    }
    return text + "</config>\n";
}

} // namespace bench

#endif
