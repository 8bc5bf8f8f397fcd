#pragma once

#include <memory>
#include <vector>

#include "SorrelFramework/Clean/CleanServiceProtocol.hpp"
#include "SorrelFramework/Clean/CleanServiceType.hpp"
#include "SorrelFramework/Clean/FileRemover.hpp"
#include "SorrelFramework/Clean/HelperCleanService.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"

namespace sorrel {

/// The one road from ticks on the tree to deletions. What `state` selects is marked and sorted by
/// `canDelete`; this process deletes what it may; the privileged helper gets the rest, with what failed; the
/// tree is repaired; cleanFinished comes, once.
///
/// The entries return at once, on any thread; everything else runs on a background thread, and so do the
/// callbacks. There must be no second clean, and no other use of the same tree, until cleanFinished. No
/// failure stops a clean: it stays on the record as `deleteStatus` and `deleteErrorDesc`.
///
/// `canDelete` and the leaves decide what goes from the disk: of a record with children only the leaves are
/// removed, so an emptied folder stays behind.
class CleanService {
 public:
  CleanService() = delete;

  static const FileRemover& fileManager;

  /// A folder of the user's own that lacks its owner's write bit (Go, Bazel and git-annex leave such ones) is
  /// closed to its user too. False: what lies in it goes to the helper. True: a clean that removes a folder
  /// gives the owner that bit, and those to list and enter, on that folder and on those below it before it
  /// empties them, and takes them back from a folder that stays. The folder that holds what is removed is
  /// never opened: the user closed it, and did not tick it. Set it while nothing runs.
  static inline bool& opensOwnFolders = FileRemover::switches.opensOwnFolders;

  /// System junk, the trash, mail attachments, junk of media libraries, the uninstaller's rows. A category
  /// that is on takes all its records whatever their own state; one that is off is skipped; in a mixed one
  /// each record counts, and in mixed records their children.
  static void cleanCategorys(std::vector<Ref<CategoryInformation>> cleanCategorys, CleanServiceType cleanType,
                             std::shared_ptr<CleanServiceProtocol> finishService,
                             Ref<FeatureInformation> featureInfo = {});
  /// `allCategory.childrens` are groups, which are never deleted themselves. A group that is on takes all its
  /// children, one that is off none.
  static void cleanDuplicateAndSimilarCategorys(CategoryInformation& allCategory, CleanServiceType cleanType,
                                                std::shared_ptr<CleanServiceProtocol> finishService);
  /// Takes the records of `allCategory` that are on; mixed ones are left alone.
  static void cleanLargeAndOldCategorys(CategoryInformation& allCategory, CleanServiceType cleanType,
                                        std::shared_ptr<CleanServiceProtocol> finishService);

  // The steps of a clean, on the caller's thread.

  /// Gives the record that status and puts it into commonDelete or helperDelete, as `canDelete` says.
  static void updateDeleteStatus(FileInformation& file, Integer status, HelperCleanService& helperService);
  /// Selects what is on below a mixed record. A record that is not mixed is left alone.
  static void handleMixStatus(FileInformation& childrens, HelperCleanService& helperService);
  /// Deletes `commonDelete`, then starts the helper's half, which ends in the final callback.
  static void deleteFiles(HelperCleanService& helpToolCleanService);
  /// Removes the leaves at and below `file` and answers how many failed.
  static Integer deleteFile(FileInformation& file, const FileRemover::Session& removal);
};

}  // namespace sorrel
