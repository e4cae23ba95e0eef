// Stream buffers that behave as badly as a stream buffer may.

#ifndef PELORIK_TESTS_SUPPORT_FAILING_BUFFERS_H
#define PELORIK_TESTS_SUPPORT_FAILING_BUFFERS_H

#include <cstddef>
#include <istream>
#include <pthread.h>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <utility>

namespace support {

// What the buffers below throw.
struct DeviceFailure : std::runtime_error {
    DeviceFailure() : std::runtime_error("the device failed") {}
};

// Gives a text one byte at a time, so that every look at a byte asks the device, and can put
// nothing back: a pipe at the edge of its buffer.
class ByteAtATime : public std::streambuf {
public:
    explicit ByteAtATime(std::string text) : text_(std::move(text)) {}

    // How many bytes were handed out and taken.
    std::size_t taken() const { return next_ - static_cast<std::size_t>(egptr() - gptr()); }

protected:
    int_type underflow() override {
        if (next_ == text_.size())
            return atEnd();
        char* const byte = &text_[next_++];
        setg(byte, byte, byte + 1);
        return traits_type::to_int_type(*byte);
    }

    virtual int_type atEnd() { return traits_type::eof(); }

private:
    std::string text_;
    std::size_t next_ = 0;
};

// As `ByteAtATime`, but throws where the text ends, as a disk that fails there.
class FailsAtItsEnd : public ByteAtATime {
public:
    using ByteAtATime::ByteAtATime;

protected:
    int_type atEnd() override { throw DeviceFailure(); }
};

// As `ByteAtATime`, but ends the thread that reads where its text ends.
class CancelsAtItsEnd : public ByteAtATime {
public:
    using ByteAtATime::ByteAtATime;

protected:
    int_type atEnd() override {
        pthread_cancel(pthread_self());
        pthread_testcancel();
        return traits_type::eof();
    }
};

// Hands a stream over that text to `read` in a thread of its own. True when the thread was
// cancelled and the stream is bad then.
inline bool isCancelledIn(const std::string& text, void (*read)(std::istream& in)) {
    struct Reading {
        std::istream& in;
        void (*read)(std::istream& in);
    };
    CancelsAtItsEnd buffer(text);
    std::istream in(&buffer);
    Reading reading{in, read};
    const auto run = [](void* argument) -> void* {
        const auto& all = *static_cast<Reading*>(argument);
        all.read(all.in);
        return nullptr;
    };
    pthread_t thread;
    void* result = nullptr;
    if (pthread_create(&thread, nullptr, run, &reading) != 0 || pthread_join(thread, &result) != 0)
        throw std::runtime_error("no thread");
    return result == PTHREAD_CANCELED && in.bad();
}

// Keeps the first `limit` bytes that it is given and then fails, with a result or an exception.
class FailsAfter : public std::streambuf {
public:
    FailsAfter(std::size_t limit, bool throws) : limit_(limit), throws_(throws) {}

    const std::string& text() const { return text_; }

protected:
    int_type overflow(int_type byte) override {
        if (text_.size() == limit_) {
            if (throws_)
                throw DeviceFailure();
            return traits_type::eof();
        }
        text_.push_back(traits_type::to_char_type(byte));
        return byte;
    }

private:
    std::string text_;
    std::size_t limit_;
    bool throws_;
};

} // namespace support

#endif
