#include "Host/Commands.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <iostream>
#include <string>
#include <vector>

#include "Host/CommandError.hpp"
#include "Host/CommandLine.hpp"
#include "Host/Features.hpp"
#include "Host/HostSetup.hpp"
#include "Host/InterruptWatch.hpp"
#include "Host/JsonDocument.hpp"
#include "Host/Output.hpp"
#include "Host/ScanFeatures.hpp"
#include "Host/ScanSession.hpp"
#include "Host/TextTree.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"

namespace sorrel::cli {
namespace {

void takeNothing(CLI::App&, Invocation&) {}

ExitStatus runModules(const Invocation& invocation, InterruptWatch& interrupts) {
  interrupts.start({});
  installHost(invocation.options);
  const auto modules = ModuleInformation::getModule(chosenCatalogue(invocation.options));
  if (invocation.options.json) {
    writeModulesDocument(std::cout, modules);
  } else {
    writeModules(std::cout, modules);
  }
  finishOutput();
  return ExitStatus::Done;
}

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

ExitStatus runScanCommand(const Invocation& invocation, InterruptWatch& interrupts) {
  const GlobalOptions& options = invocation.options;
  const ScanFeature& row = scannerFor(invocation);
  installHost(options);
  const Ref<FeatureInformation> feature = featureOfCatalogue(invocation, row.finderID);
  prepareScan(row, *feature);
  const SessionResult result = runScan(row, feature, interrupts, !options.json && !options.quiet);
  if (options.json) {
    writeScanDocument(std::cout, *feature, result.outcome);
  } else {
    writeScan(std::cout, *feature, result.outcome.size);
  }
  finishOutput();
  return result.stopped ? ExitStatus::Stopped : ExitStatus::Done;
}

constexpr std::array<Command, 2> kCommands = {{
    {"modules", "Show the catalogue as a tree", takeNothing, runModules},
    {"scan", "Run the scanner of a feature and show what it found", takeFeatureAndPaths, runScanCommand},
}};
static_assert(std::ranges::is_sorted(kCommands, {}, &Command::name));

}  // namespace

std::span<const Command> commands() { return kCommands; }

}  // namespace sorrel::cli
