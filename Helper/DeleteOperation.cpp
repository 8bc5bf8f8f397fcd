#include "Helper/DeleteOperation.hpp"

#include "SorrelFramework/Removal/FolderRemoval.hpp"

namespace sorrel::helper {
namespace {

constexpr std::string_view kWhat = "Couldn’t be removed";

}  // namespace

PathResult deletePath(std::string_view path, const SenderView& seen, const RemovalPolicy& policy) {
  constexpr auto kFailure = HelperEventErrorID::DeleteError;
  RemovalTarget target = findSeen(path, seen, policy);
  if (target.isAbsent() && seen.kind == SenderView::Kind::Absent) return succeeded();
  if (target.error() != 0) return failed(kFailure, kWhat, target);
  FolderRemoval removal(policy);
  removal.run(target.takeFolder(), target.leaf(), target.identity());
  if (removal.error() == 0) return succeeded();
  return failed(kFailure, kWhat, removal);
}

}  // namespace sorrel::helper
