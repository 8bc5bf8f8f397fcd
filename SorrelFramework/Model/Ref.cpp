#include "SorrelFramework/Model/Ref.hpp"

namespace sorrel {

void TreeNode::addHandle() noexcept {
  const std::uint64_t before = counts_.fetch_add(kHandle, std::memory_order_acq_rel);
  if ((before & kHandleMask) != 0) return;
  for (TreeNode* parent : parents().node) {
    if (parent != nullptr) parent->addHandle();
  }
}

void TreeNode::dropHandle() noexcept {
  // Read before the count falls: once it has, another thread may drop the last slot and free this record. The
  // parents stay alive meanwhile through the handles that this call is about to give back.
  TreeNode* self = this;
  const Parents pinned = parents();
  const std::uint64_t before = counts_.fetch_sub(kHandle, std::memory_order_acq_rel);
  if ((before & kHandleMask) != 1) return;
  if (before == kHandle) delete self;
  for (TreeNode* parent : pinned.node) {
    if (parent != nullptr) parent->dropHandle();
  }
}

void TreeNode::dropSlot() noexcept {
  if (counts_.fetch_sub(kSlot, std::memory_order_acq_rel) == kSlot) delete this;
}

}  // namespace sorrel
