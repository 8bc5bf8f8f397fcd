#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {

using Dictionary = PropertyList::Dictionary;
using Array = PropertyList::Array;

inline Dictionary category(Integer finder) {
  return {{"finder", finder}, {"status", 1},         {"title", "category"},
          {"image", ""},      {"description", "cd"}, {"type", "Common"}};
}

inline Dictionary feature(Integer finder, Array categories = {}) {
  return {{"finder", finder},   {"status", 1},         {"image", ""},
          {"title", "feature"}, {"description", "fd"}, {"category", std::move(categories)}};
}

inline Dictionary module(Integer finder, Array features = {}) {
  return {{"finder", finder},
          {"title", "module"},
          {"image", ""},
          {"description", "md"},
          {"version", "1.0"},
          {"type", "word"},
          {"module", std::move(features)}};
}

inline Dictionary with(Dictionary dictionary, std::string key, PropertyList value) {
  dictionary.set(std::move(key), std::move(value));
  return dictionary;
}

inline Dictionary without(Dictionary dictionary, std::string_view key) {
  dictionary.erase(key);
  return dictionary;
}

inline Dictionary location(std::string_view url) { return {{"url", url}}; }

/// A catalogue in a temporary folder, read for the user alice of the volume mounted at `root()`.
class ModuleInfo : public testing::Test {
 protected:
  ModuleInfo() {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    useVolume("");
  }
  ~ModuleInfo() override { Host::install(Host::linuxDesktop({})); }

  void useVolume(const std::string& root) {
    Host::install(Host::macVolume(root, "alice", {"org.example.test", folder_.path("Resources"), {}}));
  }

  [[nodiscard]] std::string file() const { return folder_.path("Feature.plist"); }

  void write(const Dictionary& root, PropertyListFormat format = PropertyListFormat::XML) {
    ASSERT_TRUE(writePropertyListFile(file(), root, format));
  }

  std::vector<Ref<ModuleInformation>> read(const Dictionary& root) {
    write(root);
    return ModuleInformation::getModule(file());
  }
  /// The feature of a catalogue that has only this one.
  Ref<FeatureInformation> readFeature(const Dictionary& only) {
    return read({{"m", module(1, {only})}}).at(0)->featureInfo.ref(0);
  }
  Ref<CategoryInformation> readCategory(const Dictionary& only) {
    return readFeature(feature(1, {only}))->categoryInfo.ref(0);
  }

  TemporaryFolder folder_;
};

}  // namespace sorrel::test
