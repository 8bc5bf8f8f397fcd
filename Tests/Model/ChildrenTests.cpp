#include "SorrelFramework/Model/Children.hpp"

#include <gtest/gtest.h>

#include <any>
#include <concepts>
#include <optional>
#include <ranges>
#include <type_traits>
#include <utility>
#include <vector>

#include "Tests/Model/RefKit.hpp"

namespace sorrel::test {
namespace {

// An array is a field only if a record makes it: no other code has the required argument.
static_assert(!std::constructible_from<Children<Node>, Node&>);
static_assert(!std::constructible_from<Children<Node>, TreeNode&>);
static_assert(!std::constructible_from<std::optional<Children<Node>>, Node&>);
// A record can't be copied out of the array, and a bare pointer can't be put in.
static_assert(!std::copy_constructible<Node>);
static_assert(!std::convertible_to<Node*, Ref<Node>>);
static_assert(std::is_nothrow_move_constructible_v<Children<Node>>);
static_assert(std::ranges::random_access_range<Children<Node>>);

TEST(Children, recordInTwoArraysLivesUntilBothAreGone) {
  Life life;
  Ref<Node> first = makeRef<Node>();
  Ref<Node> second = makeRef<Node>();
  {
    const Ref<Node> shared = makeRef<Node>(life.watch());
    first->children.push_back(shared);
    second->children.push_back(shared);
  }
  first = nullptr;
  EXPECT_FALSE(life.over());
  second = nullptr;
  EXPECT_TRUE(life.over());
}

TEST(Children, recordTwiceInOneArrayLivesUntilBothPlacesAreGone) {
  Life life;
  const Ref<Node> parent = makeRef<Node>();
  {
    const Ref<Node> twice = makeRef<Node>(life.watch());
    parent->children = {twice, twice};
  }
  parent->children.erase(parent->children.begin());
  EXPECT_FALSE(life.over());
  parent->children.erase(parent->children.begin());
  EXPECT_TRUE(life.over());
}

TEST(Children, additionSetsNoParentLink) {
  const Ref<Node> parent = makeRef<Node>();
  const Ref<Node> child = makeRef<Node>();
  parent->children.push_back(child);
  EXPECT_FALSE(child->parent);
}

TEST(Children, copyHoldsTheRecordsOnItsOwn) {
  Life life;
  Children<Node> original{makeRef<Node>(life.watch())};
  Children<Node> copy = original;
  original.clear();
  EXPECT_FALSE(life.over());
  EXPECT_EQ(copy.size(), 1U);
  copy = Children<Node>();
  EXPECT_TRUE(life.over());
}

TEST(Children, moveLeavesTheSourceEmpty) {
  Life life;
  Children<Node> source{makeRef<Node>(life.watch())};
  Children<Node> target = std::move(source);
  EXPECT_TRUE(source.empty());  // NOLINT(bugprone-use-after-move): this is the subject
  EXPECT_EQ(target.size(), 1U);
  EXPECT_FALSE(life.over());
}

TEST(Children, assignmentToItselfKeepsTheRecords) {
  Life life;
  Children<Node> children{makeRef<Node>(life.watch())};
  Children<Node>& same = children;
  children = same;
  EXPECT_FALSE(life.over());
  EXPECT_EQ(children.size(), 1U);
}

TEST(Children, eraseFreesOneAndGivesTheNext) {
  Life first;
  Life middle;
  Children<Node> children{makeRef<Node>(first.watch()), makeRef<Node>(middle.watch()), makeRef<Node>()};
  const Node* const last = &children[2];
  const auto next = children.erase(children.begin() + 1);
  EXPECT_EQ(&*next, last);
  EXPECT_TRUE(middle.over());
  EXPECT_FALSE(first.over());
  const auto end = children.erase(next);
  EXPECT_EQ(end, children.end());
  EXPECT_EQ(children.size(), 1U);
}

TEST(Children, refsHoldsAllInOrder) {
  Life life;
  Children<Node> children{makeRef<Node>(life.watch()), makeRef<Node>()};
  std::vector<Ref<Node>> handles = children.refs();
  const Node* const second = &children.back();
  children.clear();
  EXPECT_FALSE(life.over());
  ASSERT_EQ(handles.size(), 2U);
  EXPECT_EQ(handles[1].get(), second);
}

TEST(Children, vectorOfHandlesBecomesAnArrayInTheSameOrder) {
  const std::vector<Ref<Node>> handles{makeRef<Node>(), makeRef<Node>()};
  const Children<Node> children = handles;
  ASSERT_EQ(children.size(), 2U);
  EXPECT_EQ(&children[0], handles[0].get());
  EXPECT_EQ(&children[1], handles[1].get());
}

TEST(Children, iteratesOverTheRecordsThemselves) {
  Children<Node> children{makeRef<Node>(std::any(1)), makeRef<Node>(std::any(2)), makeRef<Node>(std::any(3))};
  int sum = 0;
  for (const Node& node : children) sum += std::any_cast<int>(node.payload);
  EXPECT_EQ(sum, 6);
  EXPECT_EQ(children.end() - children.begin(), 3);
  EXPECT_EQ(&children.begin()[2], &children.back());
  EXPECT_EQ(&children.front(), &*children.begin());
}

/// Removes the middle record's array from the tree and releases the rest.
template <class Take>
void expectTheTreeIsKeptBy(Take take) {
  Chain chain;
  {
    [[maybe_unused]] const auto kept = take(chain);
    chain.root->children.clear();
    chain.root = chain.middle = chain.leaf = nullptr;
    EXPECT_FALSE(chain.rootLife.over() || chain.middleLife.over() || chain.leafLife.over());
  }
  EXPECT_TRUE(chain.rootLife.over() && chain.middleLife.over() && chain.leafLife.over());
}

TEST(Children, copyOfAFieldKeepsTheParentsOfItsRecords) {
  Chain chain;
  Children<Node> shown = chain.middle->children;
  chain.middle->children.clear();
  chain.root->children.clear();
  chain.root = chain.middle = chain.leaf = nullptr;
  EXPECT_FALSE(chain.rootLife.over() || chain.middleLife.over());
  EXPECT_TRUE(shown[0].parent->parent->payload.has_value());
  shown.clear();
  EXPECT_TRUE(chain.rootLife.over() && chain.middleLife.over() && chain.leafLife.over());
}

TEST(Children, everySpellingThatTakesAFieldOutKeepsTheParents) {
  expectTheTreeIsKeptBy([](Chain& chain) { return chain.middle->children; });
  expectTheTreeIsKeptBy([](Chain& chain) { return std::move(chain.middle->children); });
  expectTheTreeIsKeptBy([](Chain& chain) { return std::exchange(chain.middle->children, {}); });
  expectTheTreeIsKeptBy([](Chain& chain) { return chain.middle->children.refs(); });
  expectTheTreeIsKeptBy([](Chain& chain) { return chain.middle->children.ref(0); });
  expectTheTreeIsKeptBy([](Chain& chain) { return std::any(chain.middle->children); });
  expectTheTreeIsKeptBy([](Chain& chain) { return std::optional(chain.middle->children); });
  expectTheTreeIsKeptBy([](Chain& chain) { return std::pair(chain.middle->children, 1); });
  expectTheTreeIsKeptBy([](Chain& chain) { return std::vector<Children<Node>>{chain.middle->children}; });
  expectTheTreeIsKeptBy([](Chain& chain) { return [kept = chain.middle->children] { return kept.size(); }; });
  expectTheTreeIsKeptBy([](Chain& chain) {
    Children<Node> kept;
    kept.swap(chain.middle->children);
    return kept;
  });
  expectTheTreeIsKeptBy([](Chain& chain) {
    Children<Node> kept;
    std::swap(kept, chain.middle->children);
    return kept;
  });
  expectTheTreeIsKeptBy([](Chain& chain) {
    Children<Node> kept;
    kept = chain.middle->children;
    return kept;
  });
  expectTheTreeIsKeptBy([](Chain& chain) {
    Children<Node> kept;
    kept.push_back(chain.leaf);
    return kept;
  });
}

TEST(Children, structuredBindingOfACopyKeepsTheParents) {
  Chain chain;
  auto [kept, number] = std::pair(chain.middle->children, 1);
  chain.root = chain.middle = chain.leaf = nullptr;
  EXPECT_EQ(number, 1);
  EXPECT_FALSE(chain.rootLife.over());
  EXPECT_TRUE(kept[0].parent->parent);
}

TEST(Children, loopOverATemporaryCopyKeepsTheParents) {
  Chain chain;
  const auto copy = [&chain] { return Children<Node>(chain.middle->children); };
  for (const Node& node : copy()) {
    chain.root = chain.middle = chain.leaf = nullptr;
    EXPECT_FALSE(chain.rootLife.over());
    EXPECT_TRUE(node.parent->parent);
  }
  EXPECT_TRUE(chain.rootLife.over());
}

TEST(Children, growingVectorOfArraysKeepsTheParents) {
  Chain chain;
  std::vector<Children<Node>> kept;
  for (int i = 0; i < 20; ++i) kept.push_back(chain.middle->children);
  chain.root = chain.middle = chain.leaf = nullptr;
  EXPECT_FALSE(chain.rootLife.over());
  kept.clear();
  EXPECT_TRUE(chain.rootLife.over());
}

TEST(Children, arrayThatIsGivenToARecordHoldsNothingAboveAnyMore) {
  Chain chain;
  Children<Node> kept = chain.middle->children;
  chain.middle->children = std::move(kept);
  chain.middle->children = Children<Node>(chain.middle->children);
  chain.middle->children.swap(chain.middle->children);
  chain.root->children.swap(chain.middle->children);
  std::swap(chain.root->children, chain.middle->children);
  EXPECT_EQ(chain.middle->children.size(), 1U);
  chain.root = chain.middle = chain.leaf = nullptr;
  EXPECT_TRUE(chain.rootLife.over() && chain.middleLife.over() && chain.leafLife.over());
}

TEST(Children, insertAndEraseWorkAsInAVector) {
  const Ref<Node> record = makeRef<Node>();
  Children<Node>& children = record->children;
  Life life;
  for (int i = 0; i < 4; ++i) children.push_back(makeRef<Node>(std::any(i)));
  const auto inserted = children.insert(children.begin() + 1, makeRef<Node>(life.watch()));
  EXPECT_EQ(&*inserted, &children[1]);
  EXPECT_EQ(children.size(), 5U);
  const auto next = children.erase(children.begin(), children.begin() + 2);
  EXPECT_EQ(&*next, &children[0]);
  EXPECT_TRUE(life.over());
  children.pop_back();
  ASSERT_EQ(children.size(), 2U);
  EXPECT_EQ(std::any_cast<int>(children[0].payload), 1);
  EXPECT_EQ(std::any_cast<int>(children[1].payload), 2);
  EXPECT_EQ(children.erase(children.end(), children.end()), children.end());
}

TEST(OptionalChildren, readsAndWritesLikeTheStandardOptional) {
  std::optional<Children<Node>> children;
  EXPECT_FALSE(children.has_value());
  EXPECT_TRUE(children == std::nullopt);
  EXPECT_THROW((void)children.value(), std::bad_optional_access);
  EXPECT_TRUE(children.value_or(Children<Node>()).empty());
  children = {makeRef<Node>(), makeRef<Node>()};
  EXPECT_EQ(children->size(), 2U);
  EXPECT_EQ(children.value().size(), 2U);
  children = std::vector<Ref<Node>>{makeRef<Node>()};
  EXPECT_EQ((*children).size(), 1U);
  children = {};
  EXPECT_FALSE(children);
  EXPECT_TRUE(children.emplace().empty());
  EXPECT_EQ(children.emplace({makeRef<Node>()}).size(), 1U);
  children = std::nullopt;
  EXPECT_FALSE(children);
  EXPECT_EQ(std::make_optional(Children<Node>{makeRef<Node>()})->size(), 1U);
}

}  // namespace
}  // namespace sorrel::test
