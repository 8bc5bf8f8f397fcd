#include "Helper/PathResult.hpp"

#include <pwd.h>

#include <cstring>
#include <optional>

namespace sorrel::helper {
namespace {

/// No item has this number: Linux assigns the device 0 to no file system.
constexpr ItemNumber kNothing{0, 0};

std::optional<ItemNumber> expectedBy(const SenderView& seen) {
  switch (seen.kind) {
    case SenderView::Kind::Present:
      return ItemNumber{seen.device, seen.inode};
    case SenderView::Kind::CouldNotLook:
      return std::nullopt;
    case SenderView::Kind::Absent:
    case SenderView::Kind::NoPath:
      break;
  }
  return kNothing;
}

/// The name of a user, or the number if the user has no name.
std::string nameOf(std::uint32_t uid) {
  const passwd* const user = ::getpwuid(uid);
  return user != nullptr ? user->pw_name : "user " + std::to_string(uid);
}

PathResult refusedFor(HelperEventErrorID status, std::string_view whose,
                      std::optional<std::uint32_t> stranger) {
  PathResult result = refused(status);
  if (stranger) result.desc += std::string(whose) + nameOf(*stranger) + ".";
  return result;
}

}  // namespace

PathResult succeeded() { return {HelperEventErrorID::Success, ""}; }
PathResult refused(HelperEventErrorID status) { return {status, std::string(kRefusedItemText)}; }

PathResult failed(HelperEventErrorID status, std::string_view what, const RemovalTarget& target) {
  if (target.isRefused()) return refusedFor(status, " It belongs to ", target.stranger());
  return failed(status, what, target.error());
}

PathResult failed(HelperEventErrorID status, std::string_view what, const FolderRemoval& removal) {
  if (removal.isRefused()) return refusedFor(status, " Something in it belongs to ", removal.stranger());
  return failed(status, what, removal.error());
}

PathResult failed(HelperEventErrorID status, std::string_view what, int error) {
  const char* const words = ::strerrordesc_np(error);
  return {status, std::string(what) + ": " + (words != nullptr ? words : "unknown error")};
}

RemovalTarget findSeen(std::string_view path, const SenderView& seen, const RemovalPolicy& policy) {
  return RemovalTarget::find(std::string(path), policy, expectedBy(seen));
}

}  // namespace sorrel::helper
