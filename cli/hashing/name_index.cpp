#include "cli/hashing/name_index.h"

namespace cli {

namespace {

// Takes the next part that means something off the front of `path`; empty at its end.
std::string_view nextPart(std::string_view& path) {
    while (!path.empty()) {
        const std::size_t length = std::min(path.find('/'), path.size());
        const std::string_view part = path.substr(0, length);
        path.remove_prefix(std::min(length + 1, path.size()));
        if (!part.empty() && part != ".")
            return part;
    }
    return {};
}

// The parts of a name's path from the root.
class Parts {
public:
    Parts(std::string_view name, std::string_view current)
        : start_(name.starts_with('/') ? std::string_view() : current), rest_(name) {}

    std::string_view next() {
        const std::string_view part = nextPart(start_);
        return part.empty() ? nextPart(rest_) : part;
    }

private:
    std::string_view start_;
    std::string_view rest_;
};

int keyOf(char byte) {
    return byte == '/' ? 0 : static_cast<unsigned char>(byte);
}

} // namespace

bool WalkOrder::operator()(std::string_view left, std::string_view right) const {
    const auto [inLeft, inRight] =
        std::mismatch(left.begin(), left.end(), right.begin(), right.end());
    if (inLeft == left.end() || inRight == right.end())
        return inLeft == left.end() && inRight != right.end();
    return keyOf(*inLeft) < keyOf(*inRight);
}

bool PathOrder::operator()(std::string_view left, std::string_view right) const {
    const bool sameStart = left.starts_with('/') == right.starts_with('/');
    Parts leftParts(left, sameStart ? std::string_view() : current_);
    Parts rightParts(right, sameStart ? std::string_view() : current_);
    for (;;) {
        const std::string_view leftPart = leftParts.next();
        const std::string_view rightPart = rightParts.next();
        if (leftPart.empty() || leftPart != rightPart)
            return leftPart < rightPart;
    }
}

} // namespace cli
