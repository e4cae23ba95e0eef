#include "digest/hash.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <typeinfo>

namespace {

using Factory = std::unique_ptr<IHashFactory>;
using Calc = std::unique_ptr<IHash_Calc>;
using Digest = std::unique_ptr<IHash>;

template<class Expected>
void expectFactory(const std::string& spec) {
    const Factory factory(createHashFactory(spec));
    EXPECT_NE(dynamic_cast<Expected*>(factory.get()), nullptr) << spec;
}

void expectNoFactory(const std::string& spec) {
    const Factory factory(createHashFactory(spec));
    EXPECT_EQ(factory, nullptr) << spec;
}

TEST(CreateHashFactory, LooksOnlyAtTheBeginningOfAPrefixedText) {
    expectFactory<MD5HashFactory>("#MD5:");
    expectFactory<MD5HashFactory>("$MD5:12ab");
    expectFactory<GOST_RFC4357HashFactory>("#GOST3411_RFC4357:");
}

TEST(CreateHashFactory, GivesNullForUnknownTags) {
    expectNoFactory("");
    expectNoFactory("#");
    expectNoFactory("#" + std::string(31, '0'));
}

} // namespace
