#include "SorrelFramework/Scan/FileGroups.hpp"

#include <cstddef>
#include <functional>
#include <set>
#include <utility>

#include "SorrelFramework/Model/RecordParts.hpp"
#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Base/Date.hpp"

namespace sorrel {
namespace {

/// The indexes of records to be removed, the last one first, so that the others stay valid.
using Indexes = std::set<std::size_t, std::greater<>>;

void eraseAt(Children<FileInformation>& records, const Indexes& indexes) {
  for (const std::size_t index : indexes) records.erase(records.begin() + static_cast<std::ptrdiff_t>(index));
}

/// True if the member is gone.
bool tally(FileInformation& member, GroupRepair& repair) {
  if (member.deleteStatus == rawValue(DeleteStatus::DeleteSuccess)) {
    repair.deleted = checkedAdd(repair.deleted, member.size);
    return true;
  }
  repair.failures.emplace_back(member);
  repair.texts += member.deleteErrorDesc + "\n";
  return false;
}

/// True if every ticked member of a group that was ticked as a whole is gone.
bool isGone(FileInformation& header, GroupRepair& repair) {
  bool allGone = true;
  for (FileInformation& member : header.childrens) {
    if (member.state == NSControlStateValueOn && !tally(member, repair)) allGone = false;
  }
  return allGone;
}

/// True if fewer than two members are left.
bool removeTickedMembers(FileInformation& header, GroupRepair& repair) {
  Indexes gone;
  for (std::size_t i = 0; i < header.childrens.size(); ++i) {
    FileInformation& member = header.childrens[i];
    if (member.state == NSControlStateValueOn && tally(member, repair)) gone.insert(i);
  }
  eraseAt(header.childrens, gone);
  return header.childrens.size() <= 1;
}

void renumber(Children<FileInformation>& headers) {
  Integer number = 0;
  for (FileInformation& header : headers) {
    header.finderID = number;
    header.state = NSControlStateValueOff;
    header.size = 0;
    Integer index = 0;
    for (FileInformation& member : header.childrens) {
      member.state = NSControlStateValueOff;
      member.parentFinderID = number;
      member.finderID = index++;
      header.size = checkedAdd(header.size, member.size);
    }
    ++number;
  }
}

}  // namespace

Ref<FileInformation> makeGroupHeader(CategoryInformation& category, GroupHeader group) {
  return makeFile({.finderID = static_cast<Integer>(group.index),
                   .parentFinderID = category.finderID,
                   .title = std::move(group.title),
                   .icon = std::move(group.icon),
                   .date = Date::now(),
                   .canDelete = true,
                   .parentCategoryInfo = Ref<CategoryInformation>(category),
                   .fileKind = rawValue(group.kind)});
}

void addGroupMembers(const Ref<FileInformation>& header, const FileRecords& members) {
  Integer index = 0;
  for (const Ref<FileInformation>& member : members) {
    member->parentFileInfo = header;
    member->parentFinderID = header->finderID;
    member->finderID = index++;
    header->size = checkedAdd(header->size, member->size);
    header->childrens.push_back(member);
  }
}

GroupRepair repairGroups(Children<FileInformation>& headers) {
  GroupRepair repair;
  Indexes removed;
  for (std::size_t i = 0; i < headers.size(); ++i) {
    FileInformation& header = headers[i];
    if ((header.state == NSControlStateValueOn && isGone(header, repair)) ||
        (header.state == NSControlStateValueMixed && removeTickedMembers(header, repair)))
      removed.insert(i);
  }
  eraseAt(headers, removed);
  renumber(headers);
  return repair;
}

}  // namespace sorrel
