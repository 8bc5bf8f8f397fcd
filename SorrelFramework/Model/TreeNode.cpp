#include "SorrelFramework/Model/TreeNode.hpp"

#include <thread>

namespace sorrel {

// The lock bit is held for a few instructions, except when a pin waits for a node further up. Locks are taken
// upwards only, so threads can't deadlock in a cycle.

bool TreeNode::countHandle() noexcept {
  std::uint64_t seen = counts_.load(std::memory_order_relaxed);
  for (;;) {
    const bool first = (seen & kHandleMask) == 0;
    if (first && (seen & kLock) != 0) {
      std::this_thread::yield();
      seen = counts_.load(std::memory_order_relaxed);
      continue;
    }
    const std::uint64_t next = seen + kHandle + (first ? kLock : 0);
    if (counts_.compare_exchange_weak(seen, next, std::memory_order_acquire, std::memory_order_relaxed)) {
      // A retired record is revived; the link that the caller followed kept it in memory.
      if (seen == 0) addLink();
      return first;
    }
  }
}

void TreeNode::addFirstHandle() noexcept {
  counts_.store(kHandle, std::memory_order_relaxed);
  links_.store(1, std::memory_order_relaxed);
  for (TreeNode* parent : parents().node) {
    if (parent != nullptr) parent->addHandle();
  }
}

void TreeNode::addHandle() noexcept {
  // A new record, still unknown to other threads. A scan makes millions of them.
  if (counts_.load(std::memory_order_relaxed) == 0 && links_.load(std::memory_order_relaxed) == 0) {
    return addFirstHandle();
  }

  // Iterates along the last parent and recurses for the others, which are few: folders may be nested to any
  // depth.
  TreeNode* node = this;
  bool first = node->countHandle();
  while (first) {
    const Parents up = node->parents();
    if (up.node[0] != nullptr) up.node[0]->addHandle();
    first = up.node[1] != nullptr && up.node[1]->countHandle();
    // Not earlier: a thread that changes the link would release a handle that the parent doesn't have yet.
    node->unlockLinks();
    node = up.node[1];
  }
}

bool TreeNode::uncountHandle(Parents& pinned) noexcept {
  std::uint64_t seen = counts_.load(std::memory_order_relaxed);
  for (;;) {
    const bool last = (seen & kHandleMask) == kHandle;
    if (last && (seen & kLock) != 0) {
      std::this_thread::yield();
      seen = counts_.load(std::memory_order_relaxed);
      continue;
    }
    const std::uint64_t next = last ? seen + kLock : seen - kHandle;
    if (!counts_.compare_exchange_weak(seen, next, std::memory_order_acq_rel, std::memory_order_relaxed)) {
      continue;
    }
    if (!last) return false;
    break;
  }
  // Read before the count drops: after that another thread may drop the last slot and free this record.
  // Meanwhile the handles that the caller is about to release keep the parents alive.
  pinned = parents();
  const std::uint64_t before = counts_.fetch_sub(kHandle + kLock, std::memory_order_acq_rel);
  if ((before & kHandleMask) != kHandle) return false;  // another thread took a handle meanwhile
  if (before == kHandle + kLock) dispose(this);
  return true;
}

void TreeNode::dropHandle() noexcept {
  TreeNode* node = this;
  Parents pinned;
  while (node != nullptr && node->uncountHandle(pinned)) {
    if (pinned.node[0] != nullptr) pinned.node[0]->dropHandle();
    node = pinned.node[1];
  }
}

void TreeNode::dropSlot() noexcept {
  if (counts_.fetch_sub(kSlot, std::memory_order_acq_rel) == kSlot) dispose(this);
}

void TreeNode::dropLink() noexcept {
  if (links_.fetch_sub(1, std::memory_order_acq_rel) == 1) dispose(this);
}

bool TreeNode::lockLinks() noexcept {
  std::uint64_t seen = counts_.load(std::memory_order_relaxed);
  for (;;) {
    if ((seen & kLock) != 0) {
      std::this_thread::yield();
      seen = counts_.load(std::memory_order_relaxed);
      continue;
    }
    if (counts_.compare_exchange_weak(seen, seen + kLock, std::memory_order_acquire,
                                      std::memory_order_relaxed)) {
      return (seen & kHandleMask) != 0;
    }
  }
}

void TreeNode::unlockLinks() noexcept { counts_.fetch_sub(kLock, std::memory_order_release); }

void TreeNode::retireOrFree(TreeNode* unused) noexcept {
  // One belongs to counts_ itself: no link is left, and no other thread can make one.
  if (unused->links_.load(std::memory_order_acquire) > 1) {
    unused->dropChildren();
    if (unused->links_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  }
  delete unused;
}

void TreeNode::dispose(TreeNode* unused) noexcept {
  // Freed one after another instead of recursively: the depth of a tree must not become the depth of the
  // stack. The counts of a waiting record are all zero, so their storage holds the next record of the queue.
  static_assert(sizeof(std::uintptr_t) <= sizeof(std::uint64_t));
  thread_local TreeNode* row = nullptr;
  thread_local bool running = false;

  unused->counts_.store(reinterpret_cast<std::uintptr_t>(row), std::memory_order_relaxed);
  row = unused;
  if (running) return;
  running = true;
  while (row != nullptr) {
    TreeNode* const next = row;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a pointer that was stored there a moment ago
    row = reinterpret_cast<TreeNode*>(
        static_cast<std::uintptr_t>(next->counts_.load(std::memory_order_relaxed)));
    next->counts_.store(0, std::memory_order_relaxed);
    retireOrFree(next);
  }
  running = false;
}

}  // namespace sorrel
