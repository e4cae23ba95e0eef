#include "digest/hash.h"

#include <cstring>
#include <memory>
#include <string_view>
#include <typeinfo>

namespace {

constexpr std::string_view kMarkers = "#$";

constexpr char kMd5Prefix[] = "#MD5:";
constexpr char kGost94Prefix[] = "#GOST3411_RFC4357:";
constexpr char kGost2012Prefix[] = "#GOST3411_256_2012:";

constexpr std::size_t kMd5Digits = 32;
constexpr std::size_t kGost2012Digits = 64;

constexpr std::size_t kLongestText = 64; // digits of the longest digest

bool startsWithMarker(std::string_view text) {
    return !text.empty() && kMarkers.find(text.front()) != std::string_view::npos;
}

// True when `spec` begins with `literal`. N counts the literal's terminating zero.
template<std::size_t N>
bool is_equal(std::string_view spec, const char (&literal)[N]) {
    return spec.starts_with(std::string_view(literal, N - 1));
}

// True when `text`, which begins with a marker, continues like `prefix` after its marker.
bool hasTagOf(std::string_view text, std::string_view prefix) {
    return !prefix.empty() && text.substr(1).starts_with(prefix.substr(1));
}

// The digits of a digest text, which reach to its end: none when it has the tag of another prefix.
std::string_view digitsOf(std::string_view text, std::string_view prefix) {
    if (!startsWithMarker(text))
        return text;
    return hasTagOf(text, prefix) ? text.substr(prefix.size()) : std::string_view();
}

void prepare(HashMD5_Calc& calc) {
    calc.Reset();
}
void prepare(HashGOST3411_Calc& calc) {
    calc.Reset();
}
void prepare(Hash_Calc_GOST_34_11_2012&) {} // born ready

template<class CalcT>
IHash_Calc* newCalc() {
    auto calc = std::make_unique<Hash_Calc<CalcT>>();
    prepare(calc->calculator());
    return calc.release();
}

template<class HashT, class CalcT>
IHash* newHash(const std::string& prefix, const void* data, std::size_t length) {
    return new Hash<HashT, CalcT>(prefix, HashT(data, length));
}

// False for an object of a class that was compiled with -fno-rtti: the entry before its table of
// virtual operations is null, which dynamic_cast would follow.
bool hasTypeInformation(const IHash_Calc& calc) {
    const std::type_info* const* table;
    std::memcpy(&table, static_cast<const void*>(&calc), sizeof table);
    return table[-1] != nullptr;
}

template<class HashT, class CalcT>
IHash* newHash(const std::string& prefix, IHash_Calc& calc, bool finalizeInPlace) {
    if (!hasTypeInformation(calc))
        throw std::bad_cast();
    auto& own = dynamic_cast<Hash_Calc<CalcT>&>(calc);
    return new Hash<HashT, CalcT>(prefix, HashT(own.calculator(), finalizeInPlace));
}

} // namespace

IHash_Calc::~IHash_Calc() = default;
IHash::~IHash() = default;
IHashFactory::~IHashFactory() = default;

template<class CalcT>
Hash_Calc<CalcT>::~Hash_Calc() = default;

template<class CalcT>
void Hash_Calc<CalcT>::Update(const void* data, std::size_t length) {
    calc_.Update(data, length);
}

template<class CalcT>
CalcT& Hash_Calc<CalcT>::calculator() {
    return calc_;
}

template<class HashT, class CalcT>
Hash<HashT, CalcT>::Hash(const std::string& prefix, const HashT& hash)
    : prefix_(&prefix), hash_(hash) {}

template<class HashT, class CalcT>
Hash<HashT, CalcT>::~Hash() = default;

template<class HashT, class CalcT>
std::size_t Hash<HashT, CalcT>::GetHashSize() const {
    return sizeof hash_;
}

template<class HashT, class CalcT>
std::string Hash<HashT, CalcT>::ToStr(bool upperCase, bool withPrefix) const {
    char digits[kLongestText + 1];
    hash_.ToCSTR(digits, upperCase);
    return withPrefix ? *prefix_ + digits : digits;
}

template<class HashT, class CalcT>
bool Hash<HashT, CalcT>::Check(const std::string& text, bool upperCase) const {
    const std::string_view digits = digitsOf(text, *prefix_);
    return digits.size() == 2 * sizeof hash_ && hash_.Check(digits.data(), upperCase);
}

template<class HashT, class CalcT>
const unsigned char* Hash<HashT, CalcT>::Digest() const {
    return reinterpret_cast<const unsigned char*>(&hash_);
}

template class Hash_Calc<HashMD5_Calc>;
template class Hash_Calc<HashGOST3411_Calc>;
template class Hash_Calc<Hash_Calc_GOST_34_11_2012>;
template class Hash<HashMD5, HashMD5_Calc>;
template class Hash<HashGOST3411, HashGOST3411_Calc>;
template class Hash<Hash_GOST_34_11_2012, Hash_Calc_GOST_34_11_2012>;

MD5HashFactory::MD5HashFactory() : prefix_(kMd5Prefix) {}

MD5HashFactory::~MD5HashFactory() = default;

IHash_Calc* MD5HashFactory::createHashCalc() const {
    return newCalc<HashMD5_Calc>();
}

IHash* MD5HashFactory::createHash(const void* data, std::size_t length) const {
    return newHash<HashMD5, HashMD5_Calc>(prefix_, data, length);
}

IHash* MD5HashFactory::createHash(IHash_Calc& calc, bool finalizeInPlace) const {
    return newHash<HashMD5, HashMD5_Calc>(prefix_, calc, finalizeInPlace);
}

GOST_RFC4357HashFactory::GOST_RFC4357HashFactory() : prefix_(kGost94Prefix) {}

GOST_RFC4357HashFactory::~GOST_RFC4357HashFactory() = default;

IHash_Calc* GOST_RFC4357HashFactory::createHashCalc() const {
    return newCalc<HashGOST3411_Calc>();
}

IHash* GOST_RFC4357HashFactory::createHash(const void* data, std::size_t length) const {
    return newHash<HashGOST3411, HashGOST3411_Calc>(prefix_, data, length);
}

IHash* GOST_RFC4357HashFactory::createHash(IHash_Calc& calc, bool finalizeInPlace) const {
    return newHash<HashGOST3411, HashGOST3411_Calc>(prefix_, calc, finalizeInPlace);
}

GOST_3411_2012HashFactory::GOST_3411_2012HashFactory() : prefix_(kGost2012Prefix) {}

GOST_3411_2012HashFactory::~GOST_3411_2012HashFactory() = default;

IHash_Calc* GOST_3411_2012HashFactory::createHashCalc() const {
    return newCalc<Hash_Calc_GOST_34_11_2012>();
}

IHash* GOST_3411_2012HashFactory::createHash(const void* data, std::size_t length) const {
    return newHash<Hash_GOST_34_11_2012, Hash_Calc_GOST_34_11_2012>(prefix_, data, length);
}

IHash* GOST_3411_2012HashFactory::createHash(IHash_Calc& calc, bool finalizeInPlace) const {
    return newHash<Hash_GOST_34_11_2012, Hash_Calc_GOST_34_11_2012>(prefix_, calc, finalizeInPlace);
}

IHashFactory* createHashFactory(HashFileChecker::Alg alg) {
    switch (alg) {
    case HashFileChecker::GOST_RFC4357:
        return new GOST_RFC4357HashFactory;
    case HashFileChecker::MD5:
        return new MD5HashFactory;
    case HashFileChecker::GOST_3411_2012:
        return new GOST_3411_2012HashFactory;
    }
    return nullptr;
}

IHashFactory* createHashFactory(const std::string& spec) {
    if (is_equal(spec, kMd5Prefix) || is_equal(spec, "$MD5:"))
        return createHashFactory(HashFileChecker::MD5);
    if (is_equal(spec, kGost94Prefix) || is_equal(spec, "$GOST3411_RFC4357:"))
        return createHashFactory(HashFileChecker::GOST_RFC4357);
    if (is_equal(spec, kGost2012Prefix) || is_equal(spec, "$GOST3411_256_2012:"))
        return createHashFactory(HashFileChecker::GOST_3411_2012);
    if (startsWithMarker(spec))
        return nullptr;
    if (spec.size() == kMd5Digits)
        return createHashFactory(HashFileChecker::MD5);
    if (spec.size() == kGost2012Digits)
        return createHashFactory(HashFileChecker::GOST_3411_2012);
    return nullptr;
}
