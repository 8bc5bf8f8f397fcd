#include "SorrelFramework/Removal/TreeRemoval.hpp"

#include <utility>

namespace sorrel {

RemovalResult TreeRemover::removeItem(const std::string& path) { return remove(find(path)); }

RemovalTarget TreeRemover::find(const std::string& path) {
  return RemovalTarget::find(path, policy_, known_);
}

RemovalResult TreeRemover::remove(RemovalTarget target) {
  return run(std::move(target), FolderRemoval::Takes::Everything);
}

RemovalResult TreeRemover::removeWithoutBytes(RemovalTarget target) {
  return run(std::move(target), FolderRemoval::Takes::NothingWithBytes);
}

RemovalResult TreeRemover::run(RemovalTarget target, FolderRemoval::Takes takes) {
  if (target.error() != 0) return {target.error(), target.isRefused(), target.isAbsent(), 0};
  removal_.run(target.takeFolder(), target.leaf(), target.identity(), takes);
  return {removal_.error(), removal_.isRefused(), false, removal_.removedEntries()};
}

RemovalResult removeItem(const std::string& path, const RemovalPolicy& policy) {
  return TreeRemover(policy).removeItem(path);
}

RemovalResult removeExpectedItem(const std::string& path, const ItemNumber& expected,
                                 const RemovalPolicy& policy) {
  return TreeRemover(policy).remove(RemovalTarget::find(path, policy, expected));
}

}  // namespace sorrel
