#include "Host/GroupText.hpp"

#include <cstddef>
#include <iomanip>
#include <ostream>
#include <string>
#include <vector>

#include "Host/SafeText.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/RecordName.hpp"
#include "SorrelFramework/Platform/Text/SizeText.hpp"
#include "SorrelFramework/Selection/GroupGains.hpp"

namespace sorrel::cli {
namespace {

constexpr int kSizeColumn = 11;   // "1023.9 KiB" and a blank
constexpr std::size_t kStep = 2;  // columns for each level

void writeRow(std::ostream& out, std::size_t level, std::int64_t size, const std::string& text) {
  out << std::setw(kSizeColumn) << std::right << sizeText(size) << std::string(2 + level * kStep, ' ')
      << printable(text) << '\n';
}

void writeGroup(std::ostream& out, const FileInformation& group, std::size_t level) {
  writeRow(out, level, group.size, group.title);
  const std::vector<Gain> gains = gainsOf(group);
  for (std::size_t i = 0; i < gains.size(); ++i) {
    const std::string& note = gains[i].note;
    writeRow(out, level + 1, gains[i].bytes,
             nameOf(group.childrens[i]) + (note.empty() ? "" : "  (" + note + ")"));
  }
}

}  // namespace

void writeGroups(std::ostream& out, const FeatureInformation& feature, std::int64_t size, RowOrder order) {
  std::size_t groups = 0;
  std::size_t items = 0;
  writeRow(out, 0, size, feature.title);
  for (const auto* const category : sortedRows(feature.categoryInfo, order)) {
    writeRow(out, 1, category->size, category->title);
    for (const FileInformation* const group : sortedRows(category->childrens, order)) {
      writeGroup(out, *group, 2);
      items += group->childrens.size();
      ++groups;
    }
    if (!category->childrenCateogry) continue;
    for (const auto* const row : sortedRows(*category->childrenCateogry, order))
      writeRow(out, 2, row->size, row->title);
  }
  out << items << (items == 1 ? " item in " : " items in ") << groups
      << (groups == 1 ? " group, " : " groups, ") << sizeText(size) << '\n';
}

}  // namespace sorrel::cli
