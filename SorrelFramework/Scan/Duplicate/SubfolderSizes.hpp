#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_set>
#include <utility>
#include <vector>

namespace sorrel {

/// The computed sizes of all folders that one walk entered, each folder after those below it. So the folders
/// below any folder form one contiguous range, and a walk keeps one entry for each folder at any depth.
struct WalkedSizes {
  struct Folder {
    std::int64_t size;
    std::size_t first;  ///< of the folders below it; the last one is the entry right before this one
  };
  std::vector<Folder> folders;
};

/// The set of sizes of all folders below one folder, at any depth.
class SubfolderSizes {
 public:
  SubfolderSizes() = default;
  /// The folders from `first` to `last` (exclusive) of the walk.
  SubfolderSizes(std::shared_ptr<const WalkedSizes> walk, std::size_t first, std::size_t last)
      : walk_(std::move(walk)), first_(first), last_(last) {}

  [[nodiscard]] bool empty() const noexcept { return first_ == last_; }
  [[nodiscard]] bool contains(std::int64_t size) const;
  [[nodiscard]] std::unordered_set<std::int64_t> values() const;

 private:
  friend class SizeUnion;

  std::shared_ptr<const WalkedSizes> walk_;
  std::size_t first_ = 0;
  std::size_t last_ = 0;
};

/// The union of many such sets. The entries below a folder are inserted once, even if many of its ancestors
/// are inserted too.
class SizeUnion {
 public:
  void insert(const SubfolderSizes& sizes);
  [[nodiscard]] bool contains(std::int64_t size) const { return sizes_.contains(size); }

 private:
  std::unordered_set<std::int64_t> sizes_;
  std::unordered_set<const WalkedSizes::Folder*> expanded_;  // everything below them is inserted
};

}  // namespace sorrel
