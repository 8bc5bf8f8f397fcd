#include "Host/JsonDocument.hpp"

#include <any>
#include <cstddef>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Host/FeatureTable.hpp"
#include "Host/JsonWriter.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"
#include "SorrelFramework/Model/RecordName.hpp"
#include "SorrelFramework/Selection/GroupGains.hpp"

namespace sorrel::cli {
namespace {

void writeDate(JsonWriter& out, Date date) {
  if (const auto text = isoText(date)) {
    out.text("date", *text);
  } else {
    out.null("date");
  }
}

void writeAttachment(JsonWriter& out, const std::any& payload) {
  out.key("attachment");
  if (const auto* const words = std::any_cast<std::string>(&payload)) {
    out.text(*words);
  } else if (const auto* const number = std::any_cast<std::int64_t>(&payload)) {
    out.integer(*number);
  } else if (const auto* const small = std::any_cast<int>(&payload)) {
    out.integer(*small);
  } else if (const auto* const real = std::any_cast<double>(&payload)) {
    out.real(*real);
  } else {
    out.null();
  }
}

template <class Items, class Write>
void writeList(JsonWriter& out, std::string_view name, const Items& items, Write write) {
  out.key(name).beginList();
  for (const auto& item : items) write(out, item);
  out.endList();
}

/// Members of groups whose removal would not free their size, or that have a note.
using Gains = std::map<const FileInformation*, Gain>;

Gains gainsIn(const FeatureInformation& feature) {
  Gains gains;
  if (!showsGroups(feature.finderID)) return gains;
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

void writeFile(JsonWriter& out, const FileInformation& file, const Gains& gains) {
  out.beginObject();
  out.integer("finderID", file.finderID).integer("parentFinderID", file.parentFinderID);
  out.text("title", file.title).integer("size", file.size);
  writeDate(out, file.date);
  out.real("dateSeconds", file.date.secondsSince1970);
  out.text("url", file.url.absoluteString()).text("path", pathOf(file.url));
  out.flag("canDelete", file.canDelete).flag("removeCategory", file.removeCategory);
  out.integer("fileKind", file.fileKind).integer("levelInt", file.levelInt).integer("state", file.state);
  out.integer("deleteStatus", file.deleteStatus).text("deleteErrorDesc", file.deleteErrorDesc);
  out.text("hashValueString", file.hashValueString.str());
  writeAttachment(out, file.attachInformation);
  if (const auto gain = gains.find(&file); gain != gains.end()) {
    out.integer("frees", gain->second.bytes).text("note", gain->second.note);
  }
  writeList(out, "childrens", file.childrens,
            [&gains](JsonWriter& to, const FileInformation& child) { writeFile(to, child, gains); });
  out.endObject();
}

void writeCategory(JsonWriter& out, const CategoryInformation& category, const Gains& gains) {
  out.beginObject();
  out.integer("finderID", category.finderID).text("title", category.title);
  out.text("description", category.description).integer("kind", category.kind);
  out.integer("size", category.size).integer("state", category.state);
  out.integer("levelInt", category.levelInt).flag("needRemoveCategory", category.needRemoveCategory);
  out.text("hashValueString", category.hashValueString);
  writeList(out, "urls", category.urls,
            [](JsonWriter& to, const URL& url) { to.text(url.absoluteString()); });
  writeList(out, "childrens", category.childrens,
            [&gains](JsonWriter& to, const FileInformation& file) { writeFile(to, file, gains); });
  if (category.childrenCateogry) {
    writeList(
        out, "childrenCateogry", *category.childrenCateogry,
        [&gains](JsonWriter& to, const CategoryInformation& child) { writeCategory(to, child, gains); });
  } else {
    out.null("childrenCateogry");
  }
  out.endObject();
}

void writeCategories(JsonWriter& out, const FeatureInformation& feature, const Gains& gains) {
  writeList(
      out, "categoryInfo", feature.categoryInfo,
      [&gains](JsonWriter& to, const CategoryInformation& category) { writeCategory(to, category, gains); });
}

void writeCatalogueFeature(JsonWriter& out, const FeatureInformation& feature) {
  out.beginObject();
  out.integer("finderID", feature.finderID).integer("state", feature.state);
  out.text("title", feature.title).text("description", feature.description);
  writeCategories(out, feature, {});
  out.endObject();
}

void writeModule(JsonWriter& out, const Ref<ModuleInformation>& module) {
  out.beginObject();
  out.integer("finderID", module->finderID).text("title", module->title).text("type", module->type);
  out.text("description", module->description).text("version", module->version);
  writeList(out, "featureInfo", module->featureInfo, writeCatalogueFeature);
  out.endObject();
}

/// The fields of the document of a scan.
void writeScan(JsonWriter& out, const FeatureInformation& feature, const ScanOutcome& outcome,
               const Gains& gains) {
  out.key("feature").beginObject();
  out.integer("finderID", feature.finderID).text("title", feature.title).integer("state", feature.state);
  writeCategories(out, feature, gains);
  out.endObject();
  out.integer("size", outcome.size).text("status", outcome.status);
  const CallbackCounts& counts = outcome.callbacks;
  out.key("callbacks").beginObject();
  out.integer("done", counts.done).integer("singleDone", counts.singleDone);
  out.integer("progress", counts.progress).real("lastPercent", counts.lastPercent);
  out.endObject();
}

/// Passes the writer of a JSON object to `write`, and ends the line.
template <class Write>
void writeDocument(std::ostream& out, Write write) {
  {
    JsonWriter writer(out);
    writer.beginObject();
    write(writer);
    writer.endObject();
  }
  out << '\n';
}

}  // namespace

void writeModulesDocument(std::ostream& out, const std::vector<Ref<ModuleInformation>>& modules) {
  writeDocument(out, [&](JsonWriter& writer) { writeList(writer, "modules", modules, writeModule); });
}

void writeScanDocument(std::ostream& out, const FeatureInformation& feature, const ScanOutcome& outcome) {
  writeDocument(out, [&](JsonWriter& writer) { writeScan(writer, feature, outcome, gainsIn(feature)); });
}

void writeCleanDocument(std::ostream& out, const FeatureInformation& feature, const ScanOutcome& scan,
                        const CleanOutcome& clean) {
  writeDocument(out, [&](JsonWriter& writer) {
    writeScan(writer, feature, scan, {});
    writer.key("clean").beginObject();
    writer.integer("size", clean.size).integer("status", clean.status).text("desc", clean.desc);
    writeList(writer, "abnormalFiles", clean.abnormalFiles,
              [](JsonWriter& to, const std::string& name) { to.text(name); });
    writeList(writer, "progress", clean.progress,
              [](JsonWriter& to, float percent) { to.real(static_cast<double>(percent)); });
    writer.json("records", clean.records);
    writer.endObject();
  });
}

void writeRecords(std::ostream& out, const std::vector<Ref<FileInformation>>& records) {
  JsonWriter writer(out);
  writer.beginList();
  for (const Ref<FileInformation>& record : records) writeFile(writer, *record, {});
  writer.endList();
}

}  // namespace sorrel::cli
