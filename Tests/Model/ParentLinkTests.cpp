#include "SorrelFramework/Model/ParentLink.hpp"

#include <gtest/gtest.h>

#include <any>
#include <concepts>
#include <functional>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Tests/Model/RefKit.hpp"

namespace sorrel::test {
namespace {

// A link is a field only if a record makes it: no other code has the required argument.
static_assert(!std::constructible_from<ParentLink<Node>, Node&, Node*>);
static_assert(!std::constructible_from<ParentLink<Node>, TreeNode&, Node*>);
// Neither a record nor a bare pointer converts to a link: both would look like a copy of the record.
static_assert(!std::convertible_to<Node&, ParentLink<Node>>);
static_assert(!std::convertible_to<Node*, ParentLink<Node>>);
static_assert(!std::convertible_to<ParentLink<Node>, Node*>);

TEST(ParentLink, moveToAnotherParentOfAHeldRecordMovesThePin) {
  Life oldLife;
  Life newLife;
  Ref<Node> child = makeRef<Node>(std::any(), makeRef<Node>(oldLife.watch()));
  child->parent = makeRef<Node>(newLife.watch());
  EXPECT_TRUE(oldLife.over());
  EXPECT_FALSE(newLife.over());
  child->parent = nullptr;
  EXPECT_TRUE(newLife.over());
}

TEST(ParentLink, parentThatOnlyALinkLeadsToStaysWithoutItsArray) {
  Chain chain;
  chain.leaf = nullptr;
  Life otherLife;
  Life belowLife;
  Ref<Node> other = makeRef<Node>(otherLife.watch());
  other->children.push_back(makeRef<Node>(belowLife.watch()));
  chain.middle->children[0].parent = other;
  other = nullptr;
  EXPECT_TRUE(belowLife.over());
  EXPECT_FALSE(otherLife.over());
  EXPECT_TRUE(chain.middle->children[0].parent->children.empty());
  chain.middle->children.clear();
  EXPECT_TRUE(otherLife.over());
}

TEST(ParentLink, moveUpToAParentReachedThroughTheOldOneKeepsIt) {
  Chain chain;
  chain.root = nullptr;
  chain.middle->children.clear();
  chain.middle = nullptr;
  // Only the middle keeps the root alive, and only the leaf's link the middle.
  chain.leaf->parent = chain.leaf->parent->parent;
  EXPECT_FALSE(chain.rootLife.over());
  EXPECT_FALSE(chain.middleLife.over());  // in the root's array
  chain.leaf = nullptr;
  EXPECT_TRUE(chain.rootLife.over());
}

TEST(ParentLink, sameParentAgainChangesNothing) {
  Chain chain;
  chain.leaf->parent = chain.middle;
  chain.root = nullptr;
  chain.middle = nullptr;
  EXPECT_FALSE(chain.rootLife.over());
  chain.leaf = nullptr;
  EXPECT_TRUE(chain.rootLife.over());
}

TEST(ParentLink, assignmentFromAnotherLinkTakesItsParent) {
  Life life;
  const Ref<Node> first = makeRef<Node>(std::any(), makeRef<Node>(life.watch()));
  const Ref<Node> second = makeRef<Node>();
  second->parent = first->parent;
  ParentLink<Node>& same = second->parent;
  second->parent = same;
  first->parent = nullptr;
  EXPECT_FALSE(life.over());
  second->parent = nullptr;
  EXPECT_TRUE(life.over());
}

TEST(ParentLink, parentOfARecordInTwoArraysStaysReachableThroughTheOther) {
  Ref<Node> keeper = makeRef<Node>();
  Life grandparentLife;
  {
    Ref<Node> parent = makeRef<Node>(std::any(7), makeRef<Node>(grandparentLife.watch()));
    Ref<Node> child = makeRef<Node>(std::any(), parent);
    parent->children.push_back(child);
    keeper->children.push_back(child);
  }
  EXPECT_EQ(std::any_cast<int>(keeper->children[0].parent->payload), 7);
  EXPECT_TRUE(keeper->children[0].parent->parent);
  EXPECT_FALSE(grandparentLife.over());
  keeper = nullptr;
  EXPECT_TRUE(grandparentLife.over());
}

TEST(ParentLink, parentStaysReachableAfterItsArrayWasMovedToAnotherRecord) {
  Life life;
  Ref<Node> keeper = makeRef<Node>();
  {
    Ref<Node> parent = makeRef<Node>(life.watch());
    parent->children.push_back(makeRef<Node>(std::any(), parent));
    std::swap(keeper->children, parent->children);
  }
  EXPECT_FALSE(life.over());
  EXPECT_TRUE(keeper->children[0].parent->children.empty());
  keeper->children.clear();
  EXPECT_TRUE(life.over());
}

TEST(ParentLink, parentThatCameBackThroughALinkGoesWithItAgain) {
  Life life;
  const Ref<Node> keeper = makeRef<Node>();
  keeper->children.push_back(makeRef<Node>(std::any(), makeRef<Node>(life.watch())));
  for (int round = 0; round < 3; ++round) {
    Ref<Node> parent = keeper->children[0].parent;
    EXPECT_FALSE(life.over());
    ASSERT_TRUE(parent);
  }
  keeper->children.clear();
  EXPECT_TRUE(life.over());
}

TEST(ParentLink, chainOfAnyLengthThatOnlyLinksKeepIsFreedOnASmallStack) {
  constexpr int kDepth = 400'000;
  Life rootLife;
  Ref<Node> keeper = makeRef<Node>();
  {
    Ref<Node> above = makeRef<Node>(rootLife.watch());
    for (int depth = 1; depth < kDepth; ++depth) above = makeRef<Node>(std::any(), above);
    keeper->children.push_back(above);
  }
  EXPECT_FALSE(rootLife.over());
  keeper = nullptr;
  EXPECT_TRUE(rootLife.over());
}

TEST(ParentLink, copyOfTheFieldHoldsTheParent) {
  Chain chain;
  auto parent = chain.leaf->parent;
  chain.root = chain.middle = chain.leaf = nullptr;
  ASSERT_TRUE(parent);
  EXPECT_EQ(parent->children.size(), 1U);
  EXPECT_EQ(parent->parent->children.size(), 1U);
}

TEST(ParentLink, copyOfTheFieldFreesTheTreeWhenItGoes) {
  Chain chain;
  {
    auto parent = chain.leaf->parent;
    auto copy = parent;
    copy = chain.leaf->parent;
    parent = nullptr;
    chain.root = chain.middle = chain.leaf = nullptr;
    EXPECT_FALSE(chain.rootLife.over() || chain.leafLife.over());
  }
  EXPECT_TRUE(chain.rootLife.over() && chain.middleLife.over() && chain.leafLife.over());
}

TEST(ParentLink, lambdaThatReturnsTheFieldReturnsAHandle) {
  Chain chain;
  const auto parentOf = [](const Ref<Node>& record) { return record->parent; };
  const auto parent = parentOf(chain.leaf);
  chain.root = chain.middle = chain.leaf = nullptr;
  EXPECT_FALSE(chain.rootLife.over());
  EXPECT_EQ(parent->children[0].parent, parent);
}

TEST(ParentLink, copyInAnAnyHoldsTheParent) {
  Chain chain;
  std::any kept = chain.leaf->parent;
  chain.root = chain.middle = chain.leaf = nullptr;
  EXPECT_FALSE(chain.middleLife.over());
  kept.reset();
  EXPECT_TRUE(chain.middleLife.over());
}

TEST(ParentLink, comparesLikeARef) {
  const Chain chain;
  const auto& link = chain.leaf->parent;
  EXPECT_TRUE(link != nullptr);
  EXPECT_TRUE(nullptr != link);
  EXPECT_TRUE(chain.root->parent == nullptr);
  EXPECT_TRUE(link == chain.middle);
  EXPECT_TRUE(chain.middle == link);
  EXPECT_TRUE(link != chain.root);
  EXPECT_TRUE(link == makeRef<Node>(std::any(), chain.middle)->parent);
  EXPECT_EQ(std::unordered_set<Ref<Node>>{chain.middle}.count(link), 1U);
  EXPECT_EQ(std::hash<ParentLink<Node>>()(link), std::hash<Ref<Node>>()(chain.middle));
}

TEST(ParentLink, isWhereARefIsExpected) {
  const Chain chain;
  std::vector<Ref<Node>> handles;
  handles.push_back(chain.leaf->parent);
  handles.emplace_back(chain.leaf->parent);
  const Ref<Node> one = chain.leaf->parent;
  const Ref<Node> chosen = handles.empty() ? chain.root : chain.leaf->parent;
  const auto orNone = handles.empty() ? nullptr : chain.leaf->parent;
  EXPECT_EQ(handles[0], chain.middle);
  EXPECT_EQ(handles[1], one);
  EXPECT_EQ(chosen, one);
  EXPECT_EQ(orNone, one);
}

TEST(ParentLink, emptyBracesAssignNothing) {
  const Chain chain;
  chain.leaf->parent = {};
  EXPECT_FALSE(chain.leaf->parent);
}

TEST(ParentLink, swapOfTwoFieldsSwapsTheParents) {
  const Chain chain;
  const Ref<Node> other = makeRef<Node>();
  const Ref<Node> child = makeRef<Node>(std::any(), other);
  std::swap(child->parent, chain.leaf->parent);
  EXPECT_EQ(child->parent, chain.middle);
  EXPECT_EQ(chain.leaf->parent, other);
}

}  // namespace
}  // namespace sorrel::test
