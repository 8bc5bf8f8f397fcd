#include "SorrelFramework/Platform/Files/FileManager.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {
bool fileExists(const std::string& path, bool* isDirectory) {
  struct stat status {};
  if (path.empty() || path.find('\0') != std::string::npos || ::stat(path.c_str(), &status) != 0)
    return false;
  if (isDirectory != nullptr) *isDirectory = S_ISDIR(status.st_mode);
  return true;
}

FolderRights FolderRights::of(int folder) {
  FolderRights rights;
  rights.writable = ::faccessat(folder, ".", W_OK, 0) == 0;
  if (!rights.writable) return rights;
  struct stat status {};
  if (::fstat(folder, &status) == 0) rights.sticky = (status.st_mode & S_ISVTX) != 0;
  return rights;
}

bool FolderRights::allowDeletion(std::uint32_t uid) const {
  return writable && (!sticky || uid == ::getuid());
}

bool isDeletableFile(const std::string& path) {
  if (path.find('\0') != std::string::npos) return false;
  std::string parent = deletingLastPathComponent(path);
  if (parent.empty()) parent = ".";
  const FileDescriptor folder(::open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder.isOpen()) return false;
  const FolderRights rights = FolderRights::of(folder.get());
  const auto status = statusOf(path);
  return status ? rights.allowDeletion(status->uid) : rights.writable;
}

}  // namespace sorrel
