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

}  // namespace
}  // namespace sorrel::test
