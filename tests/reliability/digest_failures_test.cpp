// The digests where memory ends. They call the system for nothing.

#include "digest/hash.h"
#include "tests/support/every_fault.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace {

using support::CallKind;
using support::failEveryCall;
using support::kNoMemory;

constexpr HashFileChecker::Alg kAlgorithms[] = {HashFileChecker::GOST_RFC4357, HashFileChecker::MD5,
                                                HashFileChecker::GOST_3411_2012};

using Factory = std::unique_ptr<IHashFactory>;
using Calc = std::unique_ptr<IHash_Calc>;
using Digest = std::unique_ptr<IHash>;

void expectOnlyMemoryToMatter(const support::Scenario& scenario) {
    EXPECT_GT(failEveryCall(CallKind::kMemory, scenario, {kNoMemory}), 0);
    EXPECT_EQ(failEveryCall(CallKind::kSystem, scenario, {}), 0);
}

std::string digestInPieces(const IHashFactory& factory) {
    const Calc calc(factory.createHashCalc());
    calc->Update(std::string(100, 'x').data(), 100);
    const Digest early(factory.createHash(*calc, false));
    calc->Update("y", 1);
    const Digest late(factory.createHash(*calc, true));
    return early->ToStr(true, true) + (late->Check(late->ToStr(false, true), false) ? "+" : "-");
}

TEST(DigestFailures, CalculatorsAreWholeOrThrow) {
    for (const HashFileChecker::Alg algorithm : kAlgorithms)
        expectOnlyMemoryToMatter(
            [=] { return digestInPieces(*Factory(createHashFactory(algorithm))); });
}

TEST(DigestFailures, DigestsOfBuffersAreWholeOrThrow) {
    for (const HashFileChecker::Alg algorithm : kAlgorithms) {
        expectOnlyMemoryToMatter([=] {
            const Factory factory(createHashFactory(algorithm));
            const Digest digest(factory->createHash("abc", 3));
            return digest->ToStr(false, true);
        });
    }
}

TEST(DigestFailures, FactoriesOfTextsAreMadeOrThrow) {
    const std::string bare(64, '0');
    for (const std::string& text : {std::string("$MD5:"), std::string("#GOST3411_RFC4357:"),
                                    std::string("#GOST3411_256_2012:"), bare}) {
        expectOnlyMemoryToMatter(
            [&] { return Factory(createHashFactory(text)) ? "a factory" : "none"; });
    }
}

TEST(DigestFailures, CalculatorsOfOtherAlgorithmsAreRefusedOrMemoryEnds) {
    expectOnlyMemoryToMatter([] {
        const Factory factory(createHashFactory(HashFileChecker::MD5));
        const Factory other(createHashFactory(HashFileChecker::GOST_3411_2012));
        const Calc calc(other->createHashCalc());
        try {
            return Digest(factory->createHash(*calc, true)) ? "a digest" : "none";
        } catch (const std::bad_cast&) {
            return "refused";
        }
    });
}

} // namespace
