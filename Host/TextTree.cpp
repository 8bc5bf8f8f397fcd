#include "Host/TextTree.hpp"

#include <algorithm>
#include <cstddef>
#include <iomanip>
#include <ostream>
#include <string>

#include "Host/CleanFeatures.hpp"
#include "Host/Features.hpp"
#include "Host/GroupText.hpp"
#include "Host/SafeText.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"

namespace sorrel::cli {
namespace {

constexpr int kSizeColumn = 11;     // "1023.9 KiB" and a blank
constexpr std::size_t kStep = 2;    // columns for each level
constexpr int kFeatureColumn = 14;  // the longest name of a feature, and two blanks

struct Counts {
  std::size_t items = 0;
};

void writeRow(std::ostream& out, std::size_t level, std::int64_t size, std::string_view title) {
  out << std::setw(kSizeColumn) << std::right << sizeText(size) << std::string(2 + level * kStep, ' ')
      << printable(title) << '\n';
}

void writeRecord(std::ostream& out, const FileInformation& record, std::size_t level, Counts& counts) {
  writeRow(out, level, record.size, record.title);
  if (record.childrens.empty()) ++counts.items;
  for (const FileInformation& child : record.childrens) writeRecord(out, child, level + 1, counts);
}

void writeCategory(std::ostream& out, const CategoryInformation& category, std::size_t level,
                   Counts& counts) {
  writeRow(out, level, category.size, category.title);
  for (const FileInformation& record : category.childrens) writeRecord(out, record, level + 1, counts);
  if (!category.childrenCateogry) return;
  // A row below "All" lists the same records again: they count once.
  Counts again;
  for (const CategoryInformation& child : *category.childrenCateogry) {
    writeCategory(out, child, level + 1, again);
  }
}

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

void writeScan(std::ostream& out, FeatureInformation& feature, std::int64_t size) {
  if (holdsGroups(feature.finderID)) return writeGroups(out, feature, size);
  Counts counts;
  writeRow(out, 0, size, feature.title);
  for (const CategoryInformation& category : feature.categoryInfo) writeCategory(out, category, 1, counts);
  out << counts.items << (counts.items == 1 ? " item, " : " items, ") << sizeText(size) << '\n';
}

}  // namespace sorrel::cli
