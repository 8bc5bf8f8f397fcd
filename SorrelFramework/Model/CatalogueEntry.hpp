#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"

namespace sorrel {

/// One dictionary of the module catalogue; it knows its own location in the file. A missing required value is
/// a fatal stop with kUnexpectedNil, a value of another type is a fatal stop for the failed cast; both print
/// file, location and key on the following line. The entry refers to the property list that it was read from.
class CatalogueEntry {
 public:
  /// The entries of the root dictionary, in the order of the file. A missing or damaged file, or a root that
  /// is no dictionary, is a fatal stop. `list` owns the parsed property list.
  [[nodiscard]] static std::vector<CatalogueEntry> readFile(const std::string& file,
                                                            std::optional<PropertyList>& list);

  /// Required values. A number counts as an integer if the conversion keeps its value.
  [[nodiscard]] Integer integer(std::string_view key) const;
  [[nodiscard]] const std::string& text(std::string_view key) const;
  /// An array of dictionaries.
  [[nodiscard]] std::vector<CatalogueEntry> entries(std::string_view key) const;

  /// Optional values; a value of another type counts as missing. An array counts as an array of dictionaries
  /// only if each element is one.
  [[nodiscard]] std::optional<std::string> textIfAny(std::string_view key) const;
  [[nodiscard]] std::vector<CatalogueEntry> entriesIfAny(std::string_view key) const;

 private:
  CatalogueEntry(std::string place, const PropertyList::Dictionary& values)
      : place_(std::move(place)), values_(&values) {}

  [[nodiscard]] const PropertyList& required(std::string_view key) const;
  [[nodiscard]] std::optional<std::vector<CatalogueEntry>> dictionaries(std::string_view key,
                                                                        const PropertyList& value) const;

  std::string place_;  // such as `Feature.plist: "Cleaner", "module" 0, "category" 2`
  const PropertyList::Dictionary* values_;
};

}  // namespace sorrel
