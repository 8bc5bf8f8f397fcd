#include "SorrelFramework/Model/Ref.hpp"

#include <gtest/gtest.h>

#include <any>
#include <atomic>
#include <latch>
#include <memory>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"

namespace sorrel {
namespace {

/// A record with all that the records of the tree have: children, two parents, a payload.
class Node final : public TreeNode {
 public:
  explicit Node(std::any newPayload = {}, const Ref<Node>& newParent = {}, const Ref<Node>& newOwner = {})
      : payload(std::move(newPayload)), owner(*this, newOwner.get()), parent(*this, newParent.get()) {}

  std::any payload;
  Children<Node> children;
  ParentLink<Node> owner;
  ParentLink<Node> parent;

 private:
  ~Node() override {
    for (Node& child : children) child.parent.forget(*this);
  }
  [[nodiscard]] Parents parents() const noexcept override { return {{owner.get(), parent.get()}}; }
};

/// Tells through a payload whether a record lives.
class Life {
 public:
  /// The payload to give to the record that is watched; once.
  [[nodiscard]] std::any watch() { return std::exchange(held_, nullptr); }
  [[nodiscard]] bool over() const { return watched_.expired(); }

 private:
  std::shared_ptr<int> held_ = std::make_shared<int>(0);
  std::weak_ptr<int> watched_ = held_;
};

/// root > middle > leaf, each with a link to the one above.
struct Chain {
  Life rootLife, middleLife, leafLife;
  Ref<Node> root = makeRef<Node>(rootLife.watch());
  Ref<Node> middle = makeRef<Node>(middleLife.watch(), root);
  Ref<Node> leaf = makeRef<Node>(leafLife.watch(), middle);

  Chain() {
    root->children.push_back(middle);
    middle->children.push_back(leaf);
  }
};

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

TEST(RefThreads, handlesDroppedOnManyThreadsFreeTheTreeOnce) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 200;
  for (int round = 0; round < kRounds; ++round) {
    Chain chain;
    std::vector<Ref<Node>> handles;
    for (int i = 0; i < kThreads; ++i) handles.push_back(i % 2 == 0 ? chain.leaf : chain.middle);
    chain.root = nullptr;
    chain.middle = nullptr;
    chain.leaf = nullptr;
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (Ref<Node>& handle : handles) {
      threads.emplace_back([&start, held = std::move(handle)]() mutable {
        start.arrive_and_wait();
        held = nullptr;
      });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_TRUE(chain.rootLife.over() && chain.middleLife.over() && chain.leafLife.over());
  }
}

TEST(RefThreads, handlesTakenAndDroppedOnManyThreadsKeepTheCount) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 5'000;
  Chain chain;
  chain.middle = nullptr;
  chain.leaf = nullptr;
  std::latch start(kThreads);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      start.arrive_and_wait();
      for (int round = 0; round < kRounds; ++round) {
        const Ref<Node> leaf = chain.root->children[0].children.ref(0);
        if (leaf->parent->parent.get() != chain.root.get()) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  chain.root = nullptr;
  EXPECT_TRUE(chain.rootLife.over() && chain.leafLife.over());
}

TEST(RefThreads, linkChangesWhileHandlesComeAndGoElsewhere) {
  constexpr int kRounds = 5'000;
  Life firstLife;
  Life secondLife;
  Ref<Node> first = makeRef<Node>(firstLife.watch());
  Ref<Node> second = makeRef<Node>(secondLife.watch());
  Ref<Node> top = makeRef<Node>();
  top->children.push_back(makeRef<Node>(std::any(), first));
  std::latch start(2);
  std::thread mover([&] {
    start.arrive_and_wait();
    for (int round = 0; round < kRounds; ++round) {
      top->children[0].parent = round % 2 == 0 ? second : first;
    }
  });
  std::thread holder([&] {
    start.arrive_and_wait();
    for (int round = 0; round < kRounds; ++round) (void)top->children.ref(0);
  });
  mover.join();
  holder.join();
  top = nullptr;
  EXPECT_FALSE(firstLife.over() || secondLife.over());
  first = nullptr;
  second = nullptr;
  EXPECT_TRUE(firstLife.over() && secondLife.over());
}

TEST(RefThreads, slotAndHandleDroppedAtOnceFreeTheRecordOnce) {
  constexpr int kRounds = 500;
  for (int round = 0; round < kRounds; ++round) {
    Life life;
    Ref<Node> record = makeRef<Node>(life.watch());
    auto array = std::make_unique<Children<Node>>(Children<Node>{record});
    std::latch start(2);
    std::thread slot([&] {
      start.arrive_and_wait();
      array.reset();
    });
    std::thread handle([&] {
      start.arrive_and_wait();
      record = nullptr;
    });
    slot.join();
    handle.join();
    ASSERT_TRUE(life.over());
  }
}

/// A module with one feature, one category with a sub-category, a folder record and a file record in it.
struct RealTree {
  Life moduleLife, fileLife;
  Ref<FileInformation> file;

  RealTree() {
    const auto module =
        makeRef<ModuleInformation>(1, "", "", Image(), "", "", Children<FeatureInformation>());
    const auto feature = makeRef<FeatureInformation>(2, 0, Image(), "", "", Children<CategoryInformation>(),
                                                     module, moduleLife.watch());
    const auto all = makeCategory(feature);
    const auto sub = makeCategory(feature);
    const auto folder = makeFile(sub, {}, std::any());
    file = makeFile(sub, folder, fileLife.watch());
    module->featureInfo.push_back(feature);
    feature->categoryInfo.push_back(all);
    all->childrenCateogry = Children<CategoryInformation>{sub};
    sub->parentCategory = all;
    sub->childrens.push_back(folder);
    folder->childrens.push_back(file);
  }

  static Ref<CategoryInformation> makeCategory(const Ref<FeatureInformation>& feature) {
    return makeRef<CategoryInformation>(0, 0, "", Image(), 0, "", 1, std::vector<URL>(),
                                        Children<FileInformation>(), feature, std::any(), 0, false);
  }
  static Ref<FileInformation> makeFile(const Ref<CategoryInformation>& category,
                                       const Ref<FileInformation>& parent, std::any payload) {
    return makeRef<FileInformation>(0, 0, 0, "", Image(), 0, Date(), URL(), "", true, false,
                                    std::move(payload), Children<FileInformation>(), category, 1, 0, parent);
  }
};

TEST(Ref, fileRecordAloneReachesItsModule) {
  const RealTree tree;
  const CategoryInformation& category = *tree.file->parentFileInfo->parentCategoryInfo;
  EXPECT_EQ(category.parentCategory->featureInfo->moduleInfo->finderID, 1);
  EXPECT_FALSE(tree.moduleLife.over());
}

TEST(Ref, treeOfRecordsIsFreedWithTheLastFileHandle) {
  RealTree tree;
  tree.file = nullptr;
  EXPECT_TRUE(tree.moduleLife.over());
  EXPECT_TRUE(tree.fileLife.over());
}

TEST(Ref, categoryThatIsFreedLeavesNoLinkInARecordThatLivesOn) {
  RealTree tree;
  const auto other = makeRef<FeatureInformation>(3, 0, Image(), "", "", Children<CategoryInformation>(),
                                                 Ref<ModuleInformation>(), std::any());
  const auto keeper = RealTree::makeCategory(other);
  keeper->childrens.push_back(tree.file->parentFileInfo);
  tree.file = nullptr;
  EXPECT_TRUE(tree.moduleLife.over());
  EXPECT_FALSE(keeper->childrens[0].parentCategoryInfo);
  EXPECT_FALSE(keeper->childrens[0].childrens[0].parentCategoryInfo);
  EXPECT_EQ(keeper->childrens[0].childrens[0].parentFileInfo.get(), &keeper->childrens[0]);
}

Ref<FeatureInformation> makeFeature(const Ref<ModuleInformation>& module = {}) {
  return makeRef<FeatureInformation>(3, 0, Image(), "", "", Children<CategoryInformation>(), module,
                                     std::any());
}

TEST(Ref, categoryThatIsFreedLeavesNoLinkInARecordBelowAGroupThatGoesWithIt) {
  const auto keeper = RealTree::makeCategory(makeFeature());
  {
    const auto gone = RealTree::makeCategory(makeFeature());
    const auto group = RealTree::makeFile(gone, {}, std::any());
    const auto item = RealTree::makeFile(gone, group, std::any());
    gone->childrens.push_back(group);
    group->childrens.push_back(item);
    keeper->childrens.push_back(item);
  }
  EXPECT_FALSE(keeper->childrens[0].parentFileInfo);
  EXPECT_FALSE(keeper->childrens[0].parentCategoryInfo);
}

TEST(Ref, categoryThatIsFreedLeavesNoLinkInTheRecordsOfItsSubCategories) {
  const auto keeper = RealTree::makeCategory(makeFeature());
  {
    const auto gone = RealTree::makeCategory(makeFeature());
    const auto sub = RealTree::makeCategory(makeFeature());
    gone->childrenCateogry = Children<CategoryInformation>{sub};
    const auto item = RealTree::makeFile(gone, {}, std::any());
    sub->childrens.push_back(item);
    keeper->childrens.push_back(item);
  }
  EXPECT_FALSE(keeper->childrens[0].parentCategoryInfo);
}

TEST(Ref, featureThatIsFreedLeavesNoLinkInASubCategoryThatLivesOn) {
  Children<CategoryInformation> kept;
  {
    const auto gone = makeFeature();
    const auto all = RealTree::makeCategory(gone);
    const auto sub = RealTree::makeCategory(gone);
    gone->categoryInfo.push_back(all);
    all->childrenCateogry = Children<CategoryInformation>{sub};
    sub->parentCategory = all;
    kept.push_back(sub);
  }
  EXPECT_FALSE(kept[0].parentCategory);
  EXPECT_FALSE(kept[0].featureInfo);
}

}  // namespace
}  // namespace sorrel
