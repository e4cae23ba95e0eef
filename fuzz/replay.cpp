// Feeds a fuzz target every file of the folders named as arguments. A target that finds fault stops
// the process; one that leaves a descriptor or a child process behind makes it fail.

#include "fuzz/target.h"
#include "tests/support/remains.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

namespace {

void replay(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> text{std::istreambuf_iterator<char>(in), {}};
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    std::cout << file.string()
              << std::endl; // said before, so that the culprit is the last one said
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

} // namespace

int main(int argc, char** argv) {
    const support::Remains remains;
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            replay(entry.path());
            ++replayed;
        }
    }
    if (replayed == 0) {
        std::cerr << "There was nothing to replay." << std::endl;
        return 1;
    }
    return remains.found() ? 1 : 0;
}
