#pragma once

#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/Ref.hpp"

namespace CLI {
class App;
}

namespace sorrel::cli {

struct Invocation;
struct ScanFeature;
struct ScanScope;

/// FEATURE, PATH... and the options of single features of a command line.
void takeFeatureAndPaths(CLI::App& parser, Invocation& invocation);

/// The scanner that a command line means. A feature that cannot be scanned, and a PATH or an option for one
/// that takes none, are wrong use.
const ScanFeature& scannerFor(const Invocation& invocation);

/// What the command line asks of that scanner. After installHost().
ScanScope scopeFor(const ScanFeature& row, const Invocation& invocation);

/// The feature of that number in the chosen catalogue; one that is missing there is a fatal stop.
Ref<FeatureInformation> featureOfCatalogue(const Invocation& invocation, Integer number);

}  // namespace sorrel::cli
