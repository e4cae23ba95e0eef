// Time against size: files, many small files, and documents. growth.py fits the exponents.

#include "bench/xml_document.h"
#include "checker/hashfile_checker.h"
#include "config/vpnxml.h"

#include <benchmark/benchmark.h>
#include <filesystem>
#include <fstream>
#include <list>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <vector>

namespace {

using Records = std::list<HashFileChecker::FileHashPair>;

// A folder that goes with the process, and the files in it.
class Folder {
public:
    Folder() {
        std::string path = std::filesystem::temp_directory_path() / "pelorik-bench-XXXXXX";
        if (mkdtemp(path.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        path_ = path;
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { std::filesystem::remove_all(path_); }

    // A file that takes no room on the disk, however large.
    std::string sparseFile(std::size_t size) const {
        std::string path = path_ / ("sparse" + std::to_string(size));
        std::ofstream(path).close();
        std::filesystem::resize_file(path, size);
        return path;
    }

    // The records of so many files of 1 KiB.
    Records smallFiles(std::size_t count) const {
        Records records;
        std::filesystem::create_directory(path_ / std::to_string(count));
        for (std::size_t i = 0; i < count; ++i) {
            const std::string path = path_ / std::to_string(count) / std::to_string(i);
            std::ofstream(path) << std::string(1024, static_cast<char>(i));
            std::string hash;
            HashFileChecker::CalcHash(path, "", hash);
            records.push_back({path, hash, {}});
        }
        return records;
    }

private:
    std::filesystem::path path_;
};

const Folder& folder() {
    static const Folder made;
    return made;
}

void hashFile(const std::string& path, const IHashFactory& factory) {
    const std::unique_ptr<IHash_Calc> calc(factory.createHashCalc());
    HashFileChecker::GetFileHash(path.c_str(), *calc);
    delete factory.createHash(*calc, true);
}

// `prepare` is called with the size, before the clock runs, and returns the work.
template<class Prepare>
void enter(const std::string& what, const std::vector<std::size_t>& sizes, Prepare prepare) {
    for (const std::size_t size : sizes) {
        const std::string name = what + "/" + std::to_string(size) + "/pelorik";
        benchmark::RegisterBenchmark(name.c_str(), [prepare, size](benchmark::State& state) {
            const auto work = prepare(size);
            for (auto _ : state)
                work();
        });
    }
}

void enterHash(const std::string& name, HashFileChecker::Alg algorithm) {
    const std::shared_ptr<IHashFactory> factory(createHashFactory(algorithm));
    enter("hash-" + name, {64, 4 << 10, 256 << 10, 16 << 20, 1 << 30, std::size_t{16} << 30},
          [factory](std::size_t size) {
              return [factory, path = folder().sparseFile(size)] { hashFile(path, *factory); };
          });
}

void checkAll(const Records& records) {
    std::ostringstream out;
    if (HashFileChecker::CheckFiles(records, out, nullptr, false) != 0)
        throw std::runtime_error(out.str());
}

void readDocument(const std::string& content) {
    std::istringstream in(content);
    XMLDocument document;
    document.Read(in);
}

const bool registered = [] {
    enterHash("md5", HashFileChecker::MD5);
    enterHash("gost94", HashFileChecker::GOST_RFC4357);
    enterHash("gost2012", HashFileChecker::GOST_3411_2012);
    enter("check", {10, 1000, 100000}, [](std::size_t count) {
        return [records = folder().smallFiles(count)] { checkAll(records); };
    });
    enter("xml", {2 << 10, 64 << 10, 2 << 20, 100 << 20}, [](std::size_t size) {
        return [content = bench::xmlDocument(size)] { readDocument(content); };
    });
    return true;
}();

} // namespace
