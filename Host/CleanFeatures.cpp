#include "Host/CleanFeatures.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "Host/CommandError.hpp"
#include "SorrelFramework/Clean/CleanService.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/RecordName.hpp"
#include "SorrelFramework/Selection/LastCopies.hpp"

namespace sorrel::cli {
namespace {

constexpr std::array<CleanFeature, 8> kCleans = {{
    {1, TreeShape::Categories, CleanServiceType::Common},
    {2, TreeShape::Categories, CleanServiceType::Common, true},
    {3, TreeShape::Flat, CleanServiceType::LargeAndOldFile},
    {4, TreeShape::Categories, CleanServiceType::Common},
    {5, TreeShape::Categories, CleanServiceType::Common},
    {6, TreeShape::Categories, CleanServiceType::Common},
    {7, TreeShape::Groups, CleanServiceType::Duplicate},
    {8, TreeShape::Groups, CleanServiceType::Similar},
}};
static_assert(std::ranges::is_sorted(kCleans, {}, &CleanFeature::finderID));

std::string listed(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "'" : ", '") + name + "'";
  return list;
}

}  // namespace

const CleanFeature* cleanFeature(Integer finderID) {
  const auto row = std::ranges::find(kCleans, finderID, &CleanFeature::finderID);
  return row != kCleans.end() ? row : nullptr;
}

bool holdsGroups(Integer finderID) {
  const CleanFeature* const row = cleanFeature(finderID);
  return row != nullptr && row->shape == TreeShape::Groups;
}

void refuseWholeGroups(const CleanFeature& row, FeatureInformation& feature) {
  if (row.shape != TreeShape::Groups) return;
  std::vector<std::string> names;
  for (const Ref<FileInformation>& group : groupsWithoutACopyLeft(feature)) names.push_back(nameOf(*group));
  if (names.empty()) return;
  throw CommandError(ExitStatus::WrongUse, "nothing was removed, as every copy would have gone of " +
                                               listed(names) + "; --even-last-copy allows that.");
}

void refuseChangedGroups(const CleanFeature& row, FeatureInformation& feature, const timespec& began) {
  if (row.shape != TreeShape::Groups) return;
  const std::vector<std::string> paths = changesInTickedGroups(feature, began);
  if (paths.empty()) return;
  throw CommandError(ExitStatus::Failed, "nothing was removed, as these changed after they were compared: " +
                                             listed(paths) + ". Run the command again.");
}

void startClean(const CleanFeature& row, const Ref<FeatureInformation>& feature,
                const std::shared_ptr<CleanServiceProtocol>& listener) {
  switch (row.shape) {
    case TreeShape::Categories:
      CleanService::cleanCategorys(feature->categoryInfo.refs(), row.type, listener, feature);
      return;
    case TreeShape::Groups:
      CleanService::cleanDuplicateAndSimilarCategorys(feature->categoryInfo.front(), row.type, listener);
      return;
    case TreeShape::Flat:
      CleanService::cleanLargeAndOldCategorys(feature->categoryInfo.front(), row.type, listener);
      return;
  }
}

}  // namespace sorrel::cli
