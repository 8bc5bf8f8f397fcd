#include "SorrelFramework/Model/Ref.hpp"

#include <gtest/gtest.h>

#include <any>
#include <utility>
#include <vector>

#include "Tests/Model/RefKit.hpp"

namespace sorrel::test {
namespace {

TEST(Ref, isOnePointerWide) { EXPECT_EQ(sizeof(Ref<Node>), sizeof(void*)); }

TEST(Ref, emptyHandleIsFalseAndNull) {
  const Ref<Node> none;
  EXPECT_FALSE(none);
  EXPECT_EQ(none.get(), nullptr);
  EXPECT_EQ(none, Ref<Node>(nullptr));
}

TEST(Ref, recordIsFreedWithItsLastHandle) {
  Life life;
  Ref<Node> first = makeRef<Node>(life.watch());
  Ref<Node> second = first;
  first = nullptr;
  EXPECT_FALSE(life.over());
  second = nullptr;
  EXPECT_TRUE(life.over());
}

TEST(Ref, moveLeavesTheSourceEmptyAndTheRecordAlive) {
  Life life;
  Ref<Node> source = makeRef<Node>(life.watch());
  const Ref<Node> target = std::move(source);
  EXPECT_FALSE(source);  // NOLINT(bugprone-use-after-move): this is the subject
  EXPECT_FALSE(life.over());
  EXPECT_TRUE(target);
}

TEST(Ref, assignmentToItselfKeepsTheRecord) {
  Life life;
  Ref<Node> handle = makeRef<Node>(life.watch());
  Ref<Node>& same = handle;
  handle = same;
  EXPECT_FALSE(life.over());
  ASSERT_TRUE(handle);
}

TEST(Ref, assignmentFreesWhatWasHeldBefore) {
  Life life;
  Ref<Node> handle = makeRef<Node>(life.watch());
  handle = makeRef<Node>();
  EXPECT_TRUE(life.over());
}

TEST(Ref, recordAtHandAsAReferenceCanBeHeldAgain) {
  Life life;
  Ref<Node> handle = makeRef<Node>(life.watch());
  Node& record = *handle;
  const Ref<Node> again(record);
  handle = nullptr;
  EXPECT_FALSE(life.over());
  EXPECT_EQ(again.get(), &record);
}

TEST(Ref, comparesAndHashesByObject) {
  const Ref<Node> a = makeRef<Node>();
  const Ref<Node> b = makeRef<Node>();
  const Ref<Node> sameAsA = a;
  EXPECT_EQ(a, sameAsA);
  EXPECT_FALSE(a == b);
  EXPECT_EQ(std::hash<Ref<Node>>()(a), std::hash<Ref<Node>>()(sameAsA));
}

TEST(Ref, leafAloneKeepsTheWholeTreeAlive) {
  Chain chain;
  chain.root = nullptr;
  chain.middle = nullptr;
  EXPECT_FALSE(chain.rootLife.over());
  EXPECT_EQ(&chain.leaf->parent->parent->children[0], chain.leaf->parent.get());
}

TEST(Ref, rootAloneKeepsTheWholeTreeAlive) {
  Chain chain;
  chain.middle = nullptr;
  chain.leaf = nullptr;
  EXPECT_FALSE(chain.leafLife.over());
  EXPECT_EQ(chain.root->children[0].children.size(), 1U);
}

TEST(Ref, treeIsFreedWithTheLastHandleWhicheverThatIs) {
  for (int last = 0; last < 3; ++last) {
    Chain chain;
    Ref<Node>* const handles[] = {&chain.root, &chain.middle, &chain.leaf};
    for (int i = 0; i < 3; ++i) {
      if (i != last) *handles[i] = nullptr;
    }
    EXPECT_FALSE(chain.rootLife.over() || chain.middleLife.over() || chain.leafLife.over()) << last;
    *handles[last] = nullptr;
    EXPECT_TRUE(chain.rootLife.over() && chain.middleLife.over() && chain.leafLife.over()) << last;
  }
}

TEST(Ref, handleTakenOutOfAnArrayPinsTheParents) {
  Chain chain;
  chain.leaf = nullptr;
  Ref<Node> taken = chain.middle->children.ref(0);
  chain.root = nullptr;
  chain.middle = nullptr;
  EXPECT_FALSE(chain.rootLife.over());
  taken = nullptr;
  EXPECT_TRUE(chain.rootLife.over());
}

TEST(Ref, handleGotFromAParentLinkKeepsTheTreeAlive) {
  Chain chain;
  Ref<Node> root = chain.leaf->parent->parent;
  chain.root = nullptr;
  chain.middle = nullptr;
  chain.leaf = nullptr;
  EXPECT_FALSE(chain.leafLife.over());
  root = nullptr;
  EXPECT_TRUE(chain.leafLife.over());
}

TEST(Ref, secondParentIsPinnedLikeTheFirst) {
  Life ownerLife;
  Ref<Node> child = makeRef<Node>(std::any(), Ref<Node>(), makeRef<Node>(ownerLife.watch()));
  EXPECT_FALSE(ownerLife.over());
  child = nullptr;
  EXPECT_TRUE(ownerLife.over());
}

TEST(Ref, droppedSlotOfAHeldRecordLeavesItAndItsParentAlive) {
  Chain chain;
  chain.middle->children.clear();
  chain.root = nullptr;
  chain.middle = nullptr;
  EXPECT_FALSE(chain.leafLife.over());
  EXPECT_FALSE(chain.rootLife.over());
  EXPECT_TRUE(chain.leaf->parent->children.empty());
  chain.leaf = nullptr;
  EXPECT_TRUE(chain.leafLife.over());
  EXPECT_TRUE(chain.rootLife.over());
}

TEST(Ref, payloadThatHoldsAHandleIsFreedWithItsRecord) {
  Life life;
  Ref<Node> holder = makeRef<Node>(std::any(makeRef<Node>(life.watch())));
  EXPECT_FALSE(life.over());
  holder = nullptr;
  EXPECT_TRUE(life.over());
}

TEST(Ref, recordSharedByFiveArraysKeepsItsParentThroughEachOfThem) {
  Chain chain;
  std::vector<Ref<Node>> others;
  for (int i = 0; i < 4; ++i) others.push_back(makeRef<Node>(std::any(), chain.root));
  for (const Ref<Node>& other : others) {
    chain.root->children.push_back(other);
    other->children.push_back(chain.leaf);
  }
  chain.root = nullptr;
  chain.middle = nullptr;
  others.clear();
  EXPECT_FALSE(chain.rootLife.over());
  EXPECT_EQ(chain.leaf->parent->parent->children.size(), 5U);
  chain.leaf = nullptr;
  EXPECT_TRUE(chain.rootLife.over() && chain.leafLife.over());
}

TEST(Ref, treeOfAnyDepthIsPinnedAndFreedOnASmallStack) {
  constexpr int kDepth = 400'000;
  Life rootLife;
  Life leafLife;
  Ref<Node> root = makeRef<Node>(rootLife.watch());
  {
    Ref<Node> above = root;
    for (int depth = 1; depth < kDepth; ++depth) {
      Ref<Node> next = makeRef<Node>(std::any(), above);
      above->children.push_back(next);
      above = std::move(next);
    }
    above->payload = leafLife.watch();
  }
  Node* deepest = root.get();
  while (!deepest->children.empty()) deepest = &deepest->children[0];
  Ref<Node> leaf(*deepest);
  root = nullptr;
  EXPECT_FALSE(rootLife.over());
  leaf = nullptr;
  EXPECT_TRUE(rootLife.over());
  EXPECT_TRUE(leafLife.over());
}

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

TEST(ParentLink, moveOfARecordThatNobodyHoldsPinsNothing) {
  Chain chain;
  chain.leaf = nullptr;
  Life otherLife;
  Ref<Node> other = makeRef<Node>(otherLife.watch());
  chain.middle->children[0].parent = other;
  other = nullptr;
  EXPECT_TRUE(otherLife.over());
}

TEST(ParentLink, moveUpToAParentReachedThroughTheOldOneKeepsIt) {
  Chain chain;
  chain.root = nullptr;
  chain.middle->children.clear();
  chain.middle = nullptr;
  // The root lives through the middle alone, and the middle through the leaf's link.
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

TEST(ParentLink, parentThatIsFreedLeavesNoLinkBehindInAChildThatLivesOn) {
  Ref<Node> keeper = makeRef<Node>();
  {
    Ref<Node> parent = makeRef<Node>();
    Ref<Node> child = makeRef<Node>(std::any(), parent);
    parent->children.push_back(child);
    keeper->children.push_back(child);
  }
  EXPECT_FALSE(keeper->children[0].parent);
  EXPECT_TRUE(keeper->children.ref(0));
}

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

}  // namespace
}  // namespace sorrel::test
