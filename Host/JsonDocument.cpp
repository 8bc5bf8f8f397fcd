#include "Host/JsonDocument.hpp"

#include <any>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "Host/CleanFeatures.hpp"
#include "Host/GroupGains.hpp"
#include "Host/JsonObject.hpp"
#include "Host/RecordName.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"

namespace sorrel::cli {
namespace {

// 0001-01-01 and 10000-01-01, in seconds since 1970: between them a year has four digits.
constexpr double kFirstSecond = -62135596800.0;
constexpr double kEndSecond = 253402300800.0;

void addDate(JsonObject& object, Date date) {
  const double seconds = std::floor(date.secondsSince1970);
  if (!(seconds >= kFirstSecond && seconds < kEndSecond)) {
    object.null("date");
    return;
  }
  const auto whole = static_cast<std::time_t>(seconds);
  std::tm parts{};
  ::gmtime_r(&whole, &parts);
  std::array<char, 64> buffer{};
  const int length =
      std::snprintf(buffer.data(), buffer.size(), "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900,
                    parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  object.text("date", {buffer.data(), static_cast<std::size_t>(length)});
}

void addAttachment(JsonObject& object, const std::any& payload) {
  if (const auto* const words = std::any_cast<std::string>(&payload)) {
    object.text("attachment", *words);
  } else if (const auto* const number = std::any_cast<std::int64_t>(&payload)) {
    object.integer("attachment", *number);
  } else if (const auto* const small = std::any_cast<int>(&payload)) {
    object.integer("attachment", *small);
  } else if (const auto* const real = std::any_cast<double>(&payload)) {
    object.real("attachment", *real);
  } else {
    object.null("attachment");
  }
}

template <class Records, class Write>
void writeList(std::ostream& out, const Records& records, Write write) {
  out << '[';
  bool first = true;
  for (const auto& record : records) {
    if (!first) out << ',';
    first = false;
    write(out, record);
  }
  out << ']';
}

/// Members of groups whose removal would not free their size, or of which there is more to know.
using Gains = std::map<const FileInformation*, Gain>;

Gains gainsIn(const FeatureInformation& feature) {
  Gains gains;
  if (!holdsGroups(feature.finderID)) return gains;
  for (const CategoryInformation& category : feature.categoryInfo) {
    for (const FileInformation& group : category.childrens) {
      std::vector<Gain> ofMembers = gainsOf(group);
      for (std::size_t i = 0; i < ofMembers.size(); ++i) {
        if (!ofMembers[i].note.empty()) gains.emplace(&group.childrens[i], std::move(ofMembers[i]));
      }
    }
  }
  return gains;
}

void writeFiles(std::ostream& out, const Children<FileInformation>& files, const Gains& gains);

void writeFile(std::ostream& out, const FileInformation& file, const Gains& gains) {
  JsonObject object;
  object.integer("finderID", file.finderID).integer("parentFinderID", file.parentFinderID);
  object.text("title", file.title).integer("size", file.size);
  addDate(object, file.date);
  object.real("dateSeconds", file.date.secondsSince1970);
  object.text("url", file.url.absoluteString()).text("path", pathOf(file.url));
  object.flag("canDelete", file.canDelete).flag("removeCategory", file.removeCategory);
  object.integer("fileKind", file.fileKind).integer("levelInt", file.levelInt).integer("state", file.state);
  object.integer("deleteStatus", file.deleteStatus).text("deleteErrorDesc", file.deleteErrorDesc);
  object.text("hashValueString", file.hashValueString.str());
  addAttachment(object, file.attachInformation);
  if (const auto gain = gains.find(&file); gain != gains.end()) {
    object.integer("frees", gain->second.bytes).text("note", gain->second.note);
  }
  out << object.open();
  out << R"(,"childrens":)";
  writeFiles(out, file.childrens, gains);
  out << '}';
}

void writeFiles(std::ostream& out, const Children<FileInformation>& files, const Gains& gains) {
  writeList(out, files, [&](std::ostream& to, const FileInformation& file) { writeFile(to, file, gains); });
}

void writeCategories(std::ostream& out, const Children<CategoryInformation>& categories, const Gains& gains);

void writeCategory(std::ostream& out, const CategoryInformation& category, const Gains& gains) {
  JsonObject object;
  object.integer("finderID", category.finderID).text("title", category.title);
  object.text("description", category.description).integer("kind", category.kind);
  object.integer("size", category.size).integer("state", category.state);
  object.integer("levelInt", category.levelInt).flag("needRemoveCategory", category.needRemoveCategory);
  object.text("hashValueString", category.hashValueString);
  object.raw("urls", jsonTextList(category.urls, [](const URL& url) { return url.absoluteString(); }));
  out << object.open();
  out << R"(,"childrens":)";
  writeFiles(out, category.childrens, gains);
  out << R"(,"childrenCateogry":)";
  if (category.childrenCateogry) {
    writeCategories(out, *category.childrenCateogry, gains);
  } else {
    out << "null";
  }
  out << '}';
}

void writeCategories(std::ostream& out, const Children<CategoryInformation>& categories, const Gains& gains) {
  writeList(out, categories, [&](std::ostream& to, const CategoryInformation& category) {
    writeCategory(to, category, gains);
  });
}

void writeCatalogueFeature(std::ostream& out, const FeatureInformation& feature) {
  JsonObject object;
  object.integer("finderID", feature.finderID).integer("state", feature.state);
  object.text("title", feature.title).text("description", feature.description);
  out << object.open();
  out << R"(,"categoryInfo":)";
  writeCategories(out, feature.categoryInfo, {});
  out << '}';
}

void writeModule(std::ostream& out, const Ref<ModuleInformation>& module) {
  JsonObject object;
  object.integer("finderID", module->finderID).text("title", module->title).text("type", module->type);
  object.text("description", module->description).text("version", module->version);
  out << object.open();
  out << R"(,"featureInfo":)";
  writeList(out, module->featureInfo, writeCatalogueFeature);
  out << '}';
}

void writeScannedFeature(std::ostream& out, const FeatureInformation& feature, const Gains& gains) {
  JsonObject object;
  object.integer("finderID", feature.finderID).text("title", feature.title).integer("state", feature.state);
  out << object.open();
  out << R"(,"categoryInfo":)";
  writeCategories(out, feature.categoryInfo, gains);
  out << '}';
}

// The document of a scan up to the brace at its end.
void writeOpenScan(std::ostream& out, const FeatureInformation& feature, const ScanOutcome& outcome,
                   const Gains& gains) {
  const CallbackCounts& counts = outcome.callbacks;
  JsonObject callbacks;
  callbacks.integer("done", counts.done).integer("singleDone", counts.singleDone);
  callbacks.integer("progress", counts.progress).real("lastPercent", counts.lastPercent);
  JsonObject rest;
  rest.integer("size", outcome.size).text("status", outcome.status).raw("callbacks", callbacks.closed());
  out << R"({"feature":)";
  writeScannedFeature(out, feature, gains);
  out << ',' << rest.open().substr(1);
}

}  // namespace

void writeModulesDocument(std::ostream& out, const std::vector<Ref<ModuleInformation>>& modules) {
  out << R"({"modules":)";
  writeList(out, modules, writeModule);
  out << "}\n";
}

void writeScanDocument(std::ostream& out, const FeatureInformation& feature, const ScanOutcome& outcome) {
  writeOpenScan(out, feature, outcome, gainsIn(feature));
  out << "}\n";
}

void writeCleanDocument(std::ostream& out, const FeatureInformation& feature, const ScanOutcome& scan,
                        const CleanOutcome& clean) {
  std::string progress;
  for (const float percent : clean.progress) {
    progress.append(progress.empty() ? "[" : ",").append(jsonReal(static_cast<double>(percent)));
  }
  JsonObject object;
  object.integer("size", clean.size).integer("status", clean.status).text("desc", clean.desc);
  object.raw("abnormalFiles",
             jsonTextList(clean.abnormalFiles, [](const std::string& name) { return name; }));
  object.raw("progress", progress.empty() ? "[]" : progress + ']');
  writeOpenScan(out, feature, scan, {});
  out << R"(,"clean":)" << object.open() << R"(,"records":)" << clean.records << "}}\n";
}

void writeRecords(std::ostream& out, const std::vector<Ref<FileInformation>>& records) {
  writeList(out, records,
            [](std::ostream& to, const Ref<FileInformation>& record) { writeFile(to, *record, {}); });
}

}  // namespace sorrel::cli
