// Reads the bytes of a stream straight from its buffer. Not installed.

#ifndef PELORIK_CONFIG_BYTE_SOURCE_H
#define PELORIK_CONFIG_BYTE_SOURCE_H

#include "config/cancellation.h"

#include <algorithm>
#include <cstddef>
#include <ios>
#include <istream>
#include <limits>
#include <locale>
#include <streambuf>
#include <string>
#include <string_view>

namespace pelorikutil {

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
        if (skipReadyWhite())
            return;
        int byte = guarded([this] { return buffer_->sgetc(); });
        while (byte >= 0 && isWhite(byte))
            byte = guarded([this] { return buffer_->snextc(); });
        if (byte == kNone)
            in_.setstate(std::ios::eofbit);
    }

    // The next byte, 0 to 255, which is taken; or kNone, when the stream ends or fails.
    int take() {
        return required([this] { return buffer_->sbumpc(); });
    }

    // The next byte, which stays; or kNone, with the stream as `take` leaves it then.
    int lookToTake() {
        return required([this] { return buffer_->sgetc(); });
    }

    // The next byte, which stays; or kNone.
    int look() {
        if (!in_.good()) {
            in_.setstate(std::ios::failbit);
            return kNone;
        }
        const int byte = guarded([this] { return buffer_->sgetc(); });
        if (byte == kNone)
            in_.setstate(std::ios::eofbit);
        return std::max(byte, kNone);
    }

    // Appends to `out` the bytes that lie ready in the buffer, up to the first one that `belongs`
    // refuses. They are taken; the state of the stream does not change.
    template<class Belongs>
    void takeReady(std::string& out, Belongs belongs) {
        const std::string_view ready = readyBytes();
        std::size_t length = 0;
        while (length < ready.size() && belongs(static_cast<unsigned char>(ready[length])))
            ++length;
        out.append(ready.data(), length);
        GetArea::skip(*buffer_, length);
    }

    bool ended() const { return in_.eof(); }
    bool bad() const { return in_.bad(); }

private:
    static constexpr int kThrew = kNone - 1;

    // What a stream buffer shows of its bytes to classes that derive from it.
    struct GetArea : std::streambuf {
        // At most as many as one step can skip.
        static std::string_view bytes(const std::streambuf& buffer) {
            const char* const next = (buffer.*&GetArea::gptr)();
            const auto length = static_cast<std::size_t>((buffer.*&GetArea::egptr)() - next);
            return {next, std::min<std::size_t>(length, std::numeric_limits<int>::max())};
        }

        static void skip(std::streambuf& buffer, std::size_t length) {
            (buffer.*&GetArea::gbump)(static_cast<int>(length));
        }
    };

    // True when a byte that lies ready ends the white space.
    bool skipReadyWhite() {
        const std::string_view ready = GetArea::bytes(*buffer_);
        std::size_t length = 0;
        while (length < ready.size() && isWhite(ready[length]))
            ++length;
        GetArea::skip(*buffer_, length);
        return length < ready.size();
    }

    std::string_view readyBytes() const {
        return in_.good() ? GetArea::bytes(*buffer_) : std::string_view();
    }

    bool isWhite(int byte) const {
        return characters_.is(std::ctype_base::space, static_cast<char>(byte));
    }

    // What `read` gives. Without a byte the stream has failed, also when it has only ended.
    template<class Read>
    int required(Read read) {
        if (!in_.good()) {
            in_.setstate(std::ios::failbit);
            return kNone;
        }
        const int byte = guarded(read);
        if (byte < 0)
            in_.setstate(byte == kNone ? std::ios::eofbit | std::ios::failbit : std::ios::failbit);
        return std::max(byte, kNone);
    }

    // What `read` gives; when it throws, kThrew and a bad stream. A stream that was told to throw
    // when it turns bad passes the exception on, and a thread's cancellation is always passed on.
    template<class Read>
    int guarded(Read read) {
        try {
            return read();
        } catch (...) {
            turnBad();
            if (isCancellation() || (in_.exceptions() & std::ios::badbit) != 0)
                throw;
        }
        return kThrew;
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

} // namespace pelorikutil

#endif
