#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

/// The machine whose folders are scanned: a macOS volume mounted somewhere, or this Linux desktop. This class
/// alone knows the folder layout of either. The application installs it once, before the first call of the
/// framework; a process that installs none works on this machine. Everything except install() is safe on any
/// thread.
class Host {
 public:
  enum class Layout { MacVolume, LinuxDesktop };

  /// The application that links the framework.
  struct MainBundle {
    std::string identifier;      ///< empty if the bundle has none
    std::string resourceFolder;  ///< path of a folder with the named resources
    std::map<std::string, std::string> infoDictionary;
  };

  /// A macOS volume whose root folder is `root` ("" or "/" for the machine's own root), seen by user `user`,
  /// whose name may differ from the home's in letter case.
  static Host macVolume(std::string root, std::string user, MainBundle bundle);
  /// This machine as the calling process sees it: $HOME and the XDG base directories.
  static Host linuxDesktop(MainBundle bundle);

  static void install(Host host);
  static const Host& current();

  [[nodiscard]] Layout layout() const { return layout_; }
  /// The root folder without a trailing slash; "" for the machine's own root.
  [[nodiscard]] const std::string& root() const { return root_; }
  [[nodiscard]] const std::string& userName() const { return userName_; }
  [[nodiscard]] const std::string& home() const { return home_; }
  /// False if the user has no home folder, or, on a volume, none that lies on the volume.
  [[nodiscard]] bool hasHome() const;
  /// The folder that holds the homes: ROOT/Users, /home.
  [[nodiscard]] std::string homesFolder() const;
  [[nodiscard]] const MainBundle& mainBundle() const { return bundle_; }

  /// The path on this machine of an absolute path of the layout: below the root of a macOS volume; on the
  /// desktop the path itself, with ~/.cache, ~/.config, ~/.local/share and ~/.local/state redirected to the
  /// XDG folders.
  [[nodiscard]] std::string locate(std::string_view layoutPath) const;
  /// The same for a file URL; other URLs are returned unchanged.
  [[nodiscard]] URL locate(const URL& layoutURL) const;
  /// The reverse for paths below the root: "/Volumes/X" for ROOT/Volumes/X. Path components are counted on
  /// this form.
  [[nodiscard]] std::string layoutPath(std::string_view path) const;

  /// The replacement for "file://~/" in a catalogue, percent-encoded: "file:///Users/NAME/" on a macOS volume
  /// (locate() prepends the root), the home's own URL on the desktop.
  [[nodiscard]] std::string homeURLText() const;

  [[nodiscard]] std::string applicationSupportFolder() const;  ///< of the user
  [[nodiscard]] std::string cachesFolder() const;
  [[nodiscard]] std::string preferencesFolder() const;
  /// On the desktop the XDG_DOCUMENTS_DIR of user-dirs.dirs(5), or "Documents" in the home if it is not set.
  [[nodiscard]] std::string documentsFolder() const;
  /// The same for XDG_PICTURES_DIR and "Pictures".
  [[nodiscard]] std::string picturesFolder() const;
  /// The folder in which the mail program of the layout stores everything; nothing on the desktop, where each
  /// mail program has its own.
  [[nodiscard]] std::optional<std::string> mailFolder() const;

  /// Name of a numeric user id: the table of the volume, else the password file; nothing if neither knows it.
  [[nodiscard]] std::optional<std::string> ownerName(uid_t uid) const;
  /// The id that determines trash folders and file permissions: the owner of the home on a macOS volume, else
  /// getuid().
  [[nodiscard]] uid_t userID() const { return userID_; }

  /// True if names on the original file system are case-insensitive, as on a macOS volume.
  [[nodiscard]] bool ignoresLetterCase() const { return layout_ == Layout::MacVolume; }
  /// On a macOS volume: `path` below the root in its spelling on the disk, if the exact name is absent (first
  /// match in byte order; composed and decomposed letters are the same), with links resolved as on the
  /// volume: absolute ones begin at its root, none leads off it. A link at the end is kept. If nothing
  /// matches, and on the desktop, `path` itself; likewise a URL that is not a file URL.
  [[nodiscard]] std::string matchingLetterCase(std::string_view path) const;
  [[nodiscard]] URL matchingLetterCase(const URL& url) const;
  /// The same, but a link at the end is followed.
  [[nodiscard]] std::string followingLinks(std::string_view path) const;
  [[nodiscard]] URL followingLinks(const URL& url) const;

  /// The path of a system tool such as "/usr/bin/mdls": in the folder of stand-ins if it exists there, else
  /// `path`.
  [[nodiscard]] std::string tool(std::string_view path) const;
  void setToolFolder(std::string folder) { toolFolder_ = std::move(folder); }

  /// Path of the resource NAME.TYPE of the main bundle; nothing if there is none.
  [[nodiscard]] std::optional<std::string> resourcePath(std::string_view name, std::string_view type) const;

 private:
  Host() = default;
  [[nodiscard]] bool isOnVolume(std::string_view path) const;
  [[nodiscard]] std::string userFolder(std::string_view variable, std::string_view belowHome) const;

  Layout layout_ = Layout::LinuxDesktop;
  std::string root_;
  std::string userName_;
  std::string home_;
  std::string homes_;  // on a volume
  uid_t userID_ = 0;
  MainBundle bundle_;
  std::string toolFolder_;
  std::map<std::string, std::string> xdg_;  // from ".cache" and the like, below the home, to the XDG folder
  std::map<uid_t, std::string> volumeOwners_;  // owners of Users/NAME
};

}  // namespace sorrel
