// Checks that the program's own catalogues keep the promises of a catalogue.
#include <gtest/gtest.h>
#include <TestPlaces.hpp>

#include <cstdlib>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/ModuleInfo.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"

using namespace sorrel;

namespace {

/// Sets an environment variable to another value, or removes it, for the duration of a scope.
class Variable {
 public:
  Variable(const char* name, std::optional<std::string> value) : name_(name) {
    if (const char* const old = std::getenv(name)) old_ = old;
    set(value);
  }
  ~Variable() { set(old_); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  void set(const std::optional<std::string>& value) const {
    if (value) {
      ::setenv(name_, value->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }

  const char* name_;
  std::optional<std::string> old_;
};

class Catalogue : public testing::TestWithParam<std::string> {
 protected:
  Catalogue() {
    const bool mac = GetParam() == "macOS";
    Host::install(mac ? Host::macVolume("", "alice", {}) : Host::linuxDesktop({}));
    modules = ModuleInformation::getModule(std::string(SORREL_SOURCE_DIR) + "/Catalogue/" + GetParam() +
                                           "/Feature.plist");
    for (const auto& module : modules) {
      for (const auto& feature : module->featureInfo.refs()) features.push_back(feature);
    }
  }
  ~Catalogue() override { Host::install(Host::linuxDesktop({})); }

  /// Title and path of every location.
  std::vector<std::pair<std::string, std::string>> locations() const {
    std::vector<std::pair<std::string, std::string>> all;
    for (const auto& feature : features) {
      for (const CategoryInformation& category : feature->categoryInfo) {
        for (const URL& url : category.urls) all.emplace_back(category.title, url.path());
      }
    }
    return all;
  }

  Ref<FeatureInformation> feature(Integer number) const {
    for (const auto& candidate : features) {
      if (candidate->finderID == number) return candidate;
    }
    return nullptr;
  }

  Variable home_{"HOME", "/home/alice"};
  Variable data_{"XDG_DATA_HOME", std::nullopt};
  Variable cache_{"XDG_CACHE_HOME", std::nullopt};
  Variable state_{"XDG_STATE_HOME", std::nullopt};
  Variable config_{"XDG_CONFIG_HOME", std::nullopt};
  std::vector<Ref<ModuleInformation>> modules;
  std::vector<Ref<FeatureInformation>> features;
};

INSTANTIATE_TEST_SUITE_P(Layouts, Catalogue, testing::Values("macOS", "Linux"),
                         [](const auto& layout) { return layout.param; });

/// True if `path` is `folder` or lies below it.
bool liesIn(std::string_view path, std::string_view folder) {
  if (folder == "/") return true;
  return path == folder || (path.starts_with(folder) && path[folder.size()] == '/');
}

// Folders that must stay; their contents may go.
constexpr std::string_view kKept[] = {
    "/home",
    "/home/alice",
    "/home/alice/.config",
    "/home/alice/.local",
    "/home/alice/.local/share",
    "/home/alice/.local/state",
    "/root",
    "/var",
    "/opt",
    "/srv",
    "/mnt",
    "/media",
    "/tmp",
    "/Users",
    "/Users/Shared",
    "/Users/alice",
    "/Users/alice/Desktop",
    "/Users/alice/Documents",
    "/Users/alice/Downloads",
    "/Users/alice/Library",
    "/Users/alice/Movies",
    "/Users/alice/Music",
    "/Users/alice/Pictures",
    "/Applications",
    "/Library",
    "/Volumes",
    "/private",
    "/private/var",
};

// Folders that must stay with all their contents.
constexpr std::string_view kUntouchable[] = {
    "/bin",
    "/boot",
    "/dev",
    "/etc",
    "/lib",
    "/lib32",
    "/lib64",
    "/proc",
    "/run",
    "/sbin",
    "/sys",
    "/usr",
    "/var/lib",
    "/System",
    "/private/etc",
    "/private/var/db",
    "/Library/LaunchDaemons",
    "/Users/alice/Library/Keychains",
    "/Users/alice/Library/Preferences",
    "/home/alice/.gnupg",
    "/home/alice/.ssh",
};

TEST_P(Catalogue, everyLocationParses) {
  EXPECT_GT(locations().size(), 8U);
  for (const auto& feature : features) {
    for (const CategoryInformation& category : feature->categoryInfo) {
      for (const URL& url : category.urls) {
        EXPECT_FALSE(url.isEmptyPath()) << category.title;
        EXPECT_TRUE(url.isFileURL()) << url.absoluteString();
      }
    }
  }
}

TEST_P(Catalogue, noLocationIsProtectedOrHoldsSomethingProtected) {
  for (const auto& [title, path] : locations()) {
    EXPECT_TRUE(path.starts_with("/") && path != "/") << title << ": " << path;
    EXPECT_EQ(path.find(".."), std::string::npos) << path;
    for (const std::string_view kept : kKept) EXPECT_FALSE(liesIn(kept, path)) << path << " holds " << kept;
    for (const std::string_view folder : kUntouchable) {
      EXPECT_FALSE(liesIn(folder, path) || liesIn(path, folder)) << path << " meets " << folder;
    }
  }
}

TEST_P(Catalogue, locationsOfOneFeatureDoNotOverlap) {
  for (const auto& feature : features) {
    std::vector<std::string> seen;
    for (const CategoryInformation& category : feature->categoryInfo) {
      for (const URL& url : category.urls) {
        const std::string path = url.path();
        for (const std::string& other : seen) {
          EXPECT_FALSE(liesIn(path, other) || liesIn(other, path)) << path << " and " << other;
        }
        seen.push_back(path);
      }
    }
  }
}

TEST_P(Catalogue, featureNumbersAreTheFixedTwelve) {
  std::multiset<Integer> numbers;
  for (const auto& feature : features) numbers.insert(feature->finderID);
  EXPECT_EQ(numbers, (std::multiset<Integer>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
}

TEST_P(Catalogue, numbersOfModulesAndOfCategoriesAreUnique) {
  std::set<Integer> ofModules;
  for (const auto& module : modules) EXPECT_TRUE(ofModules.insert(module->finderID).second) << module->title;
  for (const auto& feature : features) {
    std::set<Integer> ofCategories;
    for (const CategoryInformation& category : feature->categoryInfo) {
      EXPECT_TRUE(ofCategories.insert(Integer{category.finderID}).second) << feature->title << category.title;
    }
  }
}

TEST_P(Catalogue, everyRowHasTexts) {
  for (const auto& module : modules) {
    EXPECT_FALSE(module->title.empty() || module->description.empty() || module->version.empty());
  }
  for (const auto& feature : features) {
    EXPECT_FALSE(feature->title.empty() || feature->description.empty()) << feature->finderID;
    for (const CategoryInformation& category : feature->categoryInfo) {
      EXPECT_FALSE(category.title.empty()) << feature->title;
      EXPECT_TRUE(!category.description.empty() || category.urls.empty()) << category.title;
    }
  }
}

TEST_P(Catalogue, nothingIsTickedInAdvance) {
  for (const auto& feature : features) {
    EXPECT_EQ(feature->state, NSControlStateValueOff) << feature->title;
    for (const CategoryInformation& category : feature->categoryInfo) {
      EXPECT_EQ(category.state, NSControlStateValueOff) << category.title;
    }
  }
}

TEST_P(Catalogue, everyCategoryThatIsWalkedHasLocations) {
  for (const Integer number : {1, 2, 4, 5}) {
    const auto walked = feature(number);
    ASSERT_TRUE(walked);
    EXPECT_FALSE(walked->categoryInfo.empty()) << walked->title;
    for (const CategoryInformation& category : walked->categoryInfo) {
      EXPECT_FALSE(category.urls.empty()) << category.title;
    }
  }
}

TEST_P(Catalogue, systemJunkKeepsFoldersTogether) {
  for (const CategoryInformation& category : feature(1)->categoryInfo) {
    EXPECT_EQ(category.kind, rawValue(CategoryInfomationKind::SystemCache)) << category.title;
  }
}

TEST_P(Catalogue, largeAndOldFilesHaveTheirTwelveRowsInOrder) {
  const auto large = feature(3);
  ASSERT_EQ(large->categoryInfo.size(), 1U);
  const auto& rows = large->categoryInfo[0].childrenCateogry;
  ASSERT_TRUE(rows.has_value());
  ASSERT_EQ(rows->size(), 12U);
  for (std::size_t i = 0; i < rows->size(); ++i) {
    EXPECT_EQ(Integer{(*rows)[i].finderID}, static_cast<Integer>(i));
  }
}

TEST_P(Catalogue, theUninstallerHasItsThreeRows) { EXPECT_EQ(feature(10)->categoryInfo.size(), 3U); }

}  // namespace
