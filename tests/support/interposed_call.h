// A function of the C library that this program interposes: it fails, moves less than it was asked,
// runs a test's own function, or calls the C library. fault_injection.cpp lists them.

#ifndef PELORIK_TESTS_SUPPORT_INTERPOSED_CALL_H
#define PELORIK_TESTS_SUPPORT_INTERPOSED_CALL_H

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <tuple>
#include <type_traits>
#include <utility>

namespace support {

// The kinds that are counted separately. Calls of kind kOther are not counted and do not fail.
enum class CallKind { kMemory, kSystem, kOther };

// The ways in which a call can fail: error numbers, and kShort for calls that move data.
inline constexpr int kShort = 0;

class Ways {
public:
    constexpr Ways(std::initializer_list<int> errors) : size_(errors.size()) {
        std::size_t i = 0;
        for (const int error : errors)
            errors_[i++] = error;
    }
    constexpr std::size_t size() const { return size_; }
    constexpr int operator[](std::size_t way) const { return errors_[way]; }

private:
    std::array<int, 4> errors_{};
    std::size_t size_;
};

// While it lives, calls of this thread reach the C library: they are not counted, do not fail, and
// are not replaced.
class Uncounted {
public:
    Uncounted();
    ~Uncounted();
    Uncounted(const Uncounted&) = delete;
    Uncounted& operator=(const Uncounted&) = delete;
};

// What an interposed function has besides its signature.
struct CallProperties {
    const char* name;
    CallKind kind = CallKind::kOther;
    Ways ways = {};
    bool failsAfterwards = false; // does its work also when it fails, as close does
};

class CallBase {
public:
    constexpr explicit CallBase(const CallProperties& properties) : properties_(properties) {}

protected:
    static constexpr int kPasses = -1;

    // False while nothing is injected, and during an `Uncounted`.
    static bool isActive();

    // Counts the call. Returns its error number, kShort or kPasses.
    int failure() const;

    // The C library's function.
    void* find() const;

    CallProperties properties_;

private:
    mutable void* found_ = nullptr;
};

inline constexpr std::size_t kMovesNothing = static_cast<std::size_t>(-1);

// How much a short call, or any call during `ShortCounts`, moves of `size` bytes or items.
std::size_t shortened(std::size_t size);
std::size_t limited(std::size_t size);

// An interposed function. `kSize` is the index of the argument that says how much it moves.
template<class Signature, std::size_t kSize = kMovesNothing>
class Call;

template<class Result, class... Arguments, std::size_t kSize>
class Call<Result(Arguments...), kSize> : public CallBase {
public:
    using Function = Result(Arguments...);
    using Body = std::function<Function>;
    using Failed = std::conditional_t<std::is_void_v<Result>, std::nullptr_t, Result>;

    // `failed` is the result of a call that fails. `known` is the C library's function; null finds
    // it.
    constexpr Call(const CallProperties& properties, Failed failed, Function* known = nullptr)
        : CallBase(properties), failed_(failed), known_(known) {}

    // Calls the C library. Like the operator below it runs before a sanitizer is ready.
    __attribute__((no_sanitize("address", "thread", "undefined"))) Result
    original(Arguments... arguments) const {
        Function* const function = known_ != nullptr ? known_ : reinterpret_cast<Function*>(find());
        return function(arguments...);
    }

    // Fails, calls the replacement or calls the C library.
    __attribute__((no_sanitize("address", "thread", "undefined"))) Result
    operator()(Arguments... arguments) const {
        return isActive() ? inject(arguments...) : original(arguments...);
    }

private:
    template<class Other>
    friend class Replacement;

    Result inject(Arguments... arguments) const {
        if (const Body* const body = replacement_) {
            const Uncounted own;
            return (*body)(arguments...);
        }
        const int error = failure();
        if (error != kPasses && error != kShort)
            return fail(error, arguments...);
        if constexpr (kSize != kMovesNothing)
            shorten(std::get<kSize>(std::tie(arguments...)), error == kShort);
        return original(arguments...);
    }

    Result fail(int error, Arguments... arguments) const {
        if (properties_.failsAfterwards)
            original(arguments...);
        errno = error;
        return static_cast<Result>(failed_);
    }

    template<class Size>
    static void shorten(Size& size, bool once) {
        const auto all = static_cast<std::size_t>(size);
        size = static_cast<Size>(once ? shortened(all) : limited(all));
    }

    Failed failed_;
    Function* known_;
    std::atomic<const Body*> replacement_ = nullptr;
};

// Counts the injections that are in effect.
class Injection {
public:
    Injection();
    ~Injection();
    Injection(const Injection&) = delete;
    Injection& operator=(const Injection&) = delete;
};

// While it lives, calls of one function run `body` instead. The body's own calls reach the C
// library.
template<class InterposedCall>
class Replacement {
public:
    Replacement(InterposedCall& call, typename InterposedCall::Body body)
        : call_(call), body_(std::move(body)), before_(call.replacement_.exchange(&body_)) {}
    ~Replacement() { call_.replacement_ = before_; }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

private:
    Injection injection_;
    InterposedCall& call_;
    const typename InterposedCall::Body body_;
    const typename InterposedCall::Body* const before_;
};

} // namespace support

#endif
