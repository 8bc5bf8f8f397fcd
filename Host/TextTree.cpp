#include "Host/TextTree.hpp"

#include <cstddef>
#include <iomanip>
#include <ostream>
#include <string>
#include <unordered_set>

#include "Host/FeatureTable.hpp"
#include "Host/GroupText.hpp"
#include "Host/RowTitles.hpp"
#include "Host/SafeText.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"
#include "SorrelFramework/Platform/Text/SizeText.hpp"

namespace sorrel::cli {
namespace {

constexpr int kSizeColumn = 11;     // "1023.9 KiB" and a blank
constexpr std::size_t kStep = 2;    // columns for each level
constexpr int kFeatureColumn = 14;  // the longest name of a feature, and two blanks

void writeRow(std::ostream& out, std::size_t level, std::int64_t size, std::string_view title) {
  out << std::setw(kSizeColumn) << std::right << sizeText(size) << std::string(2 + level * kStep, ' ')
      << printable(title) << '\n';
}

/// Writes the rows of one scan and counts its items.
class ScanText {
 public:
  ScanText(std::ostream& out, const FeatureInformation& feature, RowOrder order)
      : out_(out), titles_(feature), order_(order) {}

  void writeCategory(const CategoryInformation& category, std::size_t level) {
    // A row may hang in several categories: its records count once.
    const bool isFirst = seen_.insert(&category).second;
    const std::size_t before = items_;
    writeRow(out_, level, category.size, category.title);
    for (const auto* const record : sortedRows(category.childrens, order_)) writeRecord(*record, level + 1);
    const std::size_t own = items_;
    if (category.childrenCateogry) {
      for (const auto* const child : sortedRows(*category.childrenCateogry, order_))
        writeCategory(*child, level + 1);
    }
    // Rows below a category with records list the same records again.
    if (!category.childrens.empty()) items_ = own;
    if (!isFirst) items_ = before;
  }
  [[nodiscard]] std::size_t items() const { return items_; }

 private:
  void writeRecord(const FileInformation& record, std::size_t level) {
    writeRow(out_, level, record.size, titles_.of(record));
    if (record.childrens.empty()) ++items_;
    for (const auto* const child : sortedRows(record.childrens, order_)) writeRecord(*child, level + 1);
  }

  std::ostream& out_;
  RowTitles titles_;
  RowOrder order_;
  std::size_t items_ = 0;
  std::unordered_set<const CategoryInformation*> seen_;
};

void writeCatalogueCategory(std::ostream& out, const CategoryInformation& category, std::size_t level) {
  const std::string indent(level * kStep, ' ');
  out << indent << printable(category.title) << '\n';
  for (const URL& url : category.urls) {
    const std::string path = url.path();
    out << indent << "  " << printable(path.empty() ? url.absoluteString() : path) << '\n';
  }
  if (!category.childrenCateogry) return;
  for (const CategoryInformation& child : *category.childrenCateogry) {
    writeCatalogueCategory(out, child, level + 1);
  }
}

void writeCatalogueFeature(std::ostream& out, const FeatureInformation& feature) {
  out << "  " << std::setw(kFeatureColumn) << std::left << featureName(feature.finderID)
      << printable(feature.title) << '\n';
  for (const CategoryInformation& category : feature.categoryInfo) writeCatalogueCategory(out, category, 3);
}

}  // namespace

void writeModules(std::ostream& out, const std::vector<Ref<ModuleInformation>>& modules) {
  for (const Ref<ModuleInformation>& module : modules) {
    out << printable(module->title) << '\n';
    for (const FeatureInformation& feature : module->featureInfo) writeCatalogueFeature(out, feature);
  }
}

void writeScan(std::ostream& out, FeatureInformation& feature, std::int64_t size, RowOrder order) {
  if (showsGroups(feature.finderID)) return writeGroups(out, feature, size, order);
  writeRow(out, 0, size, feature.title);
  ScanText text(out, feature, order);
  for (const auto* const category : sortedRows(feature.categoryInfo, order)) text.writeCategory(*category, 1);
  out << text.items() << (text.items() == 1 ? " item, " : " items, ") << sizeText(size);
  const Feature* const known = findFeature(feature.finderID);
  if (known != nullptr && !known->footnote.empty()) out << "; " << known->footnote;
  out << '\n';
}

}  // namespace sorrel::cli
