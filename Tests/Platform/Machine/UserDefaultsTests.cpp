#include "SorrelFramework/Platform/Machine/UserDefaults.hpp"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "SorrelFramework/Platform/Files/FileBytes.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

TEST(UserDefaults, holdsNothingAtFirst) {
  const TemporaryFolder folder;
  const UserDefaults defaults(folder.path("a.plist"));
  EXPECT_FALSE(defaults.value("key").has_value());
  EXPECT_FALSE(defaults.string("key").has_value());
  EXPECT_FALSE(defaults.boolean("key"));
}

TEST(UserDefaults, keepsValuesForTheNextInstance) {
  const TemporaryFolder folder;
  const std::string path = folder.path("Library/Preferences/a.plist");
  EXPECT_TRUE(UserDefaults(path).set("text", "hello"));
  EXPECT_TRUE(UserDefaults(path).set("flag", true));
  const UserDefaults again(path);
  EXPECT_EQ(again.string("text"), "hello");
  EXPECT_EQ(again.value("text"), PropertyList("hello"));
  EXPECT_TRUE(again.boolean("flag"));
  EXPECT_FALSE(again.string("flag").has_value());
}

TEST(UserDefaults, removesValues) {
  const TemporaryFolder folder;
  UserDefaults defaults(folder.path("a.plist"));
  EXPECT_TRUE(defaults.set("key", 1));
  EXPECT_TRUE(defaults.remove("key"));
  EXPECT_TRUE(defaults.remove("key"));
  EXPECT_FALSE(defaults.value("key").has_value());
}

TEST(UserDefaults, leavesValuesOfOthersAlone) {
  const TemporaryFolder folder;
  UserDefaults defaults(folder.file("a.plist", "{ other = ( 1, 2 ); }"));
  EXPECT_TRUE(defaults.set("mine", 1));
  EXPECT_EQ(defaults.value("other"), PropertyList(PropertyList::Array{"1", "2"}));
}

TEST(UserDefaults, tellsTruthFromTextsAndNumbers) {
  const TemporaryFolder folder;
  UserDefaults defaults(folder.path("a.plist"));
  const std::pair<PropertyList, bool> kCases[] = {
      {"YES", true}, {"True", true}, {"no", false}, {1, true},
      {0, false},    {false, false}, {1.0, true},   {PropertyList::Array(), false}};
  for (const auto& [value, truth] : kCases) {
    ASSERT_TRUE(defaults.set("key", value));
    EXPECT_EQ(defaults.boolean("key"), truth);
  }
}

TEST(UserDefaults, neverOverwritesAFileThatItCannotRead) {
  const TemporaryFolder folder;
  const std::string path = folder.file("a.plist", "{ broken");
  UserDefaults defaults(path);
  EXPECT_FALSE(defaults.value("key").has_value());
  EXPECT_FALSE(defaults.set("key", 1));
  EXPECT_FALSE(defaults.remove("key"));
  EXPECT_EQ(readFileBytes(path, 100), "{ broken");
}

TEST(UserDefaults, withoutAFileKeepNothing) {
  UserDefaults defaults("");
  EXPECT_FALSE(defaults.set("key", 1));
  EXPECT_FALSE(defaults.value("key").has_value());
}

TEST(UserDefaults, manyThreadsLoseNoValue) {
  const TemporaryFolder folder;
  UserDefaults defaults(folder.path("a.plist"));
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&defaults, thread] {
      for (int i = 0; i < 5; ++i) EXPECT_TRUE(defaults.set(std::to_string(thread * 10 + i), i));
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int thread = 0; thread < 4; ++thread) {
    for (int i = 0; i < 5; ++i) EXPECT_EQ(defaults.value(std::to_string(thread * 10 + i)), PropertyList(i));
  }
}

TEST(UserDefaults, standardOnesLieInThePreferencesOfTheMainBundle) {
  const TemporaryFolder volume;
  Host::install(Host::macVolume(volume.path(), "alice", {"com.example.app", "", {}}));
  EXPECT_TRUE(UserDefaults::standard().set("key", "value"));
  const auto list =
      readPropertyListFile(volume.path("Users/alice/Library/Preferences/com.example.app.plist"));
  ASSERT_TRUE(list.has_value());
  EXPECT_EQ(*list->findString("key"), "value");
  EXPECT_EQ(&UserDefaults::standard(), &UserDefaults::standard());
}

TEST(UserDefaults, standardOnesWithoutAFileNameKeepNothing) {
  const TemporaryFolder volume;
  for (const char* identifier : {"", "../x", "a/b"}) {
    Host::install(Host::macVolume(volume.path(), "alice", {identifier, "", {}}));
    EXPECT_EQ(UserDefaults::standard().path(), "") << identifier;
    EXPECT_FALSE(UserDefaults::standard().set("key", "value"));
  }
}

}  // namespace
}  // namespace sorrel::test
