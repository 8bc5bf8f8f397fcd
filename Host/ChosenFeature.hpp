#pragma once

#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/Ref.hpp"

namespace CLI {
class App;
}

namespace sorrel::cli {

struct Feature;
struct Invocation;
struct ScanScope;

/// FEATURE, PATH... and the feature-specific options of a command line.
void takeFeatureAndPaths(CLI::App& parser, Invocation& invocation);

/// The feature that a command line means. One that cannot be scanned, and a PATH or an option for one that
/// takes none, are wrong use.
const Feature& scannedFeature(const Invocation& invocation);

/// The scope that the command line gives that scanner. After installHost().
ScanScope scopeFor(const Feature& chosen, const Invocation& invocation);

/// The feature in the chosen catalogue; one that is missing there is a fatal stop.
Ref<FeatureInformation> featureOfCatalogue(const Feature& chosen, const Invocation& invocation);

/// Brings the feature of the catalogue into the form that its scanner starts from. A feature whose scan could
/// never end is refused with ExitStatus::FatalStop.
void prepareScan(const Feature& chosen, FeatureInformation& feature);

}  // namespace sorrel::cli
