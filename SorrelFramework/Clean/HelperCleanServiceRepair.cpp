// The repair of the tree after a Common clean, and the report for a tree without a repair.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "SorrelFramework/Clean/HelperCleanService.hpp"
#include "SorrelFramework/Clean/RecordSet.hpp"
#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Selection/RecordWalk.hpp"

namespace sorrel {
namespace {

using Files = Children<FileInformation>;

/// Leaves that were selected and still exist.
struct FailedLeaves {
  RecordSet records;
  std::string text;
};

/// Number of failed leaves at and below `file`; they are added to `failed`.
Integer getNodeDeleteStatus(FileInformation& file, FailedLeaves& failed) {
  return sumOfLeaves(file, [&failed](FileInformation& leaf) -> Integer {
    const Integer status = leaf.deleteStatus;
    // A leaf without a status was not selected.
    if (status == rawValue(DeleteStatus::DeleteSuccess) || status == rawValue(DeleteStatus::None)) return 0;
    failed.records.insert(Ref<FileInformation>(leaf));
    failed.text += leaf.deleteErrorDesc + ",";
    return 1;
  });
}

/// Removes the records at these ascending indexes, in one pass.
void removeAt(Files& files, const std::vector<std::size_t>& indexes) {
  if (indexes.empty()) return;
  // The category was given twice, and its records are gone already.
  if (indexes.back() >= files.size()) fatalStop("Index out of range");
  std::vector<Ref<FileInformation>> kept;
  kept.reserve(files.size() - indexes.size());
  auto next = indexes.begin();
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (next != indexes.end() && *next == i) {
      ++next;
    } else {
      kept.push_back(files.ref(i));
    }
  }
  files = Files(kept);
}

/// The records of a category to remove from the tree. Marks the category as mixed if any stays.
std::vector<std::size_t> deletedRecords(CategoryInformation& category, FailedLeaves& failed) {
  std::vector<std::size_t> indexes;
  for (std::size_t j = 0; j < category.childrens.size(); ++j) {
    FileInformation& file = category.childrens[j];
    if (getNodeDeleteStatus(file, failed) == 0 && file.state == NSControlStateValueOn) {
      indexes.push_back(j);
    } else {
      category.state = NSControlStateValueMixed;
    }
  }
  return indexes;
}

/// Removes the deleted children from a record that stays, from its mixed children, and so on down.
void updateSubInfo(FileInformation& top) {
  std::vector<FileInformation*> pending{&top};
  while (!pending.empty()) {
    FileInformation& file = *pending.back();
    pending.pop_back();
    std::vector<std::size_t> deleted;
    for (std::size_t j = 0; j < file.childrens.size(); ++j) {
      FileInformation& child = file.childrens[j];
      if (isMixed(child.state)) {
        pending.push_back(&child);
      } else if (child.state == NSControlStateValueOn &&
                 child.deleteStatus == rawValue(DeleteStatus::DeleteSuccess)) {
        deleted.push_back(j);
      }
    }
    removeAt(file.childrens, deleted);
    file.state = NSControlStateValueOff;
  }
}

/// Clears the ticks of a level and everything below it, numbers the records and recomputes the sums. A leaf
/// keeps its size.
std::int64_t updateChildrenInfo(Files& files, Integer parentFinderID) {
  struct Level {
    Files* files;
    Integer parentFinderID;
    std::size_t next = 0;
    std::int64_t total = 0;
  };
  std::vector<Level> path{{&files, parentFinderID}};
  for (;;) {
    Level& level = path.back();
    if (level.next == level.files->size()) {
      const std::int64_t total = level.total;
      path.pop_back();
      if (path.empty()) return total;
      Level& above = path.back();
      (*above.files)[above.next - 1].size = total;
      above.total = checkedAdd(above.total, total);
      continue;
    }
    FileInformation& file = (*level.files)[level.next];
    file.state = NSControlStateValueOff;
    file.parentFinderID = level.parentFinderID;
    file.finderID = static_cast<Integer>(level.next);
    ++level.next;
    if (file.childrens.empty()) {
      level.total = checkedAdd(level.total, file.size);
    } else {
      updateSubInfo(file);
      path.push_back({&file.childrens, file.finderID});
    }
  }
}

}  // namespace

TreeRepairResult HelperCleanService::tallyWithoutRepair() const {
  FailedLeaves failed;
  for (const RecordSet* records : {&commonDeleteAbnormal, &helperDelete}) {
    for (const Ref<FileInformation>& record : *records) getNodeDeleteStatus(*record, failed);
  }
  // The reason for a missing helper is more useful than the texts of the leaves left to it.
  std::string desc = errorDesc.empty() ? std::move(failed.text) : errorDesc;
  return {checkedAdd(commonDeleteSize, helperDeleteSize), failed.records.records(), std::move(desc), {}};
}

std::pair<FileRecords, std::string> HelperCleanService::sortCategory(
    HelperCleanService& helpToolCleanService) {
  std::vector<Ref<CategoryInformation>>& categorys = helpToolCleanService.cleanCategorys;
  FailedLeaves failed;
  std::vector<std::vector<std::size_t>> removeDict(categorys.size());
  std::vector<bool> isSelected(categorys.size());
  for (std::size_t i = 0; i < categorys.size(); ++i) {
    isSelected[i] = categorys[i]->state != NSControlStateValueOff;
    if (isSelected[i]) removeDict[i] = deletedRecords(*categorys[i], failed);
  }
  for (std::size_t i = categorys.size(); i-- > 0;) {
    if (!isSelected[i]) continue;
    removeAt(categorys[i]->childrens, removeDict[i]);
    if (categorys[i]->needRemoveCategory && categorys[i]->childrens.empty()) {
      categorys.erase(categorys.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }
  // All categories of a tree have the same setting: the first decides for all.
  if (!categorys.empty() && categorys.front()->needRemoveCategory) {
    for (std::size_t i = 0; i < categorys.size(); ++i) categorys[i]->finderID = static_cast<Integer>(i);
  }
  for (std::size_t i = 0; i < categorys.size(); ++i) {
    categorys[i]->size = updateChildrenInfo(categorys[i]->childrens, static_cast<Integer>(i));
    categorys[i]->state = NSControlStateValueOff;
  }
  return {failed.records.records(), std::move(failed.text)};
}

}  // namespace sorrel
