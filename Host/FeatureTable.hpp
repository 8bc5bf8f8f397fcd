#pragma once

#include <span>
#include <string>
#include <string_view>

#include "Host/Cleaners.hpp"
#include "Host/Scanners.hpp"
#include "SorrelFramework/Model/Enumerations.hpp"

namespace sorrel::cli {

/// What the text and the document of a feature show.
enum class OutputShape {
  Tree,    ///< rows below rows
  Groups,  ///< groups of alike files, with what the removal of each member would free
};

/// A feature: what the command line calls it, and what this program can do with it.
struct Feature {
  std::string_view name;
  Integer number = 0;  ///< the same in every catalogue
  Scanner scanner{};
  Cleaner cleaner{};
  OutputShape output = OutputShape::Tree;
  std::string_view footnote{};  ///< at the end of the text
};

/// All features, ascending by number.
std::span<const Feature> featureTable();

/// The feature that `word`, a name or a number of the table, means. Anything else is wrong use; the message
/// suggests the nearest name.
const Feature& featureNamed(std::string_view word);

/// The row of that number; null if there is none.
const Feature* findFeature(Integer number);

/// The name of a number; the number itself in decimal if the table has no name for it.
std::string featureName(Integer number);

/// Whether the text and the document of the feature show groups.
bool showsGroups(Integer number);

}  // namespace sorrel::cli
