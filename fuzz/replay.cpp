// Feeds a fuzz target every file of the folders named as arguments. A target that finds fault stops
// the process; one that leaves a descriptor or a child process behind makes it fail.

#include "fuzz/target.h"
#include "tests/support/leak_check.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <span>
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

std::vector<std::filesystem::path> filesIn(std::span<char*> folders) {
    std::vector<std::filesystem::path> files;
    for (const char* const folder : folders) {
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            files.push_back(entry.path());
    }
    return files;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::filesystem::path> files = filesIn({argv + 1, argv + argc});
    if (files.empty()) {
        std::cerr << "There was nothing to replay." << std::endl;
        return 1;
    }
    replay(files.front()); // with the first input a target makes what it keeps
    const support::LeakCheck leaks;
    std::for_each(files.begin() + 1, files.end(), replay);
    return leaks.found() ? 1 : 0;
}
