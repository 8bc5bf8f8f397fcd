#include "Host/JsonDocument.hpp"

#include <any>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>

#include "Host/RecordName.hpp"
#include "Host/SafeText.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"

namespace sorrel::cli {
namespace {

using Json = nlohmann::ordered_json;

// 0001-01-01 and 10000-01-01, in seconds since 1970: between them a year has four digits.
constexpr double kFirstSecond = -62135596800.0;
constexpr double kEndSecond = 253402300800.0;

// All texts go through here: a JSON document is UTF-8, names on disk are bytes.
Json text(std::string_view bytes) { return validUTF8(bytes); }

Json isoDate(Date date) {
  const double seconds = std::floor(date.secondsSince1970);
  if (!(seconds >= kFirstSecond && seconds < kEndSecond)) return nullptr;
  const auto whole = static_cast<std::time_t>(seconds);
  std::tm parts{};
  ::gmtime_r(&whole, &parts);
  std::array<char, 64> buffer{};
  const int length =
      std::snprintf(buffer.data(), buffer.size(), "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900,
                    parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  return std::string(buffer.data(), static_cast<std::size_t>(length));
}

template <class Value>
bool holds(const std::any& payload, Json& out) {
  const Value* const value = std::any_cast<Value>(&payload);
  if (value == nullptr) return false;
  out = *value;
  return true;
}

Json attachment(const std::any& payload) {
  if (const auto* const words = std::any_cast<std::string>(&payload)) return text(*words);
  Json number;
  static_cast<void>(holds<std::int64_t>(payload, number) || holds<int>(payload, number) ||
                    holds<double>(payload, number));
  return number;
}

// Writes `fields` as an object that is still open: the lists, which come last, follow piece by piece.
void openObject(std::ostream& out, const Json& fields) {
  std::string words = fields.dump(-1, ' ', false, Json::error_handler_t::replace);
  words.pop_back();
  out << words;
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

void writeFile(std::ostream& out, const FileInformation& file) {
  openObject(out, {{"finderID", Integer{file.finderID}},
                   {"parentFinderID", file.parentFinderID},
                   {"title", text(file.title)},
                   {"size", file.size},
                   {"date", isoDate(file.date)},
                   {"dateSeconds", file.date.secondsSince1970},
                   {"url", text(file.url.absoluteString())},
                   {"path", text(pathOf(file.url))},
                   {"canDelete", file.canDelete},
                   {"removeCategory", file.removeCategory},
                   {"fileKind", file.fileKind},
                   {"levelInt", file.levelInt},
                   {"state", file.state},
                   {"deleteStatus", file.deleteStatus},
                   {"deleteErrorDesc", text(file.deleteErrorDesc)},
                   {"hashValueString", text(std::string(file.hashValueString))},
                   {"attachment", attachment(file.attachInformation)}});
  out << R"(,"childrens":)";
  writeList(out, file.childrens, writeFile);
  out << '}';
}

void writeCategory(std::ostream& out, const CategoryInformation& category) {
  Json urls = Json::array();
  for (const URL& url : category.urls) urls.push_back(text(url.absoluteString()));
  openObject(out, {{"finderID", Integer{category.finderID}},
                   {"title", text(category.title)},
                   {"description", text(category.description)},
                   {"kind", category.kind},
                   {"size", category.size},
                   {"state", category.state},
                   {"levelInt", category.levelInt},
                   {"needRemoveCategory", category.needRemoveCategory},
                   {"hashValueString", text(category.hashValueString)},
                   {"urls", std::move(urls)}});
  out << R"(,"childrens":)";
  writeList(out, category.childrens, writeFile);
  out << R"(,"childrenCateogry":)";
  if (category.childrenCateogry) {
    writeList(out, *category.childrenCateogry, writeCategory);
  } else {
    out << "null";
  }
  out << '}';
}

void writeCatalogueFeature(std::ostream& out, const FeatureInformation& feature) {
  openObject(out, {{"finderID", feature.finderID},
                   {"state", feature.state},
                   {"title", text(feature.title)},
                   {"description", text(feature.description)}});
  out << R"(,"categoryInfo":)";
  writeList(out, feature.categoryInfo, writeCategory);
  out << '}';
}

void writeModule(std::ostream& out, const Ref<ModuleInformation>& module) {
  openObject(out, {{"finderID", module->finderID},
                   {"title", text(module->title)},
                   {"type", text(module->type)},
                   {"description", text(module->description)},
                   {"version", text(module->version)}});
  out << R"(,"featureInfo":)";
  writeList(out, module->featureInfo, writeCatalogueFeature);
  out << '}';
}

void writeScannedFeature(std::ostream& out, const FeatureInformation& feature) {
  openObject(out, {{"finderID", feature.finderID}, {"title", text(feature.title)}, {"state", feature.state}});
  out << R"(,"categoryInfo":)";
  writeList(out, feature.categoryInfo, writeCategory);
  out << '}';
}

// The document of a scan up to the brace at its end.
void writeOpenScan(std::ostream& out, const FeatureInformation& feature, const ScanOutcome& outcome) {
  out << R"({"feature":)";
  writeScannedFeature(out, feature);
  const CallbackCounts& counts = outcome.callbacks;
  const Json rest = {{"size", outcome.size},
                     {"status", outcome.status},
                     {"callbacks",
                      {{"done", counts.done},
                       {"singleDone", counts.singleDone},
                       {"progress", counts.progress},
                       {"lastPercent", counts.lastPercent}}}};
  std::string words = rest.dump();
  words.front() = ',';
  words.pop_back();
  out << words;
}

}  // namespace

void writeModulesDocument(std::ostream& out, const std::vector<Ref<ModuleInformation>>& modules) {
  out << R"({"modules":)";
  writeList(out, modules, writeModule);
  out << "}\n";
}

void writeScanDocument(std::ostream& out, const FeatureInformation& feature, const ScanOutcome& outcome) {
  writeOpenScan(out, feature, outcome);
  out << "}\n";
}

void writeCleanDocument(std::ostream& out, const FeatureInformation& feature, const ScanOutcome& scan,
                        const CleanOutcome& clean) {
  writeOpenScan(out, feature, scan);
  Json abnormalFiles = Json::array();
  for (const std::string& name : clean.abnormalFiles) abnormalFiles.push_back(text(name));
  out << R"(,"clean":)";
  openObject(out, {{"size", clean.size},
                   {"status", clean.status},
                   {"desc", text(clean.desc)},
                   {"abnormalFiles", std::move(abnormalFiles)},
                   {"progress", clean.progress}});
  out << R"(,"records":)" << clean.records << "}}\n";
}

void writeRecords(std::ostream& out, const std::vector<Ref<FileInformation>>& records) {
  writeList(out, records,
            [](std::ostream& to, const Ref<FileInformation>& record) { writeFile(to, *record); });
}

}  // namespace sorrel::cli
