#include "Helper/ShredOperation.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "Helper/FileShredder.hpp"
#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel::helper {
namespace {

constexpr std::string_view kNotOverwritten = "Couldn’t be overwritten";
constexpr std::string_view kLeftData = "Data in shared, compressed or copied blocks was not overwritten";
constexpr std::string_view kNotRemoved = "Couldn’t be removed";

/// A refusal by the policy is not a failure to overwrite.
PathResult notFound(const RemovalTarget& target) {
  const auto status = target.isRefused() ? HelperEventErrorID::DeleteError : HelperEventErrorID::ShreadFail;
  return failed(status, kNotOverwritten, target);
}

int overwrite(const RemovalTarget& target, bool& hasLeftData) {
  const FileDescriptor file = FileOverwriter::open(target.item(), target.identity());
  if (!file.isOpen()) return errno;
  FileShredder shredder(file.get());
  const int error = shredder.run();
  hasLeftData = shredder.hasLeftData();
  return error;
}

int removeName(const RemovalTarget& target, int flags) {
  if (!target.isStillThere()) return ESTALE;
  return ::unlinkat(target.folder(), target.leaf().c_str(), flags) == 0 ? 0 : errno;
}

PathResult shred(const RemovalTarget& target) {
  bool hasLeftData = false;
  if (S_ISREG(target.identity().mode)) {
    if (const int error = overwrite(target, hasLeftData)) {
      return failed(HelperEventErrorID::ShreadFail, kNotOverwritten, error);
    }
  }
  if (const int error = removeName(target, 0))
    return failed(HelperEventErrorID::DeleteError, kNotRemoved, error);
  return {HelperEventErrorID::Success, std::string(hasLeftData ? kLeftData : "")};
}

}  // namespace

ShredStep shredPath(std::string_view path, const SenderView& seen, const RemovalPolicy& policy,
                    PathResult& result) {
  const RemovalTarget target = findSeen(path, seen, policy);
  if (target.error() != 0) {
    result = notFound(target);
  } else if (target.identity().isDirectory()) {
    return ShredStep::FolderWaits;
  } else {
    result = shred(target);
  }
  return ShredStep::Done;
}

PathResult removeShreddedFolder(std::string_view path, const SenderView& seen, const RemovalPolicy& policy) {
  const RemovalTarget target = findSeen(path, seen, policy);
  if (target.error() != 0) return notFound(target);
  if (!target.identity().isDirectory()) {
    return failed(HelperEventErrorID::ShreadFail, kNotOverwritten, ESTALE);
  }
  const int error = removeName(target, AT_REMOVEDIR);
  return error == 0 ? succeeded() : failed(HelperEventErrorID::ShreadFail, kNotRemoved, error);
}

}  // namespace sorrel::helper
