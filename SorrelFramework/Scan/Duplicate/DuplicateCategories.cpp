#include "SorrelFramework/Scan/Duplicate/DuplicateCategories.hpp"

#include <set>
#include <string_view>
#include <utility>

#include "SorrelFramework/Model/RecordParts.hpp"
#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Platform/Items/ContentType.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel {
namespace {

using Kind = DuplicateGroupKind;

/// A file is of the kind if its type tree has an entry that holds `word`, and not `without`.
struct TypeWord {
  std::string_view word;
  std::string_view without;
  Kind kind;
};
constexpr TypeWord kTypeWords[] = {
    {"image", "-image", Kind::Picture},  // "disk-image" is not a picture
    {"movie", {}, Kind::Media},
    {"document", {}, Kind::Document},
    {"archive", {}, Kind::Archive},
};

bool holds(std::string_view text, std::string_view word) { return text.find(word) != std::string_view::npos; }

}  // namespace

void resetChildCategories(CategoryInformation& allCategory, const DuplicateTitles& titles) {
  Children<CategoryInformation> rows;
  for (const auto& [kind, title] : titles) {
    rows.push_back(makeCategory({.finderID = kind, .title = title, .featureInfo = allCategory.featureInfo}));
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
  return kindsOfFile(header.childrens[0]);
}

std::vector<Integer> kindsOfFile(const FileInformation& file) {
  std::set<Integer> kinds{rawValue(Kind::File)};
  const std::vector<std::string> tree = contentTypeTree(file.url.path());
  if (tree.empty()) return {kinds.begin(), kinds.end()};
  for (const std::string& type : tree) {
    const std::string text = lowercased(type);
    for (const TypeWord& row : kTypeWords) {
      if (holds(text, row.word) && (row.without.empty() || !holds(text, row.without)))
        kinds.insert(rawValue(row.kind));
    }
  }
  if (kinds.size() == 1) kinds.insert(rawValue(Kind::Other));
  return {kinds.begin(), kinds.end()};
}

GroupRepair repairDuplicates(CategoryInformation& allCategory, const DuplicateTitles& titles) {
  GroupRepair repair = repairGroups(allCategory.childrens);
  resetChildCategories(allCategory, titles);
  for (CategoryInformation& row : *allCategory.childrenCateogry)
    row.parentCategory = Ref<CategoryInformation>(allCategory);
  allCategory.size = 0;
  for (const Ref<FileInformation>& header : allCategory.childrens.refs()) {
    allCategory.size = checkedAdd(allCategory.size, header->size);
    addToChildCategories(allCategory, header, kindsOf(*header));
  }
  return repair;
}

}  // namespace sorrel
