#include "SorrelFramework/Model/ModuleInfo.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"
#include "Tests/Model/ModuleInfoKit.hpp"

namespace sorrel::test {
namespace {

// A damaged catalogue is a violated contract: a fatal stop that names the key and its entry.
using ModuleInfoDeathTest = ModuleInfo;

constexpr const char* kNil = "^Unexpectedly found nil while unwrapping an Optional value\n";

TEST_F(ModuleInfoDeathTest, missingFileStops) {
  EXPECT_DEATH(ModuleInformation::getModule(folder_.path("absent.plist")),
               std::string(kNil) + ".*absent\\.plist");
}

TEST_F(ModuleInfoDeathTest, damagedFileStops) {
  folder_.file("Feature.plist", "<plist><dict><key>");
  EXPECT_DEATH(ModuleInformation::getModule(file()), std::string(kNil) + ".*Feature\\.plist");
}

TEST_F(ModuleInfoDeathTest, rootThatIsNoDictionaryStops) {
  ASSERT_TRUE(writePropertyListFile(file(), Array{module(1)}));
  EXPECT_DEATH(ModuleInformation::getModule(file()), std::string(kNil) + ".*Feature\\.plist");
}

TEST_F(ModuleInfoDeathTest, mainBundleWithoutTheCatalogueStops) {
  EXPECT_DEATH(ModuleInformation::getModule(), std::string(kNil) + ".*Feature\\.plist");
}

TEST_F(ModuleInfoDeathTest, moduleThatIsNoDictionaryStops) {
  EXPECT_DEATH(read({{"odd", "text"}}), "^Could not cast value of key \"odd\" to dictionary\n");
}

TEST_F(ModuleInfoDeathTest, featureThatIsNoDictionaryStops) {
  EXPECT_DEATH(read({{"m", module(1, {feature(1), "text"})}}),
               "^Could not cast value of key \"module\" to array of dictionaries\n");
}

TEST_F(ModuleInfoDeathTest, numberWithAFractionIsNoInteger) {
  EXPECT_DEATH(read({{"m", with(module(1), "finder", 1.5)}}),
               "^Could not cast value of key \"finder\" to integer\n");
}

TEST_F(ModuleInfoDeathTest, textOfDigitsIsNoInteger) {
  EXPECT_DEATH(read({{"m", with(module(1), "finder", "1")}}),
               "^Could not cast value of key \"finder\" to integer\n");
}

/// One required key: its level of the tree, and the type of its value.
struct RequiredKey {
  const char* level;
  const char* key;
  const char* kind;
};

// In the order in which they are read.
constexpr RequiredKey kRequiredKeys[] = {
    {"module", "finder", "integer"},
    {"module", "title", "string"},
    {"module", "image", "string"},
    {"module", "description", "string"},
    {"module", "version", "string"},
    {"module", "type", "string"},
    {"module", "module", "array of dictionaries"},
    {"feature", "finder", "integer"},
    {"feature", "status", "integer"},
    {"feature", "image", "string"},
    {"feature", "title", "string"},
    {"feature", "description", "string"},
    {"category", "finder", "integer"},
    {"category", "status", "integer"},
    {"category", "title", "string"},
    {"category", "image", "string"},
    {"category", "description", "string"},
    {"category", "type", "string"},
    {"location", "url", "string"},
};

/// The text before the key in the context line.
std::string placeOf(std::string_view level) {
  std::string place = "Feature\\.plist: \"m\"";
  if (level == "module") return place;
  place += ", \"module\" 1";
  if (level == "feature") return place;
  place += ", \"category\" 0";
  return level == "category" ? place : place + ", \"urls\" 2";
}

class ModuleInfoKeysDeathTest : public ModuleInfo, public testing::WithParamInterface<RequiredKey> {
 protected:
  /// A whole catalogue, except for `change` on the one dictionary of the level in question.
  template <class Change>
  void writeChanged(Change change) {
    const auto apply = [&](std::string_view level, Dictionary dictionary) {
      if (level == GetParam().level) change(dictionary);
      return dictionary;
    };
    const Array locations{location("file:///a"), location("file:///b"), apply("location", location("c"))};
    const Dictionary row = apply("category", with(category(3), "urls", locations));
    const Dictionary second = apply("feature", feature(2, {row}));
    write({{"m", apply("module", module(1, {feature(1), second}))}});
  }
};

TEST_P(ModuleInfoKeysDeathTest, missingKeyStopsAndIsTheFirstOneReported) {
  const RequiredKey& missing = GetParam();
  writeChanged([&](Dictionary& dictionary) {
    bool from = false;  // this key, and those that are read after it
    for (const RequiredKey& row : kRequiredKeys) {
      if (std::string_view(row.level) != missing.level) continue;
      from = from || std::string_view(row.key) == missing.key;
      if (from) dictionary.erase(row.key);
    }
  });
  EXPECT_DEATH(ModuleInformation::getModule(file()),
               std::string(kNil) + "  [^\n]*" + placeOf(missing.level) + ", key \"" + missing.key + "\"\n");
}

TEST_P(ModuleInfoKeysDeathTest, mistypedKeyStopsOnTheCast) {
  const RequiredKey& mistyped = GetParam();
  writeChanged([&](Dictionary& dictionary) {
    dictionary.set(mistyped.key, PropertyList(PropertyList::Data{1, 2}));
  });
  EXPECT_DEATH(ModuleInformation::getModule(file()), std::string("^Could not cast value of key \"") +
                                                         mistyped.key + "\" to " + mistyped.kind +
                                                         "\n  [^\n]*" + placeOf(mistyped.level));
}

INSTANTIATE_TEST_SUITE_P(Catalogue, ModuleInfoKeysDeathTest, testing::ValuesIn(kRequiredKeys),
                         [](const testing::TestParamInfo<RequiredKey>& row) {
                           return std::string(row.param.level) + "_" + row.param.key;
                         });

}  // namespace
}  // namespace sorrel::test
