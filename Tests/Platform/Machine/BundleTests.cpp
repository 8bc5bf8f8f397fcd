#include "SorrelFramework/Platform/Machine/Bundle.hpp"

#include <filesystem>

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

std::string infoFor(const std::string& identifier) {
  return *writePropertyListXML(PropertyListDictionary{{"CFBundleIdentifier", identifier}});
}

std::optional<std::string> identifierAt(const std::string& path) {
  const std::optional<Bundle> bundle = Bundle::atPath(path);
  EXPECT_TRUE(bundle.has_value());
  return bundle.has_value() ? bundle->bundleIdentifier() : std::nullopt;
}

TEST(Bundle, isThereForEveryFolderAndNothingElse) {
  const TemporaryFolder folder;
  const auto bundle = Bundle::atPath(folder.folder("plain") + "/");
  ASSERT_TRUE(bundle.has_value());
  EXPECT_EQ(bundle->path(), folder.path("plain"));
  EXPECT_TRUE(bundle->infoDictionary().empty());
  EXPECT_FALSE(bundle->bundleIdentifier().has_value());
  EXPECT_EQ(bundle->infoPath(), "");
  EXPECT_FALSE(Bundle::atPath(folder.path("absent")).has_value());
  EXPECT_FALSE(Bundle::atPath(folder.file("file", "x")).has_value());
  EXPECT_FALSE(Bundle::atPath("").has_value());
}

TEST(Bundle, isThereForAFileURLOfAFolder) {
  const TemporaryFolder folder;
  folder.file("A.app/Contents/Info.plist", infoFor("com.example.a"));
  const auto bundle = Bundle::atURL(URL::fileURL(folder.path("A.app")));
  ASSERT_TRUE(bundle.has_value());
  EXPECT_EQ(bundle->bundleIdentifier(), "com.example.a");
  EXPECT_FALSE(Bundle::atURL(*URL::parse("https://example.com/A.app")).has_value());
}

TEST(Bundle, readsTheInfoOfEachLayout) {
  const TemporaryFolder folder;
  for (const char* place : {"Contents/", "Resources/", "Support Files/", ""}) {
    const std::string name = "B" + std::string(place).substr(0, 1) + ".app";
    folder.file(name + "/" + place + "Info.plist", infoFor("com.example.b"));
    EXPECT_EQ(identifierAt(folder.path(name)), "com.example.b") << place;
  }
}

TEST(Bundle, contentsGoBeforeResourcesButInAFramework) {
  const TemporaryFolder folder;
  for (const char* name : {"C.app", "C.framework"}) {
    folder.file(std::string(name) + "/Contents/Info.plist", infoFor("contents"));
    folder.file(std::string(name) + "/Resources/Info.plist", infoFor("resources"));
  }
  EXPECT_EQ(identifierAt(folder.path("C.app")), "contents");
  EXPECT_EQ(identifierAt(folder.path("C.framework")), "resources");
}

TEST(Bundle, theFirstLayoutCountsEvenWithoutAnInfo) {
  const TemporaryFolder folder;
  folder.folder("D.app/Contents");
  folder.file("D.app/Info.plist", infoFor("flat"));
  EXPECT_FALSE(identifierAt(folder.path("D.app")).has_value());
}

TEST(Bundle, aFileCalledContentsIsNoLayout) {
  const TemporaryFolder folder;
  folder.file("E.app/Contents", "");
  folder.file("E.app/Info.plist", infoFor("flat"));
  EXPECT_EQ(identifierAt(folder.path("E.app")), "flat");
}

TEST(Bundle, innerFoldersAreNoFlatBundles) {
  const TemporaryFolder folder;
  folder.file("F.app/Contents/Info.plist", infoFor("f"));
  EXPECT_FALSE(identifierAt(folder.path("F.app/Contents")).has_value());
}

TEST(Bundle, ignoresLetterCaseOfNames) {
  const TemporaryFolder folder;
  folder.file("G.app/contents/INFO.PLIST", infoFor("g"));
  EXPECT_EQ(identifierAt(folder.path("G.app")), "g");
}

TEST(Bundle, theInfoOfThisPlatformWins) {
  const TemporaryFolder folder;
  folder.file("H.app/Contents/Info.plist", infoFor("common"));
  folder.file("H.app/Contents/Info-macos.plist", infoFor("special"));
  EXPECT_EQ(identifierAt(folder.path("H.app")), "special");
}

TEST(Bundle, followsTheLinkOfAWrappedApplication) {
  const TemporaryFolder folder;
  folder.file("I.app/Wrapper/I.app/Info.plist", infoFor("wrapped"));
  std::filesystem::create_symlink("Wrapper/I.app", folder.path("I.app/WrappedBundle"));
  EXPECT_EQ(identifierAt(folder.path("I.app")), "wrapped");
  folder.file("J.app/Wrapper/J.app/Contents/Info.plist", infoFor("deep"));
  std::filesystem::create_symlink("Wrapper/J.app", folder.path("J.app/WrappedBundle"));
  EXPECT_EQ(identifierAt(folder.path("J.app")), "deep");
}

TEST(Bundle, readsEveryFormOfPropertyList) {
  const TemporaryFolder folder;
  const std::string place = "K.app/Contents/Info.plist";
  folder.file(place, "{ CFBundleIdentifier = \"old.style\"; }");
  EXPECT_EQ(identifierAt(folder.path("K.app")), "old.style");
  folder.file(place, *writePropertyListBinary(PropertyListDictionary{{"CFBundleIdentifier", "binary"}}));
  EXPECT_EQ(identifierAt(folder.path("K.app")), "binary");
}

TEST(Bundle, aBrokenInfoLeavesTheBundleWithoutIdentifier) {
  const TemporaryFolder folder;
  for (const std::string& broken :
       {std::string("<plist><dict>"), *writePropertyListXML(PropertyList::Array{"x"}),
        *writePropertyListXML(PropertyListDictionary{{"CFBundleIdentifier", 5}})}) {
    folder.file("L.app/Contents/Info.plist", broken);
    EXPECT_FALSE(identifierAt(folder.path("L.app")).has_value()) << broken;
  }
}

}  // namespace
}  // namespace sorrel::test
