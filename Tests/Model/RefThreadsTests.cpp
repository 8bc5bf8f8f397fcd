#include "SorrelFramework/Model/Ref.hpp"

#include <gtest/gtest.h>

#include <any>
#include <atomic>
#include <latch>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "Tests/Model/RefKit.hpp"

namespace sorrel::test {
namespace {

TEST(RefThreads, handlesDroppedOnManyThreadsFreeTheTreeOnce) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 200;
  for (int round = 0; round < kRounds; ++round) {
    Chain chain;
    std::vector<Ref<Node>> handles;
    handles.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) handles.push_back(i % 2 == 0 ? chain.leaf : chain.middle);
    chain.root = nullptr;
    chain.middle = nullptr;
    chain.leaf = nullptr;
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
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
  threads.reserve(kThreads);
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

}  // namespace
}  // namespace sorrel::test
