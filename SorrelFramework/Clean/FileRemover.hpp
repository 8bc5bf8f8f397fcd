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

/// Removes files for a clean with the rights of this process. Safe on any thread.
class FileRemover {
 public:
  using RemoveFunc = std::function<RemovalResult(const std::string& path, const RemovalPolicy& policy)>;

  /// The removals of one clean: what must never be removed is looked up once, when it begins.
  class Session {
   public:
    /// `remove` in place of the real removal, if it is not empty.
    explicit Session(RemoveFunc remove);

    /// Removes the item itself (a link, never what it leads to) with all that lies below it. Nothing on
    /// success, else the text for the user. What CleanFence, RemovalPolicy or protectPlacesOfHost() refuses
    /// is an ordinary failure. A slash at the end, doubled slashes and "." in the path do not count.
    [[nodiscard]] std::optional<std::string> removeItem(const URL& url) const;

    /// The same for an item in which nothing holds bytes: only if it is `expected`, and of it no regular file
    /// that has got bytes since.
    [[nodiscard]] std::optional<std::string> removeItemWithoutBytes(const URL& url,
                                                                    const ItemNumber& expected) const;

    /// Removes what a desktop's trash has on record about `url` (TrashRecords), if the item is gone.
    /// removeItem() does so by itself; this is for what the helper removed.
    void forgetTrashed(const URL& url) const;
    /// To be called when all is removed: brings the sizes that a trash keeps up to date.
    void finish() const;

    /// What must not go to the helper either, which knows neither this process nor its host: the errno with
    /// which CleanFence refuses the item, EPERM for a place that is protected here, or why that can't be
    /// told; 0 if nothing speaks against it.
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

  /// For tests: what removes from now on; an empty function puts the real one back.
  void setRemoveForTesting(RemoveFunc remove);

 private:
  FileRemover() = default;

  mutable std::mutex mutex_;
  RemoveFunc remove_;
};

}  // namespace sorrel
