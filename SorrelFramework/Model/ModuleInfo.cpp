#include "SorrelFramework/Model/ModuleInfo.hpp"

#include <algorithm>
#include <any>
#include <utility>

#include "SorrelFramework/Model/CatalogueEntry.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {
namespace {

using Categories = std::vector<Ref<CategoryInformation>>;

struct KindWord {
  std::string_view word;
  CategoryInfomationKind kind;
};
constexpr KindWord kKindWords[] = {
    {"SystemCache", CategoryInfomationKind::SystemCache},
    {"EmailAttachment", CategoryInfomationKind::EmailAttachment},
};

constexpr std::string_view kLargeAndOldFiles = "LaregeAndOldFiles";  // the catalogues' own spelling
constexpr std::string_view kUninstaller = "Uninstaller";
constexpr std::string_view kUninstallerRows[] = {"All", "Unused", "Leftovers"};

constexpr std::string_view kOwnHome = "file://~/";

Integer kindOf(std::string_view word) {
  for (const KindWord& row : kKindWords) {
    if (row.word == word) return rawValue(row.kind);
  }
  return rawValue(CategoryInfomationKind::Common);
}

template <class Record>
void sortByFinderID(std::vector<Ref<Record>>& records) {
  std::stable_sort(records.begin(), records.end(), [](const Ref<Record>& a, const Ref<Record>& b) {
    return Integer{a->finderID} < Integer{b->finderID};
  });
}

/// A text that is not a URL stands for the process's current folder; its element is kept.
URL readLocation(const CatalogueEntry& entry) {
  const std::optional<URL> url = URL::parse(ModuleInformation::updateModuleURL(entry.text("url")));
  return url ? Host::current().locate(*url) : URL();
}

std::vector<URL> readLocations(const CatalogueEntry& category) {
  std::vector<URL> urls;
  for (const CatalogueEntry& entry : category.entriesIfAny("urls")) urls.push_back(readLocation(entry));
  return urls;
}

// The readers query the keys in the order of the catalogue's description, so that of several broken values
// the same one is reported each time.

Ref<CategoryInformation> readCategory(const CatalogueEntry& entry, const Ref<FeatureInformation>& feature) {
  const Integer finderID = entry.integer("finder");
  const Integer state = entry.integer("status");
  const std::string& title = entry.text("title");
  const std::string& image = entry.text("image");
  const std::string& description = entry.text("description");
  const Integer kind = kindOf(entry.text("type"));
  return makeRef<CategoryInformation>(state, finderID, title, Image::lookUp(image), 0, description, kind,
                                      readLocations(entry), Children<FileInformation>(), feature, std::any(),
                                      0, false);
}

Ref<CategoryInformation> makeRow(Integer finderID, std::string_view title, CategoryInfomationKind kind,
                                 const Ref<FeatureInformation>& feature,
                                 Children<CategoryInformation> childrenCateogry) {
  auto row = makeRef<CategoryInformation>(NSControlStateValueOff, finderID, std::string(title), Image(), 0,
                                          "", rawValue(kind), std::vector<URL>(), Children<FileInformation>(),
                                          feature, std::any(), 0, false);
  row->childrenCateogry = std::move(childrenCateogry);
  return row;
}

/// One row "All" above the categories of the catalogue. They get no parentCategory: the scan of large and old
/// files arranges them further.
Categories underOneRow(const Categories& categories, const Ref<FeatureInformation>& feature) {
  for (const Ref<CategoryInformation>& category : categories) category->levelInt = 1;
  return {makeRow(0, "All", CategoryInfomationKind::LargeAndOldFileAllSet, feature, categories)};
}

Categories uninstallerRows(const Ref<FeatureInformation>& feature) {
  Categories rows;
  for (const std::string_view title : kUninstallerRows) {
    rows.push_back(
        makeRow(static_cast<Integer>(rows.size()), title, CategoryInfomationKind::App, feature, {}));
  }
  return rows;
}

/// The categories that a feature of this type shows instead of those of the catalogue.
Categories arrange(const std::optional<std::string>& type, Categories categories,
                   const Ref<FeatureInformation>& feature) {
  if (type == kLargeAndOldFiles) return underOneRow(categories, feature);
  if (type == kUninstaller) return uninstallerRows(feature);
  return categories;
}

Ref<FeatureInformation> readFeature(const CatalogueEntry& entry, const Ref<ModuleInformation>& module) {
  const Integer finderID = entry.integer("finder");
  const Integer state = entry.integer("status");
  const std::string& image = entry.text("image");
  const std::string& title = entry.text("title");
  const std::optional<std::string> type = entry.textIfAny("type");
  const std::string& description = entry.text("description");
  auto feature = makeRef<FeatureInformation>(finderID, state, Image::lookUp(image), title, description,
                                             Children<CategoryInformation>(), module, std::any());

  Categories categories;
  for (const CatalogueEntry& category : entry.entriesIfAny("category")) {
    categories.push_back(readCategory(category, feature));
  }
  sortByFinderID(categories);
  feature->categoryInfo = arrange(type, std::move(categories), feature);
  return feature;
}

Ref<ModuleInformation> readModule(const CatalogueEntry& entry) {
  const Integer finderID = entry.integer("finder");
  const std::string& title = entry.text("title");
  const std::string& image = entry.text("image");
  const std::string& description = entry.text("description");
  const std::string& version = entry.text("version");
  const std::string& type = entry.text("type");
  const std::vector<CatalogueEntry> features = entry.entries("module");
  auto module = makeRef<ModuleInformation>(finderID, title, type, Image::lookUp(image), description, version,
                                           Children<FeatureInformation>());

  for (const CatalogueEntry& feature : features) module->featureInfo.push_back(readFeature(feature, module));
  return module;
}

std::string defaultCatalogue() {
  std::optional<std::string> path = Host::current().resourcePath("Feature", "plist");
  if (!path) fatalStop(kUnexpectedNil, "main bundle: no resource \"Feature.plist\"");
  return *std::move(path);
}

}  // namespace

ModuleInformation::ModuleInformation(Integer newFinderID, std::string newTitle, std::string newType,
                                     Image newImage, std::string newDescription, std::string newVersion,
                                     Children<FeatureInformation> newFeatureInfo)
    : finderID(newFinderID),
      title(std::move(newTitle)),
      type(std::move(newType)),
      image(std::move(newImage)),
      description(std::move(newDescription)),
      version(std::move(newVersion)),
      featureInfo(FieldOf(*this), std::move(newFeatureInfo)) {}

ModuleInformation::~ModuleInformation() = default;

void ModuleInformation::dropChildren() noexcept { featureInfo.clear(); }

std::vector<Ref<ModuleInformation>> ModuleInformation::getModule(
    const std::optional<std::string>& moduleFile) {
  std::optional<PropertyList> list;
  std::vector<Ref<ModuleInformation>> modules;
  for (const CatalogueEntry& entry :
       CatalogueEntry::readFile(moduleFile ? *moduleFile : defaultCatalogue(), list)) {
    modules.push_back(readModule(entry));
  }
  sortByFinderID(modules);
  return modules;
}

std::string ModuleInformation::updateModuleURL(std::string_view text) {
  std::string updated;
  for (;;) {
    const std::size_t at = text.find(kOwnHome);
    updated += text.substr(0, at);
    if (at == std::string_view::npos) return updated;
    updated += Host::current().homeURLText();
    text.remove_prefix(at + kOwnHome.size());
  }
}

}  // namespace sorrel
