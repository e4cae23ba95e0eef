#include "digest/hash.h"
#include "tests/digest/calc_without_type_info.h"
#include "tests/support/bytes.h"
#include "tests/support/leak_check.h"
#include "tests/support/peer_digest.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace {

using support::pattern;
using support::upperCase;

using Factory = std::unique_ptr<IHashFactory>;
using Calc = std::unique_ptr<IHash_Calc>;
using Digest = std::unique_ptr<IHash>;

template<class Object>
const std::type_info& typeOf(const std::unique_ptr<Object>& pointer) {
    const Object& object = *pointer;
    return typeid(object);
}

// What is to be known of an algorithm.
struct Algorithm {
    HashFileChecker::Alg code;
    const char* tag;
    std::size_t size; // bytes of digest
    support::Peer peer;
    const std::type_info* factory;
    const std::type_info* calc;
    const std::type_info* digest;

    Factory newFactory() const { return Factory(createHashFactory(code)); }
    std::string prefix() const { return std::string("#") + tag; }
    std::string digits(const std::string& message) const {
        return support::peerDigest(peer, message);
    }
};

using Md5Calc = Hash_Calc<HashMD5_Calc>;
using Gost94Calc = Hash_Calc<HashGOST3411_Calc>;
using Gost2012Calc = Hash_Calc<Hash_Calc_GOST_34_11_2012>;
using Md5Digest = Hash<HashMD5, HashMD5_Calc>;
using Gost94Digest = Hash<HashGOST3411, HashGOST3411_Calc>;
using Gost2012Digest = Hash<Hash_GOST_34_11_2012, Hash_Calc_GOST_34_11_2012>;

const std::vector<Algorithm>& algorithms() {
    static const std::vector<Algorithm> all = {
        {HashFileChecker::MD5, "MD5:", 16, support::Peer::Md5, &typeid(MD5HashFactory),
         &typeid(Md5Calc), &typeid(Md5Digest)},
        {HashFileChecker::GOST_RFC4357, "GOST3411_RFC4357:", 32, support::Peer::Gost94,
         &typeid(GOST_RFC4357HashFactory), &typeid(Gost94Calc), &typeid(Gost94Digest)},
        {HashFileChecker::GOST_3411_2012, "GOST3411_256_2012:", 32, support::Peer::Gost2012Bits256,
         &typeid(GOST_3411_2012HashFactory), &typeid(Gost2012Calc), &typeid(Gost2012Digest)}};
    return all;
}

// Without it, the bytes of the object would be printed, unused ones included.
void PrintTo(const Algorithm& shown, std::ostream* out) {
    *out << shown.tag;
}

class EachAlgorithm : public testing::TestWithParam<Algorithm> {
protected:
    const Algorithm& algorithm_ = GetParam();
    const Factory factory_ = algorithm_.newFactory();
};

INSTANTIATE_TEST_SUITE_P(Digests, EachAlgorithm, testing::ValuesIn(algorithms()),
                         [](const testing::TestParamInfo<Algorithm>& each) {
                             const std::string tag = each.param.tag;
                             return tag.substr(0, tag.size() - 1);
                         });

template<class Expected>
void expectFactory(const std::string& spec) {
    const Factory factory(createHashFactory(spec));
    ASSERT_NE(factory, nullptr) << spec;
    EXPECT_EQ(typeOf(factory), typeid(Expected)) << spec;
}

void expectNoFactory(const std::string& spec) {
    const Factory factory(createHashFactory(spec));
    EXPECT_EQ(factory, nullptr) << spec;
}

TEST(CreateHashFactory, LooksOnlyAtTheBeginningOfAPrefixedText) {
    for (const std::string marker : {"#", "$"}) {
        for (const std::string rest : {"", "12ab", "not a digit", "\n", "#MD5:"}) {
            expectFactory<MD5HashFactory>(marker + "MD5:" + rest);
            expectFactory<GOST_RFC4357HashFactory>(marker + "GOST3411_RFC4357:" + rest);
            expectFactory<GOST_3411_2012HashFactory>(marker + "GOST3411_256_2012:" + rest);
        }
    }
    expectFactory<MD5HashFactory>("#MD5:" + std::string(100000, '0'));
    expectFactory<MD5HashFactory>(std::string("#MD5:\0", 6));
}

TEST(CreateHashFactory, GivesNullForAnUnknownTagHoweverLongTheText) {
    for (const std::string tag : {"", "MD5", "md5:", "MD4:", "MD5 :", " MD5:", "GOST3411_256_2012",
                                  "GOST3411_512_2012:", "gost3411_rfc4357:", "#MD5:", "$MD5:"}) {
        expectNoFactory("#" + tag);
        expectNoFactory("$" + tag);
        for (const std::size_t length : {32U, 64U}) {
            std::string text = "#" + tag;
            text.resize(length, '0');
            expectNoFactory(text);
            text.front() = '$';
            expectNoFactory(text);
        }
    }
}

TEST(CreateHashFactory, JudgesATextWithoutMarkerByItsLengthAlone) {
    expectNoFactory("");
    for (std::size_t length = 1; length <= 130; ++length) {
        const std::string text(length, 'z'); // no hexadecimal digit
        if (length == 32)
            expectFactory<MD5HashFactory>(text);
        else if (length == 64)
            expectFactory<GOST_3411_2012HashFactory>(text);
        else
            expectNoFactory(text);
    }
    expectFactory<MD5HashFactory>(std::string(32, '\0'));
    expectFactory<MD5HashFactory>("MD5:" + std::string(28, '0'));
    expectNoFactory("MD5:" + std::string(32, '0'));
    expectNoFactory(" #MD5:" + std::string(32, '0'));
}

TEST(CreateHashFactory, Deliberate_SixtyFourBareDigitsAreNeverGost94) {
    const std::string digits = support::peerDigest(support::Peer::Gost94, "abc");
    expectFactory<GOST_3411_2012HashFactory>(digits);
}

TEST(CreateHashFactory, GivesNullForAValueThatIsNoAlgorithm) {
    static_assert(std::is_same<std::underlying_type<HashFileChecker::Alg>::type, int>::value);
    static_assert(std::is_convertible<HashFileChecker::Alg, int>::value, "unscoped");
    EXPECT_EQ(static_cast<int>(HashFileChecker::GOST_RFC4357), 0);
    EXPECT_EQ(static_cast<int>(HashFileChecker::MD5), 1);
    EXPECT_EQ(static_cast<int>(HashFileChecker::GOST_3411_2012), 2);
    for (const int value : {-1, 3, 4, 256, INT_MIN, INT_MAX}) {
        const Factory factory(createHashFactory(static_cast<HashFileChecker::Alg>(value)));
        EXPECT_EQ(factory, nullptr) << value;
    }
}

template<class Factory>
void expectMadeElsewhere() {
    EXPECT_FALSE(std::is_default_constructible<Factory>::value);
    EXPECT_FALSE(std::is_copy_constructible<Factory>::value);
    EXPECT_FALSE(std::is_copy_assignable<Factory>::value);
}

TEST(CreateHashFactory, LeavesTheConstructorsOutOfReach) {
    expectMadeElsewhere<MD5HashFactory>();
    expectMadeElsewhere<GOST_RFC4357HashFactory>();
    expectMadeElsewhere<GOST_3411_2012HashFactory>();
}

TEST_P(EachAlgorithm, MakesObjectsOfItsOwnClasses) {
    const Calc calc(factory_->createHashCalc());
    const Digest digest(factory_->createHash("", 0));
    EXPECT_EQ(typeOf(factory_), *algorithm_.factory);
    EXPECT_EQ(typeOf(calc), *algorithm_.calc);
    EXPECT_EQ(typeOf(digest), *algorithm_.digest);
}

TEST_P(EachAlgorithm, HashesABufferInOneStep) {
    for (const std::size_t length : {0U, 1U, 55U, 64U, 1000U}) {
        const std::string message = pattern(length);
        const Digest digest(factory_->createHash(message.data(), message.size()));
        EXPECT_EQ(digest->ToStr(false, false), algorithm_.digits(message)) << length;
    }
    const Digest digest(factory_->createHash(nullptr, 5));
    EXPECT_EQ(digest->ToStr(false, false), algorithm_.digits(""));
}

// Fresh memory is full of what was there before: a new calculator must not depend on it.
TEST_P(EachAlgorithm, ANewCalculatorIsReadyForUse) {
    for (int round = 0; round < 3; ++round) {
        for (std::size_t size = 64; size < 512; size += 16)
            std::fill_n(std::make_unique<volatile char[]>(size).get(), size, '\xa5');
        const Calc calc(factory_->createHashCalc());
        calc->Update("abc", 3);
        const Digest digest(factory_->createHash(*calc, true));
        EXPECT_EQ(digest->ToStr(false, false), algorithm_.digits("abc"));
    }
}

TEST_P(EachAlgorithm, ForwardsUpdatesUnchanged) {
    const Calc calc(factory_->createHashCalc());
    calc->Update(nullptr, 9);
    calc->Update("", 0);
    calc->Update(pattern(64).data(), 64);
    calc->Update("end", 3);
    const Digest digest(factory_->createHash(*calc, true));
    EXPECT_EQ(digest->ToStr(false, false), algorithm_.digits(pattern(64) + "end"));
}

TEST_P(EachAlgorithm, FinishesACopyOrTheCalculatorItself) {
    const Calc calc(factory_->createHashCalc());
    calc->Update(pattern(64).data(), 64);
    const Digest early(factory_->createHash(*calc, false));
    calc->Update("more", 4);
    const Digest late(factory_->createHash(*calc, true));
    EXPECT_EQ(early->ToStr(false, false), algorithm_.digits(pattern(64)));
    EXPECT_EQ(late->ToStr(false, false), algorithm_.digits(pattern(64) + "more"));
}

// Finishing in place feeds the padding into the calculator (GOST R 34.11-2012 has its own rule: it
// finishes once).
TEST(Md5Factory, FinishingInPlaceSpendsTheCalculator) {
    const Factory factory(createHashFactory(HashFileChecker::MD5));
    const Calc calc(factory->createHashCalc());
    const Digest first(factory->createHash(*calc, true));
    const Digest second(factory->createHash(*calc, true));
    EXPECT_NE(first->ToStr(false, false), second->ToStr(false, false));
}

class ForeignCalc : public IHash_Calc {
public:
    void Update(const void*, std::size_t) override {}
};

TEST_P(EachAlgorithm, RefusesTheCalculatorOfAnother) {
    for (const Algorithm& other : algorithms()) {
        if (other.code == algorithm_.code)
            continue;
        const Factory its = other.newFactory();
        const Calc calc(its->createHashCalc());
        calc->Update("abc", 3);
        EXPECT_THROW(factory_->createHash(*calc, false), std::bad_cast);
        EXPECT_THROW(factory_->createHash(*calc, true), std::bad_cast);
        const Digest digest(its->createHash(*calc, true));
        EXPECT_EQ(digest->ToStr(false, false), other.digits("abc"));
    }
    ForeignCalc foreign;
    EXPECT_THROW(factory_->createHash(foreign, true), std::bad_cast);
}

TEST_P(EachAlgorithm, RefusesACalculatorOfAClassWithoutTypeInformation) {
    EXPECT_THROW(factory_->createHash(calcWithoutTypeInfo(), false), std::bad_cast);
    EXPECT_THROW(factory_->createHash(calcWithoutTypeInfo(), true), std::bad_cast);
}

TEST_P(EachAlgorithm, AcceptsTheCalculatorOfAnotherFactoryOfItsKind) {
    const Calc calc(algorithm_.newFactory()->createHashCalc());
    calc->Update("abc", 3);
    const Digest digest(factory_->createHash(*calc, true));
    EXPECT_EQ(digest->ToStr(false, false), algorithm_.digits("abc"));
}

TEST_P(EachAlgorithm, ShowsItsSizeAndRawBytes) {
    const Digest digest(factory_->createHash("abc", 3));
    EXPECT_EQ(digest->GetHashSize(), algorithm_.size);
    EXPECT_EQ(support::toHex(digest->Digest(), algorithm_.size), algorithm_.digits("abc"));
    EXPECT_EQ(digest->Digest(), digest->Digest());
}

TEST_P(EachAlgorithm, ToStr_WritesEitherCaseWithAndWithoutPrefix) {
    const Digest digest(factory_->createHash("abc", 3));
    const std::string lower = algorithm_.digits("abc");
    EXPECT_EQ(digest->ToStr(false, false), lower);
    EXPECT_EQ(digest->ToStr(true, false), upperCase(lower));
    EXPECT_EQ(digest->ToStr(false, true), algorithm_.prefix() + lower);
    EXPECT_EQ(digest->ToStr(true, true), algorithm_.prefix() + upperCase(lower));
}

TEST_P(EachAlgorithm, ToStr_WritesTheHashMarkWhicheverTheFactoryWasAskedBy) {
    const Factory factory(createHashFactory(std::string("$") + algorithm_.tag));
    const Digest digest(factory->createHash("abc", 3));
    EXPECT_EQ(digest->ToStr(false, true), algorithm_.prefix() + algorithm_.digits("abc"));
}

TEST_P(EachAlgorithm, Check_AcceptsItsDigitsWithEitherMarkerOrNone) {
    const Digest digest(factory_->createHash("abc", 3));
    const std::string lower = algorithm_.digits("abc");
    const std::string tag = algorithm_.tag;
    for (const std::string& prefix : {std::string(), "#" + tag, "$" + tag}) {
        EXPECT_TRUE(digest->Check(prefix + lower, false));
        EXPECT_FALSE(digest->Check(prefix + lower, true));
        EXPECT_TRUE(digest->Check(prefix + upperCase(lower), true));
        EXPECT_FALSE(digest->Check(prefix + upperCase(lower), false));
    }
}

TEST_P(EachAlgorithm, Check_RefusesAnythingBehindTheDigitsOrMissing) {
    const Digest digest(factory_->createHash("abc", 3));
    const std::string lower = algorithm_.digits("abc");
    for (const std::string& prefix : {std::string(), algorithm_.prefix()}) {
        const std::string text = prefix + lower;
        EXPECT_FALSE(digest->Check(text + "\n", false));
        EXPECT_FALSE(digest->Check(text + "0", false));
        EXPECT_FALSE(digest->Check(text + " ", false));
        EXPECT_FALSE(digest->Check(text + '\0', false));
        EXPECT_FALSE(digest->Check(text + '\0' + text, false));
        EXPECT_FALSE(digest->Check(text.substr(0, text.size() - 1), false));
        EXPECT_FALSE(digest->Check(" " + text, false));
    }
    std::string mixed = lower;
    char& letter = mixed[mixed.find_first_of("abcdef")];
    letter = static_cast<char>(letter - 'a' + 'A');
    EXPECT_FALSE(digest->Check(mixed, false));
    EXPECT_FALSE(digest->Check(mixed, true));
    EXPECT_FALSE(digest->Check(std::string(lower.size(), '\0'), false));
}

TEST_P(EachAlgorithm, Check_RefusesATextThatIsShorterThanThePrefix) {
    const Digest digest(factory_->createHash("abc", 3));
    const std::string prefix = algorithm_.prefix();
    for (std::size_t length = 0; length <= prefix.size(); ++length) {
        // A string of its own, without room to spare, so that reading past its end shows.
        const std::string text = prefix.substr(0, length);
        EXPECT_FALSE(digest->Check(text, false)) << length;
        EXPECT_FALSE(digest->Check(text, true)) << length;
    }
}

TEST_P(EachAlgorithm, Check_RefusesTheTagOfAnother) {
    const Digest digest(factory_->createHash("abc", 3));
    const std::string lower = algorithm_.digits("abc");
    for (const Algorithm& other : algorithms()) {
        if (other.code != algorithm_.code) {
            EXPECT_FALSE(digest->Check(other.prefix() + lower, false)) << other.tag;
            EXPECT_FALSE(digest->Check(std::string("$") + other.tag + lower, false)) << other.tag;
        }
    }
    std::string tag = algorithm_.tag;
    EXPECT_FALSE(digest->Check("%" + tag + lower, false));
    EXPECT_FALSE(digest->Check(tag + lower, false));
    EXPECT_FALSE(digest->Check("##" + lower, false));
    tag[0] = static_cast<char>(tag[0] - 'A' + 'a');
    EXPECT_FALSE(digest->Check("#" + tag + lower, false));
    EXPECT_FALSE(digest->Check("$" + tag + lower, false));
}

// Digests made by hand, each with a prefix of the caller's. The digits are RFC 1321's of "abc".
class DigestWithPrefix : public testing::Test {
protected:
    void expectChecked(const std::string& prefix, const std::string& text, bool expected) {
        const Md5Digest digest(prefix, HashMD5("abc", 3));
        EXPECT_EQ(digest.Check(text, false), expected) << '"' << prefix << "\" " << text;
        EXPECT_FALSE(digest.Check(text, true)) << '"' << prefix << "\" " << text;
    }

    const std::string digits_ = "900150983cd24fb0d6963f7d28e17f72";
};

TEST_F(DigestWithPrefix, Check_WithAnEmptyPrefixIsFalseForTextWithAMarker) {
    for (const std::string marker : {"#", "$"}) {
        expectChecked("", marker, false);
        expectChecked("", marker + digits_, false);
        expectChecked("", marker + "MD5:" + digits_, false);
    }
    expectChecked("", digits_, true);
    expectChecked("", "", false);
}

TEST_F(DigestWithPrefix, Check_ComparesThePrefixAfterItsMarker) {
    for (const std::string marker : {"#", "$"}) {
        expectChecked("#", marker + digits_, true);
        expectChecked("#", marker + ":" + digits_, false);
        expectChecked("#A:", marker + "A:" + digits_, true);
        expectChecked("#A:", marker + "B:" + digits_, false);
        expectChecked("#A:", marker + "A", false);
    }
    expectChecked("#A:", digits_, true);
}

// The empty input's digest is RFC 1321's.
TEST(Md5Factory, ChecksTheDigestOfTheEmptyInput) {
    const Factory factory(createHashFactory("#MD5:"));
    const Digest digest(factory->createHash("", 0));
    const std::string lower = "d41d8cd98f00b204e9800998ecf8427e";
    EXPECT_EQ(digest->ToStr(false, true), "#MD5:" + lower);
    EXPECT_EQ(digest->ToStr(true, false), "D41D8CD98F00B204E9800998ECF8427E");
    EXPECT_TRUE(digest->Check("$MD5:" + lower, false));
    EXPECT_FALSE(digest->Check("#GOST3411_RFC4357:" + lower, false));
    EXPECT_FALSE(digest->Check(lower.substr(1), false));
}

// The layout of the objects, read from their memory.
const char* memoryOf(const void* object) {
    return static_cast<const char*>(object);
}

const void* pointerAt(const void* object, std::size_t offset) {
    const void* pointer;
    std::memcpy(&pointer, memoryOf(object) + offset, sizeof pointer);
    return pointer;
}

TEST_P(EachAlgorithm, ADigestPointsToItsFactorysPrefix) {
    const Digest digest(factory_->createHash("abc", 3));
    const void* const prefix = memoryOf(factory_.get()) + sizeof(void*);
    EXPECT_EQ(*static_cast<const std::string*>(prefix), algorithm_.prefix());
    EXPECT_EQ(pointerAt(digest.get(), sizeof(void*)), prefix);
    EXPECT_EQ(static_cast<const void*>(digest->Digest()),
              memoryOf(digest.get()) + 2 * sizeof(void*));
}

TEST_P(EachAlgorithm, ADigestOfACalculatorPointsToTheFactoryThatFinishedIt) {
    const Calc calc(algorithm_.newFactory()->createHashCalc());
    const Digest digest(factory_->createHash(*calc, false));
    EXPECT_EQ(pointerAt(digest.get(), sizeof(void*)), memoryOf(factory_.get()) + sizeof(void*));
}

TEST(Interfaces, KeepTheirSizes) {
    EXPECT_EQ(sizeof(MD5HashFactory), sizeof(void*) + sizeof(std::string));
    EXPECT_EQ(sizeof(GOST_RFC4357HashFactory), sizeof(void*) + sizeof(std::string));
    EXPECT_EQ(sizeof(GOST_3411_2012HashFactory), sizeof(void*) + sizeof(std::string));
    EXPECT_EQ(sizeof(Md5Calc), sizeof(void*) + sizeof(HashMD5_Calc));
    EXPECT_EQ(sizeof(Gost94Calc), sizeof(void*) + sizeof(HashGOST3411_Calc));
    EXPECT_EQ(sizeof(Gost2012Calc), sizeof(void*) + sizeof(Hash_Calc_GOST_34_11_2012));
    EXPECT_EQ(sizeof(Md5Digest), 2 * sizeof(void*) + 16);
    EXPECT_EQ(sizeof(Gost94Digest), 2 * sizeof(void*) + 32);
    EXPECT_EQ(sizeof(Gost2012Digest), 2 * sizeof(void*) + 32);
    EXPECT_EQ(sizeof(IHashFactory), sizeof(void*));
}

// A virtual operation called by the number of its slot, as a caller compiled long ago does.
template<class Result, class... Arguments>
Result callSlot(std::size_t slot, const void* object, Arguments... arguments) {
    using Function = Result (*)(const void*, Arguments...);
    const auto* const table = static_cast<const Function*>(pointerAt(object, 0));
    return table[slot](object, arguments...);
}

void* createByFactory(const Factory& factory, std::size_t slot) {
    return callSlot<void*>(slot, factory.get());
}

// The compiler gives a virtual destructor two slots: one that destroys and one that also frees.
TEST_P(EachAlgorithm, KeepsTheSlotsOfItsFactory) {
    const Calc calc(static_cast<IHash_Calc*>(createByFactory(factory_, 0)));
    EXPECT_EQ(typeOf(calc), *algorithm_.calc);

    const Digest whole(callSlot<IHash*, const void*, std::size_t>(1, factory_.get(), "abc", 3));
    EXPECT_EQ(whole->ToStr(false, false), algorithm_.digits("abc"));

    calc->Update("xyz", 3);
    const Digest fed(callSlot<IHash*, IHash_Calc*, bool>(2, factory_.get(), calc.get(), true));
    EXPECT_EQ(fed->ToStr(false, false), algorithm_.digits("xyz"));

    callSlot<void>(4, algorithm_.newFactory().release()); // a leak tells when it is not this one
}

TEST_P(EachAlgorithm, KeepsTheSlotsOfItsCalculator) {
    Calc calc(factory_->createHashCalc());
    callSlot<void, const void*, std::size_t>(2, calc.get(), "abc", 3);
    const Digest digest(factory_->createHash(*calc, false));
    EXPECT_EQ(digest->ToStr(false, false), algorithm_.digits("abc"));
    callSlot<void>(1, calc.release());
}

TEST_P(EachAlgorithm, KeepsTheSlotsOfItsDigest) {
    Digest digest(factory_->createHash("abc", 3));
    const std::string text = digest->ToStr(false, true);
    EXPECT_EQ((callSlot<std::size_t>(2, digest.get())), algorithm_.size);
    EXPECT_EQ((callSlot<std::string, bool, bool>(3, digest.get(), false, true)), text);
    EXPECT_TRUE((callSlot<bool, const std::string*, bool>(4, digest.get(), &text, false)));
    EXPECT_FALSE((callSlot<bool, const std::string*, bool>(4, digest.get(), &text, true)));
    EXPECT_EQ((callSlot<const unsigned char*>(5, digest.get())), digest->Digest());
    callSlot<void>(1, digest.release());
}

// A class of ours in the library's hands, and its class names across the boundary.
TEST(Interfaces, CastAcrossTheLibrarysBoundary) {
    for (const Algorithm& algorithm : algorithms()) {
        const Factory factory = algorithm.newFactory();
        const Calc calc(factory->createHashCalc());
        EXPECT_EQ(dynamic_cast<Md5Calc*>(calc.get()) != nullptr,
                  algorithm.code == HashFileChecker::MD5);
        EXPECT_EQ(dynamic_cast<MD5HashFactory*>(factory.get()) != nullptr,
                  algorithm.code == HashFileChecker::MD5);
        const Digest digest(factory->createHash("", 0));
        EXPECT_EQ(dynamic_cast<Gost94Digest*>(digest.get()) != nullptr,
                  algorithm.code == HashFileChecker::GOST_RFC4357);
    }
}

TEST_P(EachAlgorithm, OneFactoryServesManyThreads) {
    support::allowLeaks(); // what the system keeps of a finished thread
    std::vector<std::string> texts(4);
    std::vector<std::thread> threads;
    for (std::string& text : texts) {
        threads.emplace_back([&] {
            const Calc calc(factory_->createHashCalc());
            for (int i = 0; i < 100; ++i)
                calc->Update(pattern(96).data(), 96);
            const Digest digest(factory_->createHash(*calc, true));
            text = digest->ToStr(false, false);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::string message;
    for (int i = 0; i < 100; ++i)
        message += pattern(96);
    for (const std::string& text : texts)
        EXPECT_EQ(text, algorithm_.digits(message));
}

} // namespace
