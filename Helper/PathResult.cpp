#include "Helper/PathResult.hpp"

#include <cstring>

namespace sorrel::helper {
namespace {

/// No item has this number: Linux gives no file system the device 0.
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

}  // namespace

PathResult succeeded() { return {HelperEventErrorID::Success, ""}; }
PathResult refused(HelperEventErrorID status) { return {status, std::string(kRefusedItemText)}; }

PathResult failed(HelperEventErrorID status, std::string_view what, int error, bool isRefused) {
  if (isRefused) return refused(status);
  const char* const words = ::strerrordesc_np(error);
  return {status, std::string(what) + ": " + (words != nullptr ? words : "unknown error")};
}

RemovalTarget findSeen(std::string_view path, const SenderView& seen, const RemovalPolicy& policy) {
  return RemovalTarget::find(std::string(path), policy, expectedBy(seen));
}

}  // namespace sorrel::helper
