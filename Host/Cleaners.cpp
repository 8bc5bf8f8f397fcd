#include "Host/Cleaners.hpp"

#include <string>
#include <vector>

#include "Host/CommandError.hpp"
#include "SorrelFramework/Clean/CleanService.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/RecordName.hpp"
#include "SorrelFramework/Selection/LastCopies.hpp"

namespace sorrel::cli {
namespace {

std::string listed(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "'" : ", '") + name + "'";
  return list;
}

}  // namespace

void refuseWholeGroups(const Cleaner& cleaner, FeatureInformation& feature) {
  if (cleaner.shape != TreeShape::Groups) return;
  std::vector<std::string> names;
  for (const Ref<FileInformation>& group : groupsWithoutACopyLeft(feature)) names.push_back(nameOf(*group));
  if (names.empty()) return;
  throw CommandError(ExitStatus::WrongUse, "nothing was removed, as every copy would have gone of " +
                                               listed(names) + "; --even-last-copy allows that.");
}

void refuseChangedGroups(const Cleaner& cleaner, FeatureInformation& feature, const timespec& began) {
  if (cleaner.shape != TreeShape::Groups) return;
  const std::vector<std::string> paths = changesInTickedGroups(feature, began);
  if (paths.empty()) return;
  throw CommandError(ExitStatus::Failed, "nothing was removed, as these changed after they were compared: " +
                                             listed(paths) + ". Run the command again.");
}

void cleanCategories(const Cleaner& cleaner, const Ref<FeatureInformation>& feature,
                     const Cleaner::Listener& listener) {
  CleanService::cleanCategorys(feature->categoryInfo.refs(), cleaner.type, listener, feature);
}

void cleanGroups(const Cleaner& cleaner, const Ref<FeatureInformation>& feature,
                 const Cleaner::Listener& listener) {
  CleanService::cleanDuplicateAndSimilarCategorys(feature->categoryInfo.front(), cleaner.type, listener);
}

void cleanFlat(const Cleaner& cleaner, const Ref<FeatureInformation>& feature,
               const Cleaner::Listener& listener) {
  CleanService::cleanLargeAndOldCategorys(feature->categoryInfo.front(), cleaner.type, listener);
}

}  // namespace sorrel::cli
