#include "tests/support/scratch.h"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <stdlib.h>
#include <unistd.h>

namespace support {

namespace {

constexpr uid_t kNobody = 65534;

} // namespace

ScratchDirectory::ScratchDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "pelorik-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("mkdtemp: " + name);
    path_ = name;
    std::filesystem::permissions(path_, std::filesystem::perms(0755));
}

ScratchDirectory::~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string ScratchDirectory::write(const std::string& name, const std::string& content) const {
    const std::filesystem::path file = path_ / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file.string();
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

CurrentDirectory::CurrentDirectory(const std::string& path)
    : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
}

CurrentDirectory::~CurrentDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(before_, ignored);
}

OrdinaryUser::OrdinaryUser() : before_(geteuid()) {
    if (before_ == 0 && seteuid(kNobody) != 0)
        throw std::runtime_error("seteuid");
}

OrdinaryUser::~OrdinaryUser() {
    if (seteuid(before_) != 0)
        std::terminate();
}

} // namespace support
