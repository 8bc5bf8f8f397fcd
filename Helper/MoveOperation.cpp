#include "Helper/MoveOperation.hpp"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel::helper {
namespace {

constexpr auto kFailure = HelperEventErrorID::MoveFail;
constexpr std::string_view kWhat = "Couldn’t be moved";
constexpr std::string_view kLibrary = "/Library/";
constexpr std::string_view kDisabled = " Disabled";

struct ExtensionFolder {
  std::string_view name;
  std::string_view suffix;  // of the extensions in it
};

constexpr ExtensionFolder kExtensionFolders[] = {
    {"Spotlight", "mdimporter"},
    {"PreferencePanes", "prefPane"},
    {"Internet Plug-Ins", "plugin"},
};

/// A path VOLUME/Library/FOLDER/LEAF with a folder of the table.
struct ExtensionPath {
  std::string_view volume;
  const ExtensionFolder* folder = nullptr;
  bool isDisabled = false;
  std::string_view folderName;
  std::string_view leaf;
};

std::optional<ExtensionPath> parse(std::string_view path) {
  if (!RemovalPolicy::isNormalPath(path)) return std::nullopt;
  ExtensionPath parts;
  const std::size_t lastSlash = path.rfind('/');
  parts.leaf = path.substr(lastSlash + 1);
  path = path.substr(0, lastSlash);
  const std::size_t folderSlash = path.rfind('/');
  if (folderSlash == std::string_view::npos) return std::nullopt;
  parts.folderName = path.substr(folderSlash + 1);
  path = path.substr(0, folderSlash + 1);
  if (!path.ends_with(kLibrary)) return std::nullopt;
  parts.volume = path.substr(0, path.size() - kLibrary.size());
  std::string_view name = parts.folderName;
  parts.isDisabled = name.ends_with(kDisabled);
  if (parts.isDisabled) name.remove_suffix(kDisabled.size());
  const auto* const row = std::ranges::find(kExtensionFolders, name, &ExtensionFolder::name);
  if (row == std::end(kExtensionFolders) || !parts.leaf.ends_with(row->suffix)) return std::nullopt;
  parts.folder = row;
  return parts;
}

bool isPair(const ExtensionPath& source, const ExtensionPath& target) {
  return source.volume == target.volume && source.folder == target.folder &&
         source.isDisabled != target.isDisabled;
}

bool isRootsAlone(const ItemIdentity& folder) {
  return folder.isDirectory() && folder.uid == 0 && (folder.mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// Checks the folders from "/" to the folder with the extension.
bool isSafeWay(const RemovalTarget& item) {
  const std::vector<ItemIdentity>& chain = item.chain();
  // The volume, its folder Library, and the folder with the extension.
  if (item.isBehindLink() || chain.size() < 3) return false;
  const std::size_t volume = chain.size() - 3;
  if (!chain[volume].isMountRoot && volume != 0) return false;
  for (std::size_t i = 0; i < chain.size(); ++i) {
    // In a sticky folder other users can't replace an item that root owns.
    const bool isSticky = i < volume && chain[i].uid == 0 && chain[i].isSticky();
    if (!isSticky && !isRootsAlone(chain[i])) return false;
  }
  return true;
}

FileDescriptor openFolder(int folder, const std::string& name) {
  return FileDescriptor(::openat(folder, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// Readable for everybody, like the folder beside it.
int makeFolder(int folder, const std::string& name) {
  constexpr mode_t kReadable = S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH;
  const mode_t before = ::umask(S_IWGRP | S_IWOTH);
  const int error = ::mkdirat(folder, name.c_str(), kReadable) == 0 ? 0 : errno;
  ::umask(before);
  return error;
}

/// The folder beside the one that contains the extension; not open, with errno, if it does not exist.
FileDescriptor openBeside(const RemovalTarget& source, const ExtensionPath& target) {
  const FileDescriptor library = openFolder(source.folder(), "..");
  const auto identity = library.isOpen() ? identityOf(library.get()) : std::nullopt;
  if (!identity) return FileDescriptor();
  if (!identity->isSameAs(source.chain()[source.chain().size() - 2])) {
    errno = ESTALE;
    return FileDescriptor();
  }
  const std::string name(target.folderName);
  FileDescriptor beside = openFolder(library.get(), name);
  if (beside.isOpen() || errno != ENOENT || !target.isDisabled) return beside;
  if (const int error = makeFolder(library.get(), name)) {
    errno = error;
    return FileDescriptor();
  }
  return openFolder(library.get(), name);
}

bool mayHold(const ItemIdentity& beside, const RemovalTarget& source, const RemovalPolicy& policy) {
  std::vector<ItemIdentity> chain = source.chain();
  const bool isSameMount = beside.mount == chain.back().mount && !beside.isMountRoot;
  chain.back() = beside;
  return isSameMount && isRootsAlone(beside) && !policy.protectsWhatLiesIn(chain);
}

}  // namespace

PathResult movePath(std::string_view source, std::string_view target, const SenderView& seen,
                    const RemovalPolicy& policy) {
  const std::optional<ExtensionPath> from = parse(source);
  const std::optional<ExtensionPath> to = parse(target);
  if (!from || !to || !isPair(*from, *to)) return refused(kFailure);
  const RemovalTarget item = findSeen(source, seen, policy);
  if (item.error() != 0) return failed(kFailure, kWhat, item);
  if (!isSafeWay(item)) return refused(kFailure);

  const FileDescriptor beside = openBeside(item, *to);
  const auto identity = beside.isOpen() ? identityOf(beside.get()) : std::nullopt;
  if (!identity) return failed(kFailure, kWhat, errno);
  if (!mayHold(*identity, item, policy)) return refused(kFailure);
  if (!item.isStillThere()) return failed(kFailure, kWhat, ESTALE);
  const long moved = ::syscall(SYS_renameat2, item.folder(), item.leaf().c_str(), beside.get(),
                               std::string(to->leaf).c_str(), RENAME_NOREPLACE);
  return moved == 0 ? succeeded() : failed(kFailure, kWhat, errno);
}

}  // namespace sorrel::helper
