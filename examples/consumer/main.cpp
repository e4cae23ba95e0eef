// Prints the digests of the files that it is given, a document that carries its own digest, and
// which of the host's network interfaces are tunnels.

#include "checker/hashfile_checker.h"
#include "config/vpnxml.h"
#include "system/netinterface.h"
#include "text/agstr.h"

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

bool printDigest(const std::string& file) {
    std::string text;
    const bool readable = HashFileChecker::CalcHash(file, "#GOST3411_256_2012:", text);
    std::cout << file << '=' << (readable ? text : "not readable") << '\n';
    return readable;
}

std::string sealedDocument() {
    XMLDocument document;
    std::istringstream in("<agent><server>gate.example</server></agent>");
    document.Read(in); // as it stands: this one has no digest yet
    document.UseHash(true);
    std::ostringstream out;
    document.Write(out);
    return out.str();
}

} // namespace

int main(int count, char** arguments) {
    bool good = true;
    for (int i = 1; i < count; ++i)
        good = printDigest(arguments[i]) && good;

    std::cout << sealedDocument();

    std::vector<vpnfc::NetInterfaceInfo> interfaces;
    if (!vpnfc::CollectNetInterfaceInfo(interfaces)) {
        std::cerr << "the kernel does not tell its interfaces\n";
        return 1;
    }
    const AGStr matcher;
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        if (matcher.Match("tun*", interfaces[i].name.c_str()))
            std::cout << interfaces[i].name << " is a tunnel\n";
    }
    return good ? 0 : 1;
}
