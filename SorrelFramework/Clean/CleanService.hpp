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

/// The only path from ticks on the tree to deletions. The records that `state` selects are marked and sorted
/// by `canDelete`; this process deletes its own part; the privileged helper gets the rest and the failures;
/// the tree is repaired; cleanFinished is called, once.
///
/// The entry points return at once, on any thread; everything else runs on a background thread, and so do the
/// callbacks. There must be no second clean, and no other use of the same tree, until cleanFinished. No
/// failure stops a clean: it stays on the record as `deleteStatus` and `deleteErrorDesc`.
///
/// `canDelete` and the leaves decide which items are deleted from the disk: of a record with children only
/// the leaves are removed, so an emptied folder remains.
class CleanService {
 public:
  CleanService() = delete;

  static const FileRemover& fileManager;

  /// A folder of the user's own without its owner's write permission (Go, Bazel and git-annex leave such
  /// folders) can't be emptied by its user either. False: its contents go to the helper. True: a clean that
  /// removes a folder adds the owner's write, read and search permissions to that folder and to those below
  /// it before it empties them, and restores the mode of a folder that stays. The mode of the folder that
  /// holds the removed item is never changed: the user closed it, and did not tick it. Set it while no clean
  /// runs.
  static inline bool& opensOwnFolders = FileRemover::switches.opensOwnFolders;

  /// System junk, the trash, mail attachments, junk of media libraries, the uninstaller's rows. A category
  /// that is on takes all its records regardless of their own state; one that is off is skipped; in a mixed
  /// one each record counts, and in mixed records their children.
  static void cleanCategorys(std::vector<Ref<CategoryInformation>> cleanCategorys, CleanServiceType cleanType,
                             std::shared_ptr<CleanServiceProtocol> finishService,
                             Ref<FeatureInformation> featureInfo = {});
  /// `allCategory.childrens` are groups, which are never deleted themselves. A group that is on takes all its
  /// children, one that is off none.
  static void cleanDuplicateAndSimilarCategorys(CategoryInformation& allCategory, CleanServiceType cleanType,
                                                std::shared_ptr<CleanServiceProtocol> finishService);
  /// Takes the records of `allCategory` that are on; mixed ones are skipped.
  static void cleanLargeAndOldCategorys(CategoryInformation& allCategory, CleanServiceType cleanType,
                                        std::shared_ptr<CleanServiceProtocol> finishService);

  // The steps of a clean, on the caller's thread.

  /// Sets the record's status and adds the record to commonDelete or helperDelete, depending on `canDelete`.
  static void updateDeleteStatus(FileInformation& file, Integer status, HelperCleanService& helperService);
  /// Selects the records that are on below a mixed record. A record that is not mixed is skipped.
  static void handleMixStatus(FileInformation& childrens, HelperCleanService& helperService);
  /// Deletes `commonDelete`, then starts the helper's half, which ends with the final callback.
  static void deleteFiles(HelperCleanService& helpToolCleanService);
  /// Removes the leaves at and below `file` and returns how many failed.
  static Integer deleteFile(FileInformation& file, const FileRemover::Session& removal);
};

}  // namespace sorrel
