#include "Host/Features.hpp"

#include <algorithm>
#include <array>
#include <vector>

#include "Host/CommandError.hpp"
#include "Host/Suggestion.hpp"

namespace sorrel::cli {
namespace {

constexpr std::array<FeatureName, 12> kFeatures = {{
    {"system-junk", 1},
    {"trash", 2},
    {"large-old", 3},
    {"mail", 4},
    {"itunes", 5},
    {"photo-junk", 6},
    {"duplicates", 7},
    {"similar", 8},
    {"privacy", 9},
    {"uninstaller", 10},
    {"maintenance", 11},
    {"optimization", 12},
}};
static_assert(std::ranges::is_sorted(kFeatures, {}, &FeatureName::finderID));

}  // namespace

std::span<const FeatureName> featureNames() { return kFeatures; }

Integer featureNumber(std::string_view word) {
  std::vector<std::string_view> names;
  for (const FeatureName& feature : kFeatures) {
    if (word == feature.name || word == std::to_string(feature.finderID)) return feature.finderID;
    names.push_back(feature.name);
  }
  throw CommandError(ExitStatus::WrongUse,
                     "there is no feature '" + std::string(word) + "'." + suggestion(word, names));
}

std::string featureName(Integer finderID) {
  const auto row = std::ranges::find(kFeatures, finderID, &FeatureName::finderID);
  return row != kFeatures.end() ? std::string(row->name) : std::to_string(finderID);
}

}  // namespace sorrel::cli
