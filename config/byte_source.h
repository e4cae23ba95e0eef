// Reads the bytes of a stream straight from its buffer. Not installed.

#ifndef PELORIK_CONFIG_BYTE_SOURCE_H
#define PELORIK_CONFIG_BYTE_SOURCE_H

#include <cxxabi.h>
#include <ios>
#include <istream>
#include <locale>
#include <streambuf>

// Gives what `std::ws`, `get` and `peek` give, and leaves the stream in the state in which they
// leave it, without their cost of a sentry for every byte. The stream must live longer.
class ByteSource {
public:
    static constexpr int kNone = std::istream::traits_type::eof();

    explicit ByteSource(std::istream& in)
        : in_(in), buffer_(in.rdbuf()), locale_(in.getloc()),
          characters_(std::use_facet<std::ctype<char>>(locale_)) {
        // Flushes the stream that `in` is tied to, if there is one.
        static_cast<void>(std::istream::sentry(in, true));
    }

    void skipWhite() {
        if (!in_.good()) {
            in_.setstate(std::ios::failbit);
            return;
        }
        int byte = guarded([this] { return buffer_->sgetc(); });
        while (byte != kNone && isWhite(byte))
            byte = guarded([this] { return buffer_->snextc(); });
        if (byte == kNone && in_.good())
            in_.setstate(std::ios::eofbit);
    }

    // The next byte, 0 to 255, which is taken; or kNone, when the stream ends or fails.
    int take() {
        if (!in_.good()) {
            in_.setstate(std::ios::failbit);
            return kNone;
        }
        const int byte = guarded([this] { return buffer_->sbumpc(); });
        if (byte == kNone)
            in_.setstate(in_.good() ? std::ios::eofbit | std::ios::failbit : std::ios::failbit);
        return byte;
    }

    // The next byte, which stays; or kNone.
    int look() {
        if (!in_.good()) {
            in_.setstate(std::ios::failbit);
            return kNone;
        }
        const int byte = guarded([this] { return buffer_->sgetc(); });
        if (byte == kNone && in_.good())
            in_.setstate(std::ios::eofbit);
        return byte;
    }

    bool ended() const { return in_.eof(); }
    bool bad() const { return in_.bad(); }

private:
    bool isWhite(int byte) const {
        return characters_.is(std::ctype_base::space, static_cast<char>(byte));
    }

    // What `read` gives; when it throws, kNone and a bad stream. A stream that was told to throw
    // when it turns bad passes the exception on, and a thread's cancellation is always passed on.
    template<class Read>
    int guarded(Read read) {
        try {
            return read();
        } catch (abi::__forced_unwind&) {
            turnBad();
            throw;
        } catch (...) {
            turnBad();
            if ((in_.exceptions() & std::ios::badbit) != 0)
                throw;
        }
        return kNone;
    }

    void turnBad() {
        try {
            in_.setstate(std::ios::badbit);
        } catch (const std::ios::failure&) {
            // The exception that made it bad says more.
        }
    }

    std::istream& in_;
    std::streambuf* buffer_;
    std::locale locale_;
    const std::ctype<char>& characters_;
};

#endif
