#include "Tests/Support/ScanKit.hpp"

#include <gtest/gtest.h>

#include <any>
#include <thread>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel::test {
namespace {

/// The main queue runs on the thread that runs the test.
const std::thread::id kMainThread = std::this_thread::get_id();

}  // namespace

ScanVolume::ScanVolume() {
  folder("Users/alice");
  Host::install(Host::macVolume(path(), "alice", {"org.example.scan", "", {}}));
}

URL ScanVolume::url(std::string_view name) const { return URL::fileURL(path(name), name.ends_with('/')); }

Ref<FeatureInformation> makeFeature(Integer finderID, const std::vector<CategorySketch>& categories) {
  const auto module =
      makeRef<ModuleInformation>(Integer{1}, "Module", "", Image(), "", "", Children<FeatureInformation>());
  auto feature = makeRef<FeatureInformation>(finderID, Integer{0}, Image(), "Feature", "",
                                             Children<CategoryInformation>(), module, std::any());
  module->featureInfo.push_back(feature);
  Integer category = 0;
  for (const CategorySketch& sketch : categories) {
    feature->categoryInfo.push_back(makeRef<CategoryInformation>(
        sketch.state, ++category, "Category", Image(), std::int64_t{0}, "", rawValue(sketch.kind),
        sketch.urls, Children<FileInformation>(), feature, std::any(), Integer{0}, false));
  }
  return feature;
}

Ref<FeatureInformation> makeLargeAndOldFeature(Integer rows) {
  auto feature = makeFeature(3, {{CategoryInfomationKind::LargeAndOldFileAllSet, {}}});
  CategoryInformation& all = feature->categoryInfo[0];
  all.childrenCateogry.emplace();
  for (Integer i = 0; i < rows; ++i) {
    all.childrenCateogry->push_back(makeRef<CategoryInformation>(
        NSControlStateValueOff, i, "Row " + std::to_string(i), Image(), std::int64_t{0}, "",
        rawValue(CategoryInfomationKind::Common), std::vector<URL>(), Children<FileInformation>(), feature,
        std::any(), Integer{1}, false));
  }
  return feature;
}

ScanRecord::ScanRecord() : queue(std::make_shared<RecordingQueue>()) {}

ScanRecord::Place ScanRecord::here() const {
  return {std::this_thread::get_id() == kMainThread, queue->isCurrent()};
}

ProgressFunc ScanRecord::progress() {
  return [this](const std::string& path, std::int64_t size) {
    const std::lock_guard lock(mutex);
    progressCalls.emplace_back(path, size);
    progressPlaces.push_back(here());
  };
}

PercentFunc ScanRecord::percent() {
  return [this](float share) {
    const std::lock_guard lock(mutex);
    percents.push_back(share);
    percentPlaces.push_back(here());
  };
}

SingleDoneFunc ScanRecord::singleDone() {
  return [this](Integer index, std::int64_t size) {
    const std::lock_guard lock(mutex);
    singles.emplace_back(index, size);
    singlePlaces.push_back(here());
  };
}

std::function<void(CategoryResults)> ScanRecord::done() {
  return [this](CategoryResults found) {
    if (onDone) onDone();
    const std::lock_guard lock(mutex);
    results = std::move(found);
    donePlaces.push_back(here());
    ++doneCount;
  };
}

std::function<void(FeatureInformation&, std::int64_t)> ScanRecord::treeDone() {
  return [this](FeatureInformation& /*feature*/, std::int64_t size) {
    if (onDone) onDone();
    const std::lock_guard lock(mutex);
    treeSize = size;
    donePlaces.push_back(here());
    ++doneCount;
  };
}

bool ScanRecord::waitUntilDone() {
  const bool ended = runMainLoopUntil([this] {
    const std::lock_guard lock(mutex);
    return doneCount > 0 && !percents.empty() && percents.back() == 1.0F;
  });
  return drainMainQueue() && ended && drain(*queue);
}

std::vector<std::string> namesOf(const FileRecords& records, const URL& root) {
  std::vector<std::string> names;
  const std::string prefix = root.absoluteString();
  for (const auto& record : records) {
    const std::string text = record->url.absoluteString();
    names.push_back(text.starts_with(prefix) ? percentDecodedBytes(text.substr(prefix.size())) : text);
  }
  return names;
}

Ref<FileInformation> recordNamed(const FileRecords& records, const URL& root, std::string_view name) {
  const auto names = namesOf(records, root);
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (names[i] == name) return records[i];
  }
  ADD_FAILURE() << "no record called " << name;
  return nullptr;
}

}  // namespace sorrel::test
