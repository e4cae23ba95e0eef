// One file of 512 MiB in the page cache, beside the same bytes in memory.

#include "bench/race.h"
#include "bench/switchable_roads.h"
#include "checker/hashfile_checker.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <unistd.h>

namespace {

constexpr std::size_t kSize = std::size_t{512} << 20;

// A file of kSize bytes that goes with the process.
class BigFile {
public:
    BigFile() {
        const int descriptor = mkstemp(path_);
        std::ofstream out(path_, std::ios::binary);
        for (std::size_t done = 0; done < kSize; done += content_.size())
            out.write(content_.data(), static_cast<std::streamsize>(content_.size()));
        close(descriptor);
    }
    BigFile(const BigFile&) = delete;
    BigFile& operator=(const BigFile&) = delete;
    ~BigFile() { unlink(path_); }

    const char* path() const { return path_; }

private:
    char path_[32] = "/tmp/pelorik-bench-XXXXXX";
    std::string content_ = std::string(1 << 20, 'x');
};

void hashFile(const IHashFactory& factory) {
    static const BigFile file;
    const std::unique_ptr<IHash_Calc> calc(factory.createHashCalc());
    HashFileChecker::GetFileHash(file.path(), *calc);
    delete factory.createHash(*calc, true);
}

void hashMemory(const IHashFactory& factory) {
    static const std::string content(kSize, 'x');
    delete factory.createHash(content.data(), content.size());
}

void enter(const std::string& what, HashFileChecker::Alg algorithm, bool roads) {
    const std::shared_ptr<IHashFactory> factory(createHashFactory(algorithm));
    const char* const who = roads ? "pelorik-avx512" : "pelorik-portable";
    bench::enter(what, kSize, who, [factory, roads] {
        bench::openRoads(roads);
        hashFile(*factory);
    })->Iterations(1);
    bench::enter(what, kSize, roads ? "memory-avx512" : "memory-portable", [factory, roads] {
        bench::openRoads(roads);
        hashMemory(*factory);
    })->Iterations(1);
}

void enterBoth(const char* what, HashFileChecker::Alg algorithm) {
    if (bench::hasRoad(what))
        enter(what, algorithm, true);
    enter(what, algorithm, false);
}

const bool registered = [] {
    enterBoth("file-md5", HashFileChecker::MD5);
    enterBoth("file-gost94", HashFileChecker::GOST_RFC4357);
    enterBoth("file-gost2012", HashFileChecker::GOST_3411_2012);
    return true;
}();

} // namespace
