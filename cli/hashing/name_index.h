// Finds the records of a hash list by their names, in ordered tables: names that somebody chose
// cannot make them slow.

#ifndef PELORIK_CLI_HASHING_NAME_INDEX_H
#define PELORIK_CLI_HASHING_NAME_INDEX_H

#include "cli/hashing/hash_list.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cli {

// Orders names by their bytes, with the slash before all others: as a walk finds them, so that most
// lists are in order.
struct WalkOrder {
    bool operator()(std::string_view left, std::string_view right) const;
};

// Orders names as paths from the root; "." and empty parts mean nothing.
class PathOrder {
public:
    // Relative names start in the directory `current`.
    explicit PathOrder(std::string current) : current_(std::move(current)) {}

    bool operator()(std::string_view left, std::string_view right) const;

private:
    std::string current_;
};

// The records of a list in the order of their names, those of one name in the list's order. Takes 8
// bytes a record.
template<class Order>
class NameIndex {
public:
    explicit NameIndex(const HashList& list, Order order = Order())
        : list_(list), order_(std::move(order)) {
        lines_.reserve(list.records());
        for (std::size_t line = 0; line < list.size(); ++line) {
            if (list.isRecord(line))
                lines_.push_back(line);
        }
        const auto isBefore = [this](std::size_t left, std::size_t right) {
            const std::string_view leftName = list_.name(left);
            const std::string_view rightName = list_.name(right);
            return order_(leftName, rightName) || (left < right && !order_(rightName, leftName));
        };
        if (!std::is_sorted(lines_.begin(), lines_.end(), isBefore))
            std::sort(lines_.begin(), lines_.end(), isBefore);
    }

    std::size_t size() const { return lines_.size(); }

    // Returns the line of a record by its place in the order.
    std::size_t line(std::size_t place) const { return lines_[place]; }

    // Returns the first place whose name is not before `name`.
    std::size_t lowerBound(std::string_view name) const {
        const auto found = std::lower_bound(lines_.begin(), lines_.end(), name,
                                            [this](std::size_t line, std::string_view key) {
                                                return order_(list_.name(line), key);
                                            });
        return static_cast<std::size_t>(found - lines_.begin());
    }

    bool contains(std::string_view name) const {
        const std::size_t place = lowerBound(name);
        return place < lines_.size() && !order_(name, list_.name(lines_[place]));
    }

private:
    const HashList& list_;
    Order order_;
    std::vector<std::size_t> lines_;
};

} // namespace cli

#endif
