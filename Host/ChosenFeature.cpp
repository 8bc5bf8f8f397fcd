#include "Host/ChosenFeature.hpp"

#include <CLI/CLI.hpp>
#include <string>

#include "Host/CommandError.hpp"
#include "Host/CommandLine.hpp"
#include "Host/Features.hpp"
#include "Host/HostSetup.hpp"
#include "Host/ScanFeatures.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"

namespace sorrel::cli {

void takeFeatureAndPaths(CLI::App& parser, Invocation& invocation) {
  parser.add_option("FEATURE", invocation.feature, "A name of the list in sorrel --help, or its number")
      ->required();
  parser.add_option("PATH", invocation.paths, "Where to look, for the features that ask");
}

const ScanFeature& scannerFor(const Invocation& invocation) {
  const Integer number = featureNumber(invocation.feature);
  const ScanFeature* const row = scanFeature(number);
  if (row == nullptr) {
    throw CommandError(ExitStatus::WrongUse,
                       "this version of sorrel cannot scan '" + featureName(number) + "'.");
  }
  if (!invocation.paths.empty()) {
    throw CommandError(ExitStatus::WrongUse, "'" + featureName(number) + "' takes no PATH.");
  }
  return *row;
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
