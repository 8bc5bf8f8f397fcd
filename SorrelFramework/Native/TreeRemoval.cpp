#include "SorrelFramework/Native/TreeRemoval.hpp"

#include <optional>

#include "SorrelFramework/Native/FolderRemoval.hpp"
#include "SorrelFramework/Native/RemovalTarget.hpp"

namespace sorrel {
namespace {

RemovalResult removeIf(const std::string& path, const RemovalPolicy& policy,
                       const std::optional<ItemNumber>& expected) {
  RemovalTarget target = RemovalTarget::find(path, policy, expected);
  if (target.error() != 0) return {target.error(), target.isRefused(), target.isAbsent(), 0};
  FolderRemoval removal(policy);
  removal.run(target.takeFolder(), target.leaf(), target.identity());
  return {removal.error(), removal.isRefused(), false, removal.removedEntries()};
}

}  // namespace

RemovalResult removeItem(const std::string& path, const RemovalPolicy& policy) {
  return removeIf(path, policy, std::nullopt);
}

RemovalResult removeExpectedItem(const std::string& path, const ItemNumber& expected,
                                 const RemovalPolicy& policy) {
  return removeIf(path, policy, expected);
}

}  // namespace sorrel
