#include "Host/ChosenFeature.hpp"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <string>

#include "Host/CommandError.hpp"
#include "Host/FeatureTable.hpp"
#include "Host/HostSetup.hpp"
#include "Host/Invocation.hpp"
#include "Host/ScanPlaces.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"

namespace sorrel::cli {

namespace {

/// Its bytes must fit the type.
constexpr std::int64_t kMostKiB = std::numeric_limits<std::int64_t>::max() / 1024;

constexpr const char* kBySize = "size";
constexpr const char* kByName = "name";

}  // namespace

void takeFeatureAndPaths(CLI::App& parser, Invocation& invocation) {
  parser.add_option("FEATURE", invocation.feature, "A name of the list in sorrel --help, or its number")
      ->required();
  parser.add_option("PATH", invocation.paths, "Where to look, for the features that ask");
  parser.add_option("--limit", invocation.limit, "Only what is larger than this is looked at (duplicates)")
      ->type_name("KIB")
      ->check(CLI::Range(std::int64_t{0}, kMostKiB));
  const auto setOrder = [&invocation](const std::string& word) {
    invocation.order = word == kByName ? RowOrder::ByName : RowOrder::BySize;
  };
  parser
      .add_option_function<std::string>("--by", setOrder,
                                        "Sort the rows of the text by size, largest first, or by name")
      ->type_name("size|name")
      ->check(CLI::IsMember({kBySize, kByName}));
}

const Feature& scannedFeature(const Invocation& invocation) {
  const Feature& chosen = featureNamed(invocation.feature);
  const std::string name(chosen.name);
  if (chosen.scanner.start == nullptr) {
    throw CommandError(ExitStatus::WrongUse, "this version of sorrel cannot scan '" + name + "'.");
  }
  const auto refuse = [&name](const std::string& what) {
    throw CommandError(ExitStatus::WrongUse, "'" + name + "' takes no " + what + ".");
  };
  if (chosen.scanner.placesInHome == nullptr && !invocation.paths.empty()) refuse("PATH");
  if (!chosen.scanner.takesLimit && invocation.limit) refuse("--limit");
  return chosen;
}

ScanScope scopeFor(const Feature& chosen, const Invocation& invocation) {
  ScanScope scope;
  if (chosen.scanner.placesInHome != nullptr) {
    scope.places =
        invocation.paths.empty() ? chosen.scanner.placesInHome(homePlace()) : scanPlaces(invocation.paths);
  }
  if (invocation.limit) scope.limit = static_cast<Integer>(*invocation.limit);
  return scope;
}

Ref<FeatureInformation> featureOfCatalogue(const Feature& chosen, const Invocation& invocation) {
  for (const auto& module : ModuleInformation::getModule(chosenCatalogue(invocation.options))) {
    for (FeatureInformation& feature : module->featureInfo) {
      if (feature.finderID == chosen.number) return Ref<FeatureInformation>(feature);
    }
  }
  throw CommandError(ExitStatus::FatalStop, "the catalogue has no feature " + std::to_string(chosen.number) +
                                                " (" + std::string(chosen.name) + ").");
}

void prepareScan(const Feature& chosen, FeatureInformation& feature) {
  const auto refuse = [&chosen](const std::string& why) {
    throw CommandError(ExitStatus::FatalStop, "the catalogue's feature '" + std::string(chosen.name) + "' " +
                                                  why + ": its scan would never end.");
  };
  if (chosen.scanner.addCategories != nullptr) chosen.scanner.addCategories(feature);
  if (chosen.scanner.needs == ScanNeeds::Nothing) return;
  if (feature.categoryInfo.empty()) refuse("has no categories");
  if (chosen.scanner.needs != ScanNeeds::FoldersOfCategories) return;
  for (const CategoryInformation& category : feature.categoryInfo) {
    if (category.urls.empty()) refuse("has a category without urls ('" + category.title + "')");
  }
}

}  // namespace sorrel::cli
