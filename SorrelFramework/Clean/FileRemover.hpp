#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "SorrelFramework/Clean/CleanFence.hpp"
#include "SorrelFramework/Clean/TrashRecords.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"
#include "SorrelFramework/Removal/ItemIdentity.hpp"
#include "SorrelFramework/Removal/RemovalPolicy.hpp"
#include "SorrelFramework/Removal/RemovalTarget.hpp"
#include "SorrelFramework/Removal/TreeRemoval.hpp"

namespace sorrel {

/// Removes files for a clean with the permissions of this process. Safe on any thread.
class FileRemover {
 public:
  using RemoveFunc = std::function<RemovalResult(const std::string& path, const RemovalPolicy& policy)>;

  /// The removals of one clean: the protected paths are looked up once, at its start.
  class Session {
   public:
    /// `remove` replaces the real removal, if it is not empty.
    explicit Session(RemoveFunc remove);

    /// Removes the item itself (a link, never its target) with everything below it. Nothing on success, else
    /// the text for the user. A refusal by CleanFence, RemovalPolicy or protectPlacesOfHost() is an ordinary
    /// failure. A trailing slash, doubled slashes and "." in the path are ignored.
    [[nodiscard]] std::optional<std::string> removeItem(const URL& url) const;

    /// The same for an item that contains no bytes: only if it is `expected`, and without the regular files
    /// in it that have gained bytes since.
    [[nodiscard]] std::optional<std::string> removeItemWithoutBytes(const URL& url,
                                                                    const ItemNumber& expected) const;

    /// Removes the records that a desktop's trash keeps about `url` (TrashRecords), if the item is gone.
    /// removeItem() does so by itself; this is for items that the helper removed.
    void forgetTrashed(const URL& url) const;
    /// To be called after the last removal: updates the sizes that a trash keeps.
    void finish() const;

    /// Checks an item before it goes to the helper, which knows neither this process nor its host: the errno
    /// with which CleanFence refuses the item, EPERM for a path that is protected here, or the error that
    /// prevented the check; 0 if nothing forbids it.
    [[nodiscard]] int refusal(const URL& url) const;

   private:
    [[nodiscard]] int errorOfRemoval(const URL& url) const;
    [[nodiscard]] int errorOfRemovalWithoutBytes(const URL& url, const ItemNumber& expected) const;
    [[nodiscard]] RemovalTarget find(const URL& url) const;
    [[nodiscard]] int refusalOf(const URL& url, const RemovalTarget& item) const;
    [[nodiscard]] std::optional<std::string> outcomeOf(const URL& url, int error) const;
    [[nodiscard]] int errorOfReplacedRemoval(const URL& url) const;

    RemoveFunc remove_;
    CleanFence fence_;
    std::unique_ptr<RemovalPolicy> policy_;
    std::unique_ptr<TreeRemover> remover_;
    std::unique_ptr<TrashRecords> trash_;
  };

  /// Applications set these as switches of CleanService, which explains them.
  struct Switches {
    bool opensOwnFolders = false;
  };
  static Switches switches;

  static FileRemover& shard();

  [[nodiscard]] Session begin() const;

  /// For tests: replaces the removal function; an empty function restores the real one.
  void setRemoveForTesting(RemoveFunc remove);

 private:
  FileRemover() = default;

  mutable std::mutex mutex_;
  RemoveFunc remove_;
};

}  // namespace sorrel
