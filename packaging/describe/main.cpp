// Writes the tool's manual pages and completions, from what its commands say of themselves.
//
// usage: pelorik_describe DATE PROSE OUT

#include "packaging/describe/described.h"

#include <exception>
#include <iostream>

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: pelorik_describe DATE PROSE OUT\n";
        return 2;
    }
    try {
        const std::filesystem::path out = argv[3];
        const std::vector<describe::Described> commands = describe::describedCommands();
        std::filesystem::remove_all(out);
        describe::writeManual(commands, argv[1], argv[2], out / "man/man1");
        describe::writeFile(out / "bash-completion/completions/pelorik",
                            describe::bashCompletion(commands));
        describe::writeFile(out / "zsh/site-functions/_pelorik", describe::zshCompletion(commands));
        describe::writeFile(out / "fish/vendor_completions.d/pelorik.fish",
                            describe::fishCompletion(commands));
    } catch (const std::exception& error) {
        std::cerr << "pelorik_describe: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
