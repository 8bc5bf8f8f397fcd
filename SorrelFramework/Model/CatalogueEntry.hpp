#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"

namespace sorrel {

/// One dictionary of the module catalogue, which knows the place where it stands. A required value that is
/// missing is a fatal stop with kUnexpectedNil, one of another kind a fatal stop on the failed cast; both
/// name file, place and key on the line behind. The entry refers to the property list that it was read from.
class CatalogueEntry {
 public:
  /// The entries of the root dictionary, in the order of the file. A file that is missing or damaged, or
  /// whose root is no dictionary, is a fatal stop. `list` keeps what was read.
  [[nodiscard]] static std::vector<CatalogueEntry> readFile(const std::string& file,
                                                            std::optional<PropertyList>& list);

  /// Required values. A number is taken as an integer where its value stays the same.
  [[nodiscard]] Integer integer(std::string_view key) const;
  [[nodiscard]] const std::string& text(std::string_view key) const;
  /// An array of dictionaries.
  [[nodiscard]] std::vector<CatalogueEntry> entries(std::string_view key) const;

  /// Values that may be missing; one of another kind counts as missing. An array counts as one of
  /// dictionaries only if each element is one.
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
