// A folder of a test's own.

#ifndef PELORIK_TESTS_SUPPORT_TEMPORARY_FOLDER_H
#define PELORIK_TESTS_SUPPORT_TEMPORARY_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace support {

// An empty folder that anybody may write to; it goes away with the object.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "pelorik-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        path_ = name;
        std::filesystem::permissions(path_, std::filesystem::perms::all);
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }

    // The path of the entry `name`, which need not exist.
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

inline std::string contentOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

inline void putFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

} // namespace support

#endif
