// Tables of names: the order that they are in, and how many comparisons that takes at worst.

#include "cli/hashing/name_index.h"
#include "tests/support/scratch.h"

#include <bit>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace cli;
using std::string;
using std::string_view;

struct CountingOrder {
    std::size_t* comparisons;

    bool operator()(string_view left, string_view right) const {
        ++*comparisons;
        return WalkOrder()(left, right);
    }
};

constexpr char kDigest[] = "=#MD5:d41d8cd98f00b204e9800998ecf8427e\n";

HashList listOf(const std::vector<string>& names) {
    const support::ScratchDirectory scratch;
    string text;
    for (const string& name : names)
        text += name + kDigest;
    return HashList(scratch.write("list", text));
}

// A comparison of two records takes two of their names at most.
std::size_t bound(std::size_t size) {
    return 4 * size * static_cast<std::size_t>(std::bit_width(size));
}

std::size_t comparisonsFor(const std::vector<string>& names) {
    const HashList list = listOf(names);
    std::size_t comparisons = 0;
    const NameIndex<CountingOrder> index(list, CountingOrder{&comparisons});
    for (const string& name : names)
        EXPECT_TRUE(index.contains(name));
    EXPECT_FALSE(index.contains("another"));
    return comparisons;
}

string numbered(std::size_t number) {
    return string(200, 'x') + std::to_string(1000000 + number);
}

TEST(NameIndex, NeverTakesMoreComparisonsThanSortingDoes) {
    constexpr std::size_t kSize = 4096;
    std::vector<string> sorted;
    std::vector<string> reversed;
    std::vector<string> equal(kSize, "x");
    std::vector<string> organPipe;
    std::vector<string> scattered;
    for (std::size_t i = 0; i < kSize; ++i) {
        sorted.push_back(numbered(i));
        reversed.push_back(numbered(kSize - i));
        organPipe.push_back(numbered(std::min(i, kSize - i)));
        scattered.push_back(numbered(i * 2654435761U % kSize));
    }
    for (const auto& names : {sorted, reversed, equal, organPipe, scattered})
        EXPECT_LT(comparisonsFor(names), bound(kSize));
}

TEST(NameIndex, KeepsTheListsOrderAmongEqualNames) {
    const HashList list = listOf({"b", "a", "b", "a", "b"});
    const NameIndex<WalkOrder> index(list);
    const std::vector<std::size_t> expected = {1, 3, 0, 2, 4};
    for (std::size_t place = 0; place < expected.size(); ++place)
        EXPECT_EQ(index.line(place), expected[place]);
    EXPECT_EQ(index.lowerBound("b"), 2u);
    EXPECT_EQ(index.lowerBound("c"), 5u);
}

TEST(WalkOrder, PutsTheSlashBeforeEverythingElse) {
    const std::vector<string> ascending = {"",    "a",   "a/b", "a/b/c", "a/c", "a\x01",
                                           "a-b", "a.b", "ab",  "b",     "\xff"};
    const WalkOrder isBefore;
    for (std::size_t i = 0; i < ascending.size(); ++i)
        for (std::size_t j = 0; j < ascending.size(); ++j)
            EXPECT_EQ(isBefore(ascending[i], ascending[j]), i < j)
                << ascending[i] << " " << ascending[j];
}

TEST(PathOrder, TakesSpellingsOfOnePathForEqual) {
    const PathOrder isBefore("/home/user");
    for (const string name :
         {"a/b", "./a/b", "a//b", "a/./b", "a/b/", "/home/user/a/b", "//home/./user//a/b/."})
        for (const string other : {"a/b", "/home/user/a/b", "././a///b"})
            EXPECT_TRUE(!isBefore(name, other) && !isBefore(other, name)) << name << " " << other;
}

TEST(PathOrder, TellsOtherPathsApart) {
    const PathOrder isBefore("/home/user");
    for (const string other :
         {"a", "a/c", "b", "..", "../user/a/b", "/a/b", "ab", "a/b/c", "/", "."})
        EXPECT_NE(isBefore("a/b", other), isBefore(other, "a/b")) << other;
    EXPECT_TRUE(isBefore("a/b", "a/b/c"));
    EXPECT_TRUE(isBefore("/home/user/a", "b"));
}

} // namespace
