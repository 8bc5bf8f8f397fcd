#include "Host/FeatureTable.hpp"

#include <algorithm>
#include <array>
#include <vector>

#include "Host/CommandError.hpp"
#include "Host/Suggestion.hpp"

namespace sorrel::cli {
namespace {

constexpr auto kFolders = ScanNeeds::FoldersOfCategories;

// A feature without scanner or cleaner is known by its name only.
constexpr std::array<Feature, 12> kFeatures = {{
    {.name = "system-junk",
     .number = 1,
     .scanner = {.start = startSystemJunk, .needs = kFolders},
     .cleaner = {.start = cleanCategories}},
    {.name = "trash",
     .number = 2,
     .scanner = {.start = startTrash, .needs = kFolders, .addCategories = addOtherTrashes},
     .cleaner = {.start = cleanCategories, .isTrash = true}},
    {.name = "large-old",
     .number = 3,
     .scanner = {.start = startLargeAndOld},
     .cleaner = {.start = cleanFlat, .shape = TreeShape::Flat, .type = CleanServiceType::LargeAndOldFile},
     .footnote = "files below 50 MiB are not listed"},
    {.name = "mail",
     .number = 4,
     .scanner = {.start = startMail, .needs = kFolders},
     .cleaner = {.start = cleanCategories}},
    {.name = "itunes",
     .number = 5,
     .scanner = {.start = startDeviceBackups, .needs = kFolders},
     .cleaner = {.start = cleanCategories}},
    {.name = "photo-junk",
     .number = 6,
     .scanner = {.start = startPhotos, .needs = ScanNeeds::Categories},
     .cleaner = {.start = cleanCategories}},
    {.name = "duplicates",
     .number = 7,
     .scanner = {.start = startDuplicates,
                 .needs = ScanNeeds::Categories,
                 .placesInHome = duplicatePlacesInHome,
                 .takesLimit = true},
     .cleaner = {.start = cleanGroups, .shape = TreeShape::Groups, .type = CleanServiceType::Duplicate},
     .output = OutputShape::Groups},
    {.name = "similar",
     .number = 8,
     .cleaner = {.start = cleanGroups, .shape = TreeShape::Groups, .type = CleanServiceType::Similar},
     .output = OutputShape::Groups},
    {.name = "privacy", .number = 9},
    {.name = "uninstaller", .number = 10},
    {.name = "maintenance", .number = 11},
    {.name = "optimization", .number = 12},
}};
static_assert(std::ranges::is_sorted(kFeatures, {}, &Feature::number));

}  // namespace

std::span<const Feature> featureTable() { return kFeatures; }

const Feature& featureNamed(std::string_view word) {
  std::vector<std::string_view> names;
  for (const Feature& feature : kFeatures) {
    if (word == feature.name || word == std::to_string(feature.number)) return feature;
    names.push_back(feature.name);
  }
  throw CommandError(ExitStatus::WrongUse,
                     "there is no feature '" + std::string(word) + "'." + suggestion(word, names));
}

const Feature* findFeature(Integer number) {
  const auto row = std::ranges::find(kFeatures, number, &Feature::number);
  return row != kFeatures.end() ? row : nullptr;
}

std::string featureName(Integer number) {
  const Feature* const feature = findFeature(number);
  return feature != nullptr ? std::string(feature->name) : std::to_string(number);
}

bool showsGroups(Integer number) {
  const Feature* const feature = findFeature(number);
  return feature != nullptr && feature->output == OutputShape::Groups;
}

}  // namespace sorrel::cli
