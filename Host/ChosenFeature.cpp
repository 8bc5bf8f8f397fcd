#include "Host/ChosenFeature.hpp"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <string>

#include "Host/CommandError.hpp"
#include "Host/CommandLine.hpp"
#include "Host/Features.hpp"
#include "Host/HostSetup.hpp"
#include "Host/ScanFeatures.hpp"
#include "Host/ScanPlaces.hpp"
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

const ScanFeature& scannerFor(const Invocation& invocation) {
  const Integer number = featureNumber(invocation.feature);
  const ScanFeature* const row = scanFeature(number);
  if (row == nullptr) {
    throw CommandError(ExitStatus::WrongUse,
                       "this version of sorrel cannot scan '" + featureName(number) + "'.");
  }
  const auto refuse = [number](const std::string& what) {
    throw CommandError(ExitStatus::WrongUse, "'" + featureName(number) + "' takes no " + what + ".");
  };
  if (row->placesInHome == nullptr && !invocation.paths.empty()) refuse("PATH");
  if (!row->takesLimit && invocation.limit) refuse("--limit");
  return *row;
}

ScanScope scopeFor(const ScanFeature& row, const Invocation& invocation) {
  ScanScope scope;
  if (row.placesInHome != nullptr) {
    scope.places = invocation.paths.empty() ? row.placesInHome(homePlace()) : scanPlaces(invocation.paths);
  }
  if (invocation.limit) scope.limit = static_cast<Integer>(*invocation.limit);
  return scope;
}

Ref<FeatureInformation> featureOfCatalogue(const Invocation& invocation, Integer number) {
  for (const auto& module : ModuleInformation::getModule(chosenCatalogue(invocation.options))) {
    for (FeatureInformation& feature : module->featureInfo) {
      if (feature.finderID == number) return Ref<FeatureInformation>(feature);
    }
  }
  throw CommandError(ExitStatus::FatalStop, "the catalogue has no feature " + std::to_string(number) + " (" +
                                                featureName(number) + ").");
}

}  // namespace sorrel::cli
