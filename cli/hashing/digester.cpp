#include "cli/hashing/digester.h"

#include "cli/process/error.h"

#include <algorithm>

namespace cli {

HashFileChecker::Alg algorithmNamed(const std::string& name) {
    if (name == "md5")
        return HashFileChecker::MD5;
    if (name == "gost94")
        return HashFileChecker::GOST_RFC4357;
    if (name == "gost2012")
        return HashFileChecker::GOST_3411_2012;
    throw UsageError("unknown algorithm '" + name + "': it is one of " + kAlgorithmNames);
}

Digester::Digester(const std::vector<HashFileChecker::Alg>& algorithms)
    : buffer_(std::make_unique<std::array<unsigned char, kBlock>>()) {
    for (const HashFileChecker::Alg algorithm : algorithms)
        factories_.push_back(std::unique_ptr<IHashFactory>(createHashFactory(algorithm)));
}

std::uint64_t Digester::read(FileSource& source, Progress& progress, std::uint64_t limit) {
    calculators_.clear();
    for (const auto& factory : factories_)
        calculators_.push_back(std::unique_ptr<IHash_Calc>(factory->createHashCalc()));
    std::uint64_t total = 0;
    while (total < limit) {
        const auto wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(kBlock, limit - total));
        const std::size_t count = source.read(buffer_->data(), wanted);
        for (const auto& calculator : calculators_)
            calculator->Update(buffer_->data(), count);
        progress.addBytes(count);
        total += count;
        if (count < wanted)
            break;
    }
    return total;
}

std::vector<std::unique_ptr<IHash>> Digester::digests() const {
    std::vector<std::unique_ptr<IHash>> digests;
    for (std::size_t i = 0; i < factories_.size(); ++i)
        digests.push_back(
            std::unique_ptr<IHash>(factories_[i]->createHash(*calculators_[i], true)));
    return digests;
}

} // namespace cli
