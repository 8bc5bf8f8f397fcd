#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace sorrel {

/// Base of the records of the information tree, with the counts that keep the tree's two promises: a parent
/// is reachable for as long as any of its children is in use, and a tree that nothing outside holds any more
/// is freed. docs/decisions/0001-tree-ownership.md gives the reasons.
///
/// A record is counted three times:
/// - *Handles* are held by users of the record: Ref, and each copy of a field (ParentLink, Children).
/// - *Slots* are its entries in the arrays that are fields of other records.
/// - *Links* are the parent fields of other records that refer to it.
///
/// While a record has a handle it keeps a handle on each of its parents, and so on up to the module. A record
/// with neither handles nor slots no longer owns anything below it: its arrays are emptied. Its memory is
/// freed with the last link, so a link never refers to a freed record. Slots own downwards, links own the
/// bare record upwards: there is no cycle.
///
/// Handles may be taken and dropped on any thread, also while another thread changes a link of the same
/// record. The fields themselves (parent links, arrays of children) are plain: one thread at a time reads and
/// changes them, and the last handle of a parent must not be dropped while another thread takes a first
/// handle on a child that outlives it.
class TreeNode {
 public:
  TreeNode(const TreeNode&) = delete;
  TreeNode& operator=(const TreeNode&) = delete;

 protected:
  static constexpr std::size_t kMaxParents = 2;
  struct Parents {
    TreeNode* node[kMaxParents] = {};
  };

  /// Makes a Children or ParentLink a field of a record. Only a record can name it; every other object of
  /// those types holds handles.
  class FieldOf {
   public:
    explicit FieldOf(TreeNode& record) noexcept : record_(&record) {}
    [[nodiscard]] TreeNode* record() const noexcept { return record_; }

   private:
    TreeNode* record_;
  };

  TreeNode() = default;
  virtual ~TreeNode() = default;

  /// The parents that a handle on this record keeps alive. Only the path through the last one may have any
  /// length; paths through the others are short.
  [[nodiscard]] virtual Parents parents() const noexcept { return {}; }
  /// Empties the record's arrays.
  virtual void dropChildren() noexcept {}

 private:
  template <class T>
  friend class Ref;
  template <class T>
  friend class Children;
  template <class T>
  friend class ParentLink;
  template <class T>
  friend class std::optional;

  static constexpr std::uint64_t kHandle = 1;
  static constexpr std::uint64_t kSlot = std::uint64_t{1} << 32;
  static constexpr std::uint64_t kLock = std::uint64_t{1} << 63;
  static constexpr std::uint64_t kHandleMask = kSlot - 1;

  void addHandle() noexcept;
  void addFirstHandle() noexcept;
  void dropHandle() noexcept;
  /// The caller has a handle, or another slot.
  void addSlot() noexcept { counts_.fetch_add(kSlot, std::memory_order_relaxed); }
  void dropSlot() noexcept;
  void addLink() noexcept { links_.fetch_add(1, std::memory_order_relaxed); }
  void dropLink() noexcept;

  /// Freezes the parent links, and whether there is a handle at all, until unlockLinks(). True if there is a
  /// handle.
  bool lockLinks() noexcept;
  void unlockLinks() noexcept;
  /// Counts one handle. True if it is the first: then the links are locked, and the caller must pin the
  /// parents.
  bool countHandle() noexcept;
  /// Removes one handle. True if it was the last: then `pinned` holds the parents that the caller must
  /// release, and this record may be gone.
  bool uncountHandle(Parents& pinned) noexcept;
  /// Retires or frees a record that just lost its last handle and slot, or its last link.
  static void dispose(TreeNode* unused) noexcept;
  static void retireOrFree(TreeNode* unused) noexcept;

  // Handles, slots and the lock of the links.
  std::atomic<std::uint64_t> counts_{0};
  // Links, and one more while counts_ is not zero. The record is freed when it falls to zero.
  std::atomic<std::uint32_t> links_{0};
};

}  // namespace sorrel
