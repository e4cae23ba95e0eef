// Deletion of trees whose elements are of subclasses: in which order destructors run, what they
// find above and below their element, and that none of it takes memory or a deep stack.

#include "config/vpnxml.h"
#include "tests/support/fault_injection.h"
#include "tests/support/small_stack.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using std::string;

constexpr int kRecursiveLevels = 1000;

// What happens to an element, in this order.
enum class Step { kOuterBody, kInnerBody, kFreed };

struct Event {
    Step step;
    int id;

    bool operator==(const Event& other) const { return step == other.step && id == other.id; }
};

using Events = std::vector<Event>;

// The elements that live, what has happened to all of them, and the first thing that was wrong.
struct Record {
    struct Place {
        int id;
        XMLDeclaration* parent;
    };

    std::map<const void*, Place> living;
    Events events;
    string fault;

    bool lives(const void* element) const { return living.count(element) != 0; }

    void require(bool holds, const char* what, int id) {
        if (!holds && fault.empty())
            fault = "element " + std::to_string(id) + ": " + what;
    }
};

Record* record = nullptr;

string nameOf(int id) {
    return "an element whose name has memory of its own, " + std::to_string(id);
}

// Tells the record when its destructor runs and when its memory is freed.
class Inner : public XMLDeclaration {
public:
    Inner(XMLDeclaration* parent, int id) : XMLDeclaration(nameOf(id)), id_(id) {
        record->living.emplace(this, Record::Place{id, parent});
        fill();
    }

    ~Inner() override { record->events.push_back({Step::kInnerBody, id_}); }

    void fill() {
        SetBody("the body of " + GetName());
        AddAttr("key", "value of " + GetName());
    }

    // Out of line, since g++ takes a pair of which it has inlined one for a mismatch.
    [[gnu::noinline]] static void* operator new(std::size_t size) { return ::operator new(size); }

    [[gnu::noinline]] static void operator delete(void* block) {
        record->events.push_back({Step::kFreed, record->living.at(block).id});
        record->living.erase(block);
        ::operator delete(block);
    }

protected:
    int id_;
};

XMLDeclaration* parentOf(const XMLDeclaration& element) {
    return record->living.at(&element).parent;
}

void requireWhole(const XMLDeclaration& element) {
    const int id = record->living.at(&element).id;
    record->require(element.GetName() == nameOf(id), "lost its name", id);
    record->require(element.GetBody() == "the body of " + nameOf(id), "lost its body", id);
    record->require(element.GetAttr("key") == "value of " + nameOf(id), "lost its attribute", id);
    for (const XMLDeclaration* const child : element.GetChildren())
        record->require(child == nullptr || record->lives(child), "lists a freed child", id);
}

bool isListed(const XMLDeclaration& child, const XMLDeclaration& parent) {
    const auto& children = parent.GetChildren();
    return std::find(children.begin(), children.end(), &child) != children.end();
}

// Looks at everything around it in its destructor.
class Outer : public Inner {
public:
    using Inner::Inner;

    ~Outer() override {
        record->events.push_back({Step::kOuterBody, id_});
        requireWhole(*this);
        const XMLDeclaration* parent = parentOf(*this);
        for (int levels = 0; levels < 5 && parent != nullptr; ++levels) {
            const bool lives = record->lives(parent);
            record->require(lives, "the element above is freed", id_);
            if (!lives)
                return;
            requireWhole(*parent);
            record->require(!isListed(*this, *parent), "is listed while it is deleted", id_);
            parent = parentOf(*parent);
        }
    }
};

// A tree `levels` deep: each element but the last has two leaves, and between them the next one.
// The ids on the way down are 0, 3, 6, ...; the leaves have the two after their parent's.
std::unique_ptr<XMLDeclaration> tree(int levels) {
    std::unique_ptr<XMLDeclaration> root(new Outer(nullptr, 0));
    XMLDeclaration* element = root.get();
    for (int level = 1; level <= levels; ++level) {
        const int parentId = 3 * (level - 1);
        element->AddChild(new Outer(element, parentId + 1));
        XMLDeclaration* const next = element->AddChild(new Outer(element, parentId + 3));
        element->AddChild(new Outer(element, parentId + 2));
        element = next;
    }
    return root;
}

int levelOf(int id) {
    return id % 3 == 0 ? id / 3 : id / 3 + 1;
}

// What plain recursion does to the elements of `tree(levels)` from `level` on.
void recurse(Events& events, int level, int levels) {
    const auto begin = [&](int id) {
        events.push_back({Step::kOuterBody, id});
        events.push_back({Step::kInnerBody, id});
    };
    const auto leaf = [&](int id) {
        begin(id);
        events.push_back({Step::kFreed, id});
    };
    const int id = 3 * level;
    begin(id);
    if (level < levels) {
        leaf(id + 1);
        recurse(events, level + 1, levels);
        leaf(id + 2);
    }
    events.push_back({Step::kFreed, id});
}

Events plainRecursion(int levels) {
    Events events;
    recurse(events, 0, levels);
    return events;
}

class XMLDeletion : public testing::Test {
protected:
    void SetUp() override { record = &record_; }

    void TearDown() override {
        EXPECT_TRUE(record_.living.empty());
        EXPECT_EQ(record_.fault, "");
        record = nullptr;
    }

    Record record_;
};

TEST_F(XMLDeletion, IsPlainRecursionDownTo1000Levels) {
    for (const int levels : {0, 1, 2, 10, kRecursiveLevels}) {
        record_.events.clear();
        tree(levels).reset();
        EXPECT_TRUE(record_.events == plainRecursion(levels)) << levels;
    }
}

TEST_F(XMLDeletion, EraseAllIsPlainRecursionDownTo1000Levels) {
    const auto root = tree(kRecursiveLevels);
    root->EraseAll();
    Events expected = plainRecursion(kRecursiveLevels);
    expected.erase(expected.begin(), expected.begin() + 2);
    expected.pop_back();
    EXPECT_TRUE(record_.events == expected);
    static_cast<Inner&>(*root).fill();
}

TEST_F(XMLDeletion, Below1000LevelsChildrenGoBeforeTheirParents) {
    constexpr int kLevels = 3 * kRecursiveLevels;
    tree(kLevels).reset();
    Events shallow;
    std::map<int, std::size_t> begun;
    std::map<int, std::size_t> freed;
    for (std::size_t i = 0; i < record_.events.size(); ++i) {
        const Event& event = record_.events[i];
        if (levelOf(event.id) <= kRecursiveLevels)
            shallow.push_back(event);
        if (event.step == Step::kOuterBody)
            begun[event.id] = i;
        if (event.step == Step::kFreed)
            freed[event.id] = i;
    }
    EXPECT_TRUE(shallow == plainRecursion(kRecursiveLevels));
    int early = 0; // elements that were begun before a child was freed
    for (int level = kRecursiveLevels + 1; level < kLevels; ++level) {
        for (const int child : {1, 2, 3})
            early += freed[3 * level + child] < begun[3 * level] ? 0 : 1;
    }
    EXPECT_EQ(early, 0);
}

// Changes the elements above it in its destructor.
class Meddler : public Inner {
public:
    using Inner::Inner;

    ~Meddler() override {
        record->events.push_back({Step::kOuterBody, id_});
        XMLDeclaration* const parent = parentOf(*this);
        if (parent == nullptr)
            return;
        parent->AddChild(new Inner(parent, -id_));
        parent->EraseAll();
        parent->AddChild(new Inner(parent, -id_));
        XMLDeclaration* const grandparent = parentOf(*parent);
        if (grandparent != nullptr)
            grandparent->EraseAll();
    }
};

TEST_F(XMLDeletion, DestructorsMayChangeTheElementsAbove) {
    constexpr int kLevels = 2 * kRecursiveLevels;
    auto root = std::make_unique<Meddler>(nullptr, 0);
    XMLDeclaration* element = root.get();
    for (int id = 1; id <= kLevels; ++id) {
        element->AddChild(new Meddler(element, 2 * kLevels + id));
        element->AddChild(nullptr);
        element = element->AddChild(new Meddler(element, id));
        element->AddChild(new Inner(element, 4 * kLevels + id));
    }
    root.reset();
    const auto freed = [](const Event& event) { return event.step == Step::kFreed; };
    EXPECT_GE(std::count_if(record_.events.begin(), record_.events.end(), freed), 3 * kLevels);
}

// Counts the elements of its class.
class Counted : public XMLDeclaration {
public:
    Counted() { ++count; }
    ~Counted() override { --count; }

    static int count;
};

int Counted::count = 0;

// Two elements and a null child for every level.
std::unique_ptr<XMLDeclaration> countedTree(int levels) {
    auto root = std::make_unique<XMLDeclaration>();
    XMLDeclaration* element = root.get();
    for (; levels > 0; --levels) {
        element->AddChild(new Counted);
        XMLDeclaration* const next = element->AddChild(new Counted);
        element->AddChild(nullptr);
        element = next;
    }
    return root;
}

TEST(XMLDeepDeletion, TakesNoMemoryAndNoDeepStack) {
    for (const int levels : {kRecursiveLevels - 1, 1'000'000}) {
        auto root = countedTree(levels);
        EXPECT_EQ(Counted::count, 2 * levels);
        support::onSmallStack([&] {
            const support::FailingCall allCounted(support::CallKind::kMemory, 0, 0);
            root.reset();
            EXPECT_EQ(support::countedCalls(), 0);
        });
        EXPECT_EQ(Counted::count, 0);
    }
}

TEST(XMLDeepDeletion, OfAnElementsOwnTreeBeginsAnew) {
    struct Owner : XMLDeclaration {
        std::unique_ptr<XMLDeclaration> own = countedTree(2 * kRecursiveLevels);
        ~Owner() override { EraseAll(); }
    };
    auto root = countedTree(kRecursiveLevels / 2);
    auto* const owner = root->AddChild(new Owner);
    owner->AddChild(countedTree(2 * kRecursiveLevels).release());
    support::onSmallStack([&] { root.reset(); });
    EXPECT_EQ(Counted::count, 0);
}

} // namespace
