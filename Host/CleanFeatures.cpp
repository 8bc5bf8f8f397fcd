#include "Host/CleanFeatures.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "Host/CommandError.hpp"
#include "Host/LastCopies.hpp"
#include "Host/RecordName.hpp"
#include "SorrelFramework/Clean/CleanService.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"

namespace sorrel::cli {
namespace {

constexpr std::array<CleanFeature, 8> kCleans = {{
    {1, CleanEntry::Categories, CleanServiceType::Common},
    {2, CleanEntry::Categories, CleanServiceType::Common, true},
    {3, CleanEntry::Flat, CleanServiceType::LargeAndOldFile},
    {4, CleanEntry::Categories, CleanServiceType::Common},
    {5, CleanEntry::Categories, CleanServiceType::Common},
    {6, CleanEntry::Categories, CleanServiceType::Common},
    {7, CleanEntry::Groups, CleanServiceType::Duplicate},
    {8, CleanEntry::Groups, CleanServiceType::Similar},
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
  return row != nullptr && row->entry == CleanEntry::Groups;
}

void refuseWholeGroups(const CleanFeature& row, FeatureInformation& feature) {
  if (row.entry != CleanEntry::Groups) return;
  std::vector<std::string> names;
  for (const Ref<FileInformation>& group : groupsWithoutACopyLeft(feature)) names.push_back(nameOf(*group));
  if (names.empty()) return;
  throw CommandError(ExitStatus::WrongUse, "nothing was removed, as every copy would have gone of " +
                                               listed(names) + "; --even-last-copy allows that.");
}

void refuseChangedGroups(const CleanFeature& row, FeatureInformation& feature, const timespec& began) {
  if (row.entry != CleanEntry::Groups) return;
  const std::vector<std::string> paths = changesInTickedGroups(feature, began);
  if (paths.empty()) return;
  throw CommandError(ExitStatus::Failed, "nothing was removed, as these changed after they were compared: " +
                                             listed(paths) + ". Run the command again.");
}

void startClean(const CleanFeature& row, const Ref<FeatureInformation>& feature,
                const std::shared_ptr<CleanServiceProtocol>& listener) {
  switch (row.entry) {
    case CleanEntry::Categories:
      CleanService::cleanCategorys(feature->categoryInfo.refs(), row.type, listener, feature);
      return;
    case CleanEntry::Groups:
      CleanService::cleanDuplicateAndSimilarCategorys(feature->categoryInfo.front(), row.type, listener);
      return;
    case CleanEntry::Flat:
      CleanService::cleanLargeAndOldCategorys(feature->categoryInfo.front(), row.type, listener);
      return;
  }
}

}  // namespace sorrel::cli
