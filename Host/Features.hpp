#pragma once

#include <span>
#include <string>
#include <string_view>

#include "SorrelFramework/Model/Enumerations.hpp"

namespace sorrel::cli {

/// A feature as the command line calls it. The names stand for the same numbers in every catalogue.
struct FeatureName {
  std::string_view name;
  Integer finderID;
};

/// All features, ascending by number.
std::span<const FeatureName> featureNames();

/// The number behind `word`, a name or a number of the table. Anything else is wrong use, answered with the
/// nearest name.
Integer featureNumber(std::string_view word);

/// The name of a number; the number itself in decimal if the table has no name for it.
std::string featureName(Integer finderID);

}  // namespace sorrel::cli
