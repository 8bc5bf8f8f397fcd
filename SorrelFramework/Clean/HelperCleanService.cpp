#include "SorrelFramework/Clean/HelperCleanService.hpp"

#include <charconv>
#include <cstddef>
#include <optional>
#include <string_view>
#include <system_error>

#include "SorrelFramework/Clean/TreeRepair.hpp"
#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Files/RemovalErrorText.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Selection/RecordWalk.hpp"

namespace sorrel {
namespace {

/// Digits with an optional sign, that fit in an integer.
bool isDecimalInteger(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return false;
  }
  Integer number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end;
}

template <class Dictionary>
auto* valueOf(Dictionary& dictionary, const std::string& key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : &found->second;
}

/// The selection marks a folder but not its contents. If the helper reports nothing, the leaves must count as
/// failed and stay in the tree, not as leaves that were never selected.
void markLeavesOf(const RecordSet& records) {
  for (const Ref<FileInformation>& record : records) {
    sumOfLeaves(*record, [](FileInformation& leaf) -> Integer {
      if (leaf.deleteStatus == rawValue(DeleteStatus::None)) {
        leaf.deleteStatus = rawValue(DeleteStatus::Deleteing);
      }
      return 0;
    });
  }
}

}  // namespace

HelperCleanService::HelperCleanService(std::shared_ptr<CleanServiceProtocol> newFinishService,
                                       CleanServiceType newCleanType,
                                       std::vector<Ref<CategoryInformation>> newCleanCategorys)
    : finishService(std::move(newFinishService)),
      cleanCategorys(std::move(newCleanCategorys)),
      cleanType(newCleanType) {}

void HelperCleanService::allFinish() {
  if (cleanFinshCount != 2) return;
  finishService->cleanProgress(0.75F);
  if (cleanType == CleanServiceType::Common) {
    auto [abnormalFiles, desc] = sortCategory(*this);
    errorDesc = std::move(desc);
    finishService->cleanFinished(cleanCategorys, checkedAdd(commonDeleteSize, helperDeleteSize),
                                 abnormalFiles, errorStatus, errorDesc);
    return;
  }
  TreeRepairResult repaired = repairTree();
  if (repaired.categorys) cleanCategorys = *std::move(repaired.categorys);
  if (!repaired.abnormalFiles.empty()) {
    errorStatus = rawValue(DeleteStatus::DeleteError);
    errorDesc = repaired.desc;
  }
  finishService->cleanFinished(cleanCategorys, repaired.size, repaired.abnormalFiles, errorStatus, errorDesc);
}

/// Repairs the tree of a finder. If the type has no repair the tree stays as it is, but the listener still
/// gets the deleted and the failed records.
TreeRepairResult HelperCleanService::repairTree() {
  const TreeRepairFunc repair = treeRepair(cleanType);
  if (!repair) return tallyWithoutRepair();
  return repair(cleanCategorys.empty() ? Ref<CategoryInformation>() : cleanCategorys.front(),
                featureInformation);
}

void HelperCleanService::commonFinish() {
  ++cleanFinshCount;
  allFinish();
}

void HelperCleanService::deleteHelperFile() {
  if (helperDelete.empty() && commonDeleteAbnormal.empty()) return endHelperHalf();
  markLeavesOf(helperDelete);
  if (hasLeafForHelper() && !fetchHelper()) return;

  HelperDictionary eventDict;
  auto fileDict = std::make_shared<FileDict>();
  // Refusals are checked again: the password prompt may have taken minutes.
  const FileRemover::Session removal = FileRemover::shard().begin();
  for (const RecordSet* records : {&commonDeleteAbnormal, &helperDelete}) {
    for (const Ref<FileInformation>& record : *records) {
      addToEventDict(*record, removal, eventDict, *fileDict);
    }
  }
  if (eventDict.empty()) return endHelperHalf();
  // A check that failed for lack of descriptors or memory at first can succeed now.
  if (!privilegeHelper && !fetchHelper()) return;
  privilegeHelper->handleEvent(static_cast<std::int32_t>(HelperHanldeEventID::Delete), eventDict,
                               replyCallback(fileDict));
}

/// If a shared pointer owns this service, the callback keeps it alive until the reply. Another owner may
/// destroy it earlier: then the reply has no effect.
HelperProtocol::EventReply HelperCleanService::replyCallback(std::shared_ptr<const FileDict> fileDict) {
  const auto take = [this, fileDict](bool, std::int32_t, const std::optional<HelperDictionary>& dictionary) {
    if (dictionary) takeReply(*dictionary, *fileDict);
    endHelperHalf();
  };
  auto self = weak_from_this().lock();
  if (!self) return guard_.guarded(take);
  return [self, take](bool flag, std::int32_t code, const std::optional<HelperDictionary>& dictionary) {
    take(flag, code, dictionary);
  };
}

/// False if this process refuses every leaf: then the helper is not fetched, and the user not prompted.
bool HelperCleanService::hasLeafForHelper() const {
  const FileRemover::Session removal = FileRemover::shard().begin();
  const auto mayGo = [&removal](FileInformation& leaf) -> Integer {
    return removal.refusal(leaf.url) == 0 ? 1 : 0;
  };
  for (const RecordSet* records : {&commonDeleteAbnormal, &helperDelete}) {
    for (const Ref<FileInformation>& record : *records) {
      if (sumOfLeaves(*record, mayGo) > 0) return true;
    }
  }
  return false;
}

PrivilegeHelper::Tool HelperCleanService::askForHelper(const std::string& machServiceName) {
  return PrivilegeHelper::shard().getHelperTool(machServiceName, kSMDomainSystemLaunchd);
}

/// False if there is no helper; then this half has ended.
bool HelperCleanService::fetchHelper() {
  const std::string& identifier = Host::current().mainBundle().identifier;
  if (!privilegeHelper && !identifier.empty()) {
    auto [proxy, message] = askForHelper(identifier + "Helper");
    if (!proxy) {
      updateErrorInfo(rawValue(DeleteStatus::DeleteError), message.value_or("Install Fail!"));
      return false;
    }
    privilegeHelper = std::move(proxy);
  }
  if (!privilegeHelper) {
    updateErrorInfo(rawValue(DeleteStatus::DeleteError), "Cann't Get Helper.Unkown reason.");
    return false;
  }
  return true;
}

void HelperCleanService::updateErrorInfo(Integer status, std::string desc) {
  ++cleanFinshCount;
  errorStatus = status;
  errorDesc = std::move(desc);
  allFinish();
}

void HelperCleanService::endHelperHalf() {
  ++cleanFinshCount;
  allFinish();
}

void HelperCleanService::addToEventDict(FileInformation& file, const FileRemover::Session& removal,
                                        HelperDictionary& eventDict, FileDict& fileDict) {
  sumOfLeaves(file, [&](FileInformation& leaf) -> Integer {
    // The helper can't know which items this process must not touch, and would remove them as root.
    if (const int error = removal.refusal(leaf.url); error != 0) {
      leaf.deleteStatus = rawValue(DeleteStatus::DeleteError);
      leaf.deleteErrorDesc = removalErrorText(leaf.url.lastPathComponent(), error);
      return 1;
    }
    const auto index = static_cast<std::int64_t>(fileDict.size());
    fileDict.emplace_back(&leaf);
    HelperValue& entry = eventDict[leaf.url.path()];
    if (entry.asDictionary() == nullptr) entry = HelperDictionary();
    HelperDictionary& numbers = *entry.asDictionary();
    numbers.emplace(std::to_string(numbers.size()), index);
    return 0;
  });
}

void HelperCleanService::takeReply(const HelperDictionary& reply, const FileDict& fileDict) {
  for (const auto& [path, value] : reply) {
    const HelperDictionary* const entry = value.asDictionary();
    if (entry != nullptr) takeReplyEntry(*entry, fileDict);
  }
  // The records of a desktop's trash are the user's own files, even when the helper removed the item.
  const FileRemover::Session removal = FileRemover::shard().begin();
  for (const Ref<FileInformation>& file : fileDict) {
    if (file->deleteStatus == rawValue(DeleteStatus::DeleteSuccess)) removal.forgetTrashed(file->url);
  }
  removal.finish();
}

void HelperCleanService::takeReplyEntry(const HelperDictionary& entry, const FileDict& fileDict) {
  const HelperValue* const status = valueOf(entry, "DeleteStatus");
  if (status == nullptr || status->asNumber() == nullptr) return;
  const bool isDeleted = *status->asNumber() == static_cast<Integer>(HelperEventErrorID::Success);
  const HelperValue* const desc = valueOf(entry, "DeleteDesc");
  const bool hasText = !isDeleted && desc != nullptr && desc->asText() != nullptr;

  for (const auto& [key, value] : entry) {
    const std::int64_t* const number = value.asNumber();
    if (number == nullptr || !isDecimalInteger(key)) continue;
    if (*number < 0 || static_cast<std::uint64_t>(*number) >= fileDict.size()) continue;
    FileInformation& file = *fileDict[static_cast<std::size_t>(*number)];
    if (isDeleted) {
      helperDeleteSize = checkedAdd(helperDeleteSize, file.size);
      file.deleteStatus = rawValue(DeleteStatus::DeleteSuccess);
    } else {
      file.deleteStatus = rawValue(DeleteStatus::DeleteError);
      file.deleteErrorDesc = hasText ? *desc->asText() : std::string();
    }
  }
}

}  // namespace sorrel
