// INI text to look-up. inih keeps nothing: it fills the same maps as ours. glib takes the text
// whole.

#include "bench/race.h"
#include "config/inifile.h"

#define SI_NO_CONVERSION
#include <SimpleIni.h>
#include <cstring>
#include <glib.h>
#include <ini.h>
#include <map>
#include <memory>
#include <sstream>
#include <string>

namespace {

std::string document(std::size_t size) {
    std::string text;
    for (unsigned i = 0; text.size() < size; ++i) {
        if (i % 12 == 0)
            text += "\n# group\n[tunnel-" + std::to_string(i / 12) + "]\n";
        text += "option_" + std::to_string(i % 12) + " = value number " + std::to_string(i) +
                " with words\n";
    }
    return text;
}

using Groups = std::map<std::string, std::map<std::string, std::string>>;

char* readLine(char* line, int size, void* in) {
    auto& stream = *static_cast<std::istream*>(in);
    if (!stream.getline(line, size - 1))
        return nullptr;
    std::strcat(line, "\n");
    return line;
}

int store(void* groups, const char* group, const char* name, const char* value) {
    (*static_cast<Groups*>(groups))[group][name] = value;
    return 1;
}

void inihs(const std::string& content) {
    std::istringstream in(content);
    Groups groups;
    ini_parse_stream(readLine, &in, store, &groups);
}

void simpleInis(const std::string& content) {
    CSimpleIniA ini;
    ini.LoadData(content);
}

void glibs(const std::string& content) {
    GKeyFile* const file = g_key_file_new();
    g_key_file_load_from_data(file, content.data(), content.size(), G_KEY_FILE_NONE, nullptr);
    g_key_file_free(file);
}

void ours(const std::string& content) {
    std::istringstream in(content);
    const IniFile ini(in);
}

const bool registered = [] {
    for (const std::size_t size : {std::size_t{2048}, std::size_t{10} << 20}) {
        const auto content = std::make_shared<std::string>(document(size));
        bench::enter("ini", size, "pelorik", [content] { ours(*content); });
        bench::enter("ini", size, "simpleini", [content] { simpleInis(*content); });
        bench::enter("ini", size, "inih", [content] { inihs(*content); });
        bench::enter("ini", size, "glib", [content] { glibs(*content); });
    }
    return true;
}();

} // namespace
