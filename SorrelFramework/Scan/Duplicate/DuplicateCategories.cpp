#include "SorrelFramework/Scan/Duplicate/DuplicateCategories.hpp"

#include <functional>
#include <set>
#include <utility>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Platform/Items/ContentType.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel {
namespace {

using Kind = DuplicateScanService::DuplicateKind;

/// Whoever's type tree has an entry that holds `word`, and not `without`, is of that kind.
struct TypeWord {
  std::string_view word;
  std::string_view without;
  Kind kind;
};
constexpr TypeWord kTypeWords[] = {
    {"image", "-image", Kind::Picture},  // "disk-image" is no picture
    {"movie", {}, Kind::Media},
    {"document", {}, Kind::Document},
    {"archive", {}, Kind::Archive},
};

bool holds(std::string_view text, std::string_view word) { return text.find(word) != std::string_view::npos; }

/// The index of each group to be removed, the last one first, so that the others stay valid.
using Indexes = std::set<std::size_t, std::greater<>>;

void eraseAt(Children<FileInformation>& records, const Indexes& indexes) {
  for (const std::size_t index : indexes) records.erase(records.begin() + static_cast<std::ptrdiff_t>(index));
}

/// What a clean did to the ticked members of the groups.
struct Tally {
  std::int64_t deleted = 0;
  FileRecords failures;
  std::string texts;

  /// True if the member is gone.
  bool add(FileInformation& member) {
    if (member.deleteStatus == rawValue(DeleteStatus::DeleteSuccess)) {
      deleted = checkedAdd(deleted, member.size);
      return true;
    }
    failures.emplace_back(member);
    texts += member.deleteErrorDesc + "\n";
    return false;
  }
};

/// A group that was ticked as a whole goes as a whole or stays as it is.
bool isGone(FileInformation& header, Tally& tally) {
  bool allGone = true;
  for (FileInformation& member : header.childrens) {
    if (member.state == NSControlStateValueOn && !tally.add(member)) allGone = false;
  }
  return allGone;
}

/// True if what is left is no duplicate any more.
bool removeTickedMembers(FileInformation& header, Tally& tally) {
  Indexes gone;
  for (std::size_t i = 0; i < header.childrens.size(); ++i) {
    FileInformation& member = header.childrens[i];
    if (member.state == NSControlStateValueOn && tally.add(member)) gone.insert(i);
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

void resetChildCategories(CategoryInformation& allCategory) {
  const Ref<FeatureInformation> feature = allCategory.featureInfo;
  Children<CategoryInformation> rows;
  for (const auto& [kind, title] : DuplicateScanService::childrenCateogryDict) {
    rows.push_back(makeRef<CategoryInformation>(NSControlStateValueOff, kind, title, Image(), 0, "",
                                                rawValue(CategoryInfomationKind::Common), std::vector<URL>{},
                                                Children<FileInformation>{}, feature, std::any{}, 0, false));
  }
  allCategory.childrenCateogry = std::move(rows);
}

void addToChildCategories(CategoryInformation& allCategory, const Ref<FileInformation>& header,
                          const std::vector<Integer>& kinds) {
  for (const Integer kind : kinds) {
    if (static_cast<std::size_t>(kind) >= allCategory.childrenCateogry->size()) {
      fatalStop(kUnexpectedNil, "childrenCateogryDict has no title for each kind of duplicates");
    }
    CategoryInformation& row = (*allCategory.childrenCateogry)[static_cast<std::size_t>(kind)];
    row.size = checkedAdd(row.size, header->size);
    row.childrens.push_back(header);
  }
}

std::vector<Integer> kindsOf(const FileInformation& header) {
  if (header.fileKind == rawValue(FilesKind::Folder)) return {rawValue(Kind::Other), rawValue(Kind::Folder)};
  if (header.childrens.empty()) return {rawValue(Kind::File)};
  return DuplicateScanService::sortFile(header.childrens[0]);
}

std::vector<Integer> DuplicateScanService::sortFile(const FileInformation& file) {
  std::set<Integer> kinds{rawValue(DuplicateKind::File)};
  const std::vector<std::string> tree = contentTypeTree(file.url.path());
  if (tree.empty()) return {kinds.begin(), kinds.end()};
  for (const std::string& type : tree) {
    const std::string text = lowercased(type);
    for (const TypeWord& row : kTypeWords) {
      if (holds(text, row.word) && (row.without.empty() || !holds(text, row.without)))
        kinds.insert(rawValue(row.kind));
    }
  }
  if (kinds.size() == 1) kinds.insert(rawValue(DuplicateKind::Other));
  return {kinds.begin(), kinds.end()};
}

std::tuple<std::int64_t, FileRecords, std::string> DuplicateScanService::sortCategory(
    CategoryInformation& allCategory) {
  Tally tally;
  Indexes removed;
  for (std::size_t i = 0; i < allCategory.childrens.size(); ++i) {
    FileInformation& header = allCategory.childrens[i];
    if ((header.state == NSControlStateValueOn && isGone(header, tally)) ||
        (header.state == NSControlStateValueMixed && removeTickedMembers(header, tally)))
      removed.insert(i);
  }
  eraseAt(allCategory.childrens, removed);
  renumber(allCategory.childrens);

  resetChildCategories(allCategory);
  for (CategoryInformation& row : *allCategory.childrenCateogry)
    row.parentCategory = Ref<CategoryInformation>(allCategory);
  allCategory.size = 0;
  for (const Ref<FileInformation>& header : allCategory.childrens.refs()) {
    allCategory.size = checkedAdd(allCategory.size, header->size);
    addToChildCategories(allCategory, header, kindsOf(*header));
  }
  return {tally.deleted, std::move(tally.failures), std::move(tally.texts)};
}

}  // namespace sorrel
