#include "SorrelFramework/Model/CatalogueEntry.hpp"

#include <utility>

#include "SorrelFramework/Platform/Base/Fatal.hpp"

namespace sorrel {
namespace {

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

[[noreturn]] void stopOnMissing(const std::string& place, std::string_view key) {
  fatalStop(kUnexpectedNil, place + ", key " + quoted(key));
}

[[noreturn]] void stopOnCast(const std::string& place, std::string_view key, std::string_view kind) {
  fatalStop("Could not cast value of key " + quoted(key) + " to " + std::string(kind),
            place + ", key " + quoted(key));
}

}  // namespace

std::vector<CatalogueEntry> CatalogueEntry::readFile(const std::string& file,
                                                     std::optional<PropertyList>& list) {
  list = readPropertyListFile(file);
  if (!list || list->asDictionary() == nullptr) {
    fatalStop(kUnexpectedNil,
              file + ": " + (list ? "the root is no dictionary" : "no readable property list"));
  }
  std::vector<CatalogueEntry> found;
  found.reserve(list->asDictionary()->size());
  for (const auto& [key, value] : *list->asDictionary()) {
    const PropertyList::Dictionary* const values = value.asDictionary();
    if (values == nullptr) stopOnCast(file + ": root", key, "dictionary");
    found.push_back(CatalogueEntry(file + ": " + quoted(key), *values));
  }
  return found;
}

Integer CatalogueEntry::integer(std::string_view key) const {
  const std::optional<Integer> number = required(key).asInteger();
  if (!number) stopOnCast(place_, key, "integer");
  return *number;
}

const std::string& CatalogueEntry::text(std::string_view key) const {
  const std::string* const text = required(key).asString();
  if (text == nullptr) stopOnCast(place_, key, "string");
  return *text;
}

std::vector<CatalogueEntry> CatalogueEntry::entries(std::string_view key) const {
  std::optional<std::vector<CatalogueEntry>> found = dictionaries(key, required(key));
  if (!found) stopOnCast(place_, key, "array of dictionaries");
  return *std::move(found);
}

std::optional<std::string> CatalogueEntry::textIfAny(std::string_view key) const {
  const PropertyList* const value = values_->find(key);
  const std::string* const text = value == nullptr ? nullptr : value->asString();
  if (text == nullptr) return std::nullopt;
  return *text;
}

std::vector<CatalogueEntry> CatalogueEntry::entriesIfAny(std::string_view key) const {
  const PropertyList* const value = values_->find(key);
  if (value == nullptr) return {};
  return dictionaries(key, *value).value_or(std::vector<CatalogueEntry>());
}

const PropertyList& CatalogueEntry::required(std::string_view key) const {
  const PropertyList* const value = values_->find(key);
  if (value == nullptr) stopOnMissing(place_, key);
  return *value;
}

std::optional<std::vector<CatalogueEntry>> CatalogueEntry::dictionaries(std::string_view key,
                                                                        const PropertyList& value) const {
  const PropertyList::Array* const array = value.asArray();
  if (array == nullptr) return std::nullopt;
  std::vector<CatalogueEntry> found;
  found.reserve(array->size());
  for (const PropertyList& element : *array) {
    const PropertyList::Dictionary* const values = element.asDictionary();
    if (values == nullptr) return std::nullopt;
    found.push_back(
        CatalogueEntry(place_ + ", " + quoted(key) + ' ' + std::to_string(found.size()), *values));
  }
  return found;
}

}  // namespace sorrel
