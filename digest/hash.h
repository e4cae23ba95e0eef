/// The digests behind one set of interfaces: a calculator takes data, a digest prints and compares
/// itself, a factory makes both for one algorithm.
///
///     std::unique_ptr<IHashFactory> factory(createHashFactory(HashFileChecker::GOST_3411_2012));
///     std::unique_ptr<IHash_Calc> calc(factory->createHashCalc());
///     calc->Update("abc", 3);
///     std::unique_ptr<IHash> digest(factory->createHash(*calc, true));
///     std::string text = digest->ToStr(false, true); // "#GOST3411_256_2012:" and 64 digits
///
/// A digest's text is an optional prefix followed by hexadecimal digits. The prefix is `#` or `$`,
/// the algorithm's tag and a colon ("#MD5:", "#GOST3411_RFC4357:", "#GOST3411_256_2012:"); the
/// library writes the `#` form and reads both. There are two digits a byte, all of one case, high
/// nibble first, and nothing after them.
///
/// Everything that a creating operation returns is new and belongs to the caller. A digest refers
/// to its factory's prefix: delete the digest before the factory. Different objects may be used on
/// different threads; one calculator by one thread at a time.

#ifndef PELORIK_DIGEST_HASH_H
#define PELORIK_DIGEST_HASH_H

#include "digest/_md5.h"
#include "digest/gost3411.h"
#include "digest/gost34_11_2012_i.h"
#include "pelorik/export.h"

#include <cstddef>
#include <string>

namespace HashFileChecker {

/// The algorithms. No other value is valid.
enum Alg : int {
    GOST_RFC4357 = 0,  ///< GOST R 34.11-94 with the boxes of RFC 4357
    MD5 = 1,           ///< MD5, RFC 1321
    GOST_3411_2012 = 2 ///< GOST R 34.11-2012, 256 bits
};

} // namespace HashFileChecker

/// An incremental calculator.
class PELORIK_API IHash_Calc {
public:
    virtual ~IHash_Calc();

    /// Feeds the next `length` bytes at `data`; any number of calls, of length 0 too.
    ///
    /// A null `data` adds nothing, whatever `length` says. GOST R 34.11-94 fills every call up to a
    /// multiple of 32 bytes (see gost3411.h); MD5 takes less than 4 GiB a call (see _md5.h).
    virtual void Update(const void* data, std::size_t length) = 0;
};

/// A finished digest. Never changes.
class PELORIK_API IHash {
public:
    virtual ~IHash();

    /// The digest's length in bytes: 16 for MD5, 32 for the others.
    virtual std::size_t GetHashSize() const = 0;

    /// The digest as text: hexadecimal digits in upper or lower case, behind the prefix in its `#`
    /// form when `withPrefix` is true.
    virtual std::string ToStr(bool upperCase, bool withPrefix) const = 0;

    /// True when `text` denotes this digest: this algorithm's prefix with `#` or `$`, or no prefix,
    /// then exactly the digits that `ToStr(upperCase, false)` gives.
    ///
    /// Digits of the other or of mixed case fail; to accept both cases, call it twice.
    virtual bool Check(const std::string& text, bool upperCase) const = 0;

    /// The `GetHashSize()` raw bytes inside this object, valid as long as it is.
    virtual const unsigned char* Digest() const = 0;
};

/// Makes the calculators and digests of one algorithm. Nothing here returns null; without memory,
/// each operation throws `std::bad_alloc`.
class PELORIK_API IHashFactory {
public:
    /// A new calculator, ready for use.
    virtual IHash_Calc* createHashCalc() const = 0;

    /// The digest of the `length` bytes at `data`; a null `data` is the empty message.
    virtual IHash* createHash(const void* data, std::size_t length) const = 0;

    /// The digest of everything that `calc` was fed.
    ///
    /// With `finalizeInPlace` false `calc` is left as it is and may take more data; with true it is
    /// finished and may only be deleted. Throws `std::bad_cast`, with `calc` unchanged, when `calc`
    /// is of another algorithm, or of a class that was compiled without type information.
    virtual IHash* createHash(IHash_Calc& calc, bool finalizeInPlace) const = 0;

    virtual ~IHashFactory();
    IHashFactory(const IHashFactory&) = delete;
    IHashFactory& operator=(const IHashFactory&) = delete;

protected:
    IHashFactory() = default;
};

/// The calculator over one algorithm's calculator class. A factory hands it out ready for use; one
/// made by hand begins like a `CalcT`, which for some takes a `Reset`.
template<class CalcT>
class PELORIK_API Hash_Calc : public IHash_Calc {
public:
    ~Hash_Calc() override;
    void Update(const void* data, std::size_t length) override;

    /// The algorithm's own calculator.
    CalcT& calculator();

private:
    CalcT calc_;
};

/// The digest over one algorithm's digest class. `CalcT` is the class of its calculator.
template<class HashT, class CalcT>
class PELORIK_API Hash : public IHash {
public:
    /// Refers to `prefix`, which must live longer. With an empty prefix, `Check` returns false for
    /// text that begins with `#` or `$`.
    Hash(const std::string& prefix, const HashT& hash);
    ~Hash() override;
    std::size_t GetHashSize() const override;
    std::string ToStr(bool upperCase, bool withPrefix) const override;
    bool Check(const std::string& text, bool upperCase) const override;
    const unsigned char* Digest() const override;

private:
    const std::string* prefix_;
    HashT hash_;
};

extern template class Hash_Calc<HashMD5_Calc>;
extern template class Hash_Calc<HashGOST3411_Calc>;
extern template class Hash_Calc<Hash_Calc_GOST_34_11_2012>;
extern template class Hash<HashMD5, HashMD5_Calc>;
extern template class Hash<HashGOST3411, HashGOST3411_Calc>;
extern template class Hash<Hash_GOST_34_11_2012, Hash_Calc_GOST_34_11_2012>;

/// Picks the factory for a digest text, of which only the beginning is looked at.
///
/// A known prefix decides. Any other text that starts with `#` or `$`, and the empty text, give
/// null. Text without a prefix is judged by its length alone: 32 characters are MD5, 64 are GOST
/// R 34.11-2012, any other number gives null.
///
/// Deliberate: 64 bare characters are never GOST R 34.11-94, which cannot be told apart.
PELORIK_API IHashFactory* createHashFactory(const std::string& spec);

/// Picks the factory for an algorithm; null for a value that is none.
PELORIK_API IHashFactory* createHashFactory(HashFileChecker::Alg alg);

/// Makes MD5 digests. Comes from `createHashFactory` only.
class PELORIK_API MD5HashFactory : public IHashFactory {
public:
    IHash_Calc* createHashCalc() const override;
    IHash* createHash(const void* data, std::size_t length) const override;
    IHash* createHash(IHash_Calc& calc, bool finalizeInPlace) const override;
    ~MD5HashFactory() override;

private:
    friend IHashFactory* createHashFactory(HashFileChecker::Alg alg);
    MD5HashFactory();
    std::string prefix_;
};

/// Makes GOST R 34.11-94 digests. Comes from `createHashFactory` only.
class PELORIK_API GOST_RFC4357HashFactory : public IHashFactory {
public:
    IHash_Calc* createHashCalc() const override;
    IHash* createHash(const void* data, std::size_t length) const override;
    IHash* createHash(IHash_Calc& calc, bool finalizeInPlace) const override;
    ~GOST_RFC4357HashFactory() override;

private:
    friend IHashFactory* createHashFactory(HashFileChecker::Alg alg);
    GOST_RFC4357HashFactory();
    std::string prefix_;
};

/// Makes GOST R 34.11-2012 digests of 256 bits. Comes from `createHashFactory` only.
class PELORIK_API GOST_3411_2012HashFactory : public IHashFactory {
public:
    IHash_Calc* createHashCalc() const override;
    IHash* createHash(const void* data, std::size_t length) const override;
    IHash* createHash(IHash_Calc& calc, bool finalizeInPlace) const override;
    ~GOST_3411_2012HashFactory() override;

private:
    friend IHashFactory* createHashFactory(HashFileChecker::Alg alg);
    GOST_3411_2012HashFactory();
    std::string prefix_;
};

#endif
