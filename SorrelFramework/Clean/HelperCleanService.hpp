#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Clean/CleanServiceProtocol.hpp"
#include "SorrelFramework/Clean/CleanServiceType.hpp"
#include "SorrelFramework/Clean/FileRemover.hpp"
#include "SorrelFramework/Clean/RecordSet.hpp"
#include "SorrelFramework/Clean/TreeRepair.hpp"
#include "SorrelFramework/HelpTool/HelperProtocol.hpp"
#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Platform/Base/CallGuard.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

/// The state of one clean: its tally, the half that the privileged helper does, the repair of the tree, and
/// the final callback. CleanService makes one for each clean. It is used by one thread at a time and has no
/// lock: the two halves run strictly one after the other. The reply of the helper may come long after the
/// event. A service that a shared pointer owns lives until then; any other, such as one on the stack, must
/// outlive the reply, or the clean ends without its final callback.
class HelperCleanService : public std::enable_shared_from_this<HelperCleanService> {
 public:
  HelperCleanService(std::shared_ptr<CleanServiceProtocol> finishService, CleanServiceType cleanType,
                     std::vector<Ref<CategoryInformation>> cleanCategorys);
  virtual ~HelperCleanService() = default;
  HelperCleanService(const HelperCleanService&) = delete;
  HelperCleanService& operator=(const HelperCleanService&) = delete;

  std::shared_ptr<CleanServiceProtocol> finishService;   ///< the listener
  std::vector<Ref<CategoryInformation>> cleanCategorys;  ///< the tree, repaired in place
  Integer cleanFinshCount = 0;                           ///< halves of the clean that are done
  RecordSet commonDelete;          ///< records for the user's process; the removed ones stay here
  RecordSet commonDeleteAbnormal;  ///< records that the user's process failed to remove
  Integer commonDeleteFinishCount = 0;
  Integer commonDeleteAbnormalCount = 0;
  RecordSet helperDelete;                              ///< records that only the helper may delete
  Integer helperDeleteFinishCount = 0;                 ///< always 0
  std::shared_ptr<HelperProtocol> privilegeHelper;     ///< fetched when needed
  Integer errorStatus = rawValue(DeleteStatus::None);  ///< for the final callback
  std::string errorDesc;                               ///< for the final callback
  CleanServiceType cleanType;                          ///< which repair follows
  std::int64_t commonDeleteSize = 0;                   ///< bytes freed by the user's process
  std::int64_t helperDeleteSize = 0;                   ///< bytes freed by the helper
  Ref<FeatureInformation> featureInformation;          ///< used by Uninstall only

  /// At the second call with cleanFinshCount at 2: reports 0.75, repairs the tree and calls cleanFinished. A
  /// Common clean reports the sum of the two tallies, always the joined texts of the failed records, and does
  /// not change errorStatus. The other types report the repair's own size; only if records failed, the status
  /// is DeleteError and the text the repair's. A type without a repair leaves the tree unchanged and reports
  /// the sum of the tallies, the failed leaves, and the reason for a missing helper or else their texts.
  virtual void allFinish();
  /// Ends the half of the user's process.
  virtual void commonFinish();
  /// Sends the records that the user's process failed to delete, or may not delete, to the helper in one
  /// event; if there are none, or this process refuses all of them, no helper is fetched. Leaves that the
  /// helper does not report count as failed. Returns at once; the reply ends this half.
  virtual void deleteHelperFile();
  /// The repair for Common: removes the deleted records from the tree, and emptied categories that ask for
  /// it, numbers the rest, recomputes the sizes and clears all ticks. Returns the leaves that were selected
  /// and are still there, and their texts, each followed by ",".
  virtual std::pair<FileRecords, std::string> sortCategory(HelperCleanService& helpToolCleanService);

 protected:
  /// The helper of that service name, or perhaps the message why there is none. May install it and prompt the
  /// user, so it may block for long.
  virtual PrivilegeHelper::Tool askForHelper(const std::string& machServiceName);

 private:
  /// The leaves that an event names, by their running numbers.
  using FileDict = std::vector<Ref<FileInformation>>;

  TreeRepairResult repairTree();
  [[nodiscard]] TreeRepairResult tallyWithoutRepair() const;
  [[nodiscard]] bool hasLeafForHelper() const;
  bool fetchHelper();
  void updateErrorInfo(Integer status, std::string desc);
  static void addToEventDict(FileInformation& file, const FileRemover::Session& removal,
                             HelperDictionary& eventDict, FileDict& fileDict);
  void takeReply(const HelperDictionary& reply, const FileDict& fileDict);
  void takeReplyEntry(const HelperDictionary& entry, const FileDict& fileDict);
  HelperProtocol::EventReply replyCallback(std::shared_ptr<const FileDict> fileDict);
  void endHelperHalf();

  CallGuard guard_;
};

}  // namespace sorrel
