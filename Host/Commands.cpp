#include "Host/Commands.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <utility>

#include "Host/ChosenFeature.hpp"
#include "Host/CleanCommand.hpp"
#include "Host/FeatureTable.hpp"
#include "Host/HostSetup.hpp"
#include "Host/InterruptWatch.hpp"
#include "Host/Invocation.hpp"
#include "Host/JsonDocument.hpp"
#include "Host/Output.hpp"
#include "Host/ScanSession.hpp"
#include "Host/StopSwitch.hpp"
#include "Host/TextTree.hpp"
#include "Host/UnreadNote.hpp"
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

ExitStatus runScanCommand(const Invocation& invocation, InterruptWatch& interrupts) {
  const GlobalOptions& options = invocation.options;
  const Feature& chosen = scannedFeature(invocation);
  installHost(options);
  ScanScope scope = scopeFor(chosen, invocation);
  const Ref<FeatureInformation> feature = featureOfCatalogue(chosen, invocation);
  prepareScan(chosen, *feature);
  const auto stop = std::make_shared<StopSwitch>();
  interrupts.start([stop] { stop->pull(); });
  const SessionResult result =
      runScan(chosen.scanner, feature, std::move(scope), *stop, !options.json && !options.quiet);
  if (options.json) {
    writeScanDocument(std::cout, *feature, result.outcome);
  } else {
    writeScan(std::cout, *feature, result.outcome.size, invocation.order);
  }
  finishOutput();
  if (!options.quiet) writeUnreadFolders(std::cerr, chosen.number);
  return result.stopped ? ExitStatus::Stopped : ExitStatus::Done;
}

constexpr std::array<Command, 3> kCommands = {{
    {"clean", "Remove what the scan of a feature finds, all of it or what you select", takeCleanArguments,
     runCleanCommand},
    {"modules", "Show the catalogue as a tree", takeNothing, runModules},
    {"scan", "Run the scanner of a feature and show what it found", takeFeatureAndPaths, runScanCommand},
}};
static_assert(std::ranges::is_sorted(kCommands, {}, &Command::name));

}  // namespace

std::span<const Command> commands() { return kCommands; }

}  // namespace sorrel::cli
