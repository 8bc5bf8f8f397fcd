#include "SorrelFramework/Scan/Duplicate/SubfolderSizes.hpp"

namespace sorrel {

bool SubfolderSizes::contains(std::int64_t size) const {
  for (std::size_t i = first_; i < last_; ++i) {
    if (walk_->folders[i].size == size) return true;
  }
  return false;
}

std::unordered_set<std::int64_t> SubfolderSizes::values() const {
  std::unordered_set<std::int64_t> sizes;
  for (std::size_t i = first_; i < last_; ++i) sizes.insert(walk_->folders[i].size);
  return sizes;
}

void SizeUnion::insert(const SubfolderSizes& sizes) {
  std::size_t i = sizes.last_;
  while (i > sizes.first_) {
    const WalkedSizes::Folder& folder = sizes.walk_->folders[--i];
    sizes_.insert(folder.size);
    // Two folders are nested or disjoint: if this one is in already, so is everything below it.
    if (!expanded_.insert(&folder).second) i = folder.first;
  }
}

}  // namespace sorrel
