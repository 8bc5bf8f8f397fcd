#include "SorrelFramework/Platform/Items/ResourceValues.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <string>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

using test::operator""_B;  // NOLINT(misc-unused-using-decls): clang-tidy overlooks literals

constexpr ResourceKeys kAll = ResourceKeys(NSURLLocalizedNameKey) | NSURLFileSizeKey | NSURLEffectiveIconKey |
                              NSURLIsDirectoryKey | NSURLIsPackageKey | NSURLIsRegularFileKey |
                              NSURLIsHiddenKey | NSURLCreationDateKey | NSURLContentModificationDateKey |
                              NSURLLocalizedTypeDescriptionKey | NSURLPathKey;

class ResourceValuesTest : public testing::Test {
 protected:
  [[nodiscard]] ResourceValues valuesOf(std::string_view name, ResourceKeys keys = kAll) const {
    const auto values = resourceValues(volume_.url(name), keys);
    EXPECT_TRUE(values) << name;
    return values.value_or(ResourceValues());
  }
  test::TemporaryVolume volume_;
};

TEST_F(ResourceValuesTest, keyThatIsNotAskedForIsAbsent) {
  volume_.file("a", 10_B);
  const ResourceValues none = valuesOf("a", {});
  EXPECT_FALSE(none.localizedName || none.fileSize || none.effectiveIcon || none.isDirectory ||
               none.isPackage || none.isRegularFile || none.isHidden || none.creationDate ||
               none.contentModificationDate || none.localizedTypeDescription || none.path);
}

TEST_F(ResourceValuesTest, eachKeyFillsItsOwnValueOnly) {
  volume_.file("a", 10_B);
  const auto count = [](const ResourceValues& values) {
    return std::ranges::count(
        std::array{values.localizedName.has_value(), values.fileSize.has_value(),
                   values.effectiveIcon.has_value(), values.isDirectory.has_value(),
                   values.isPackage.has_value(), values.isRegularFile.has_value(),
                   values.isHidden.has_value(), values.contentModificationDate.has_value(),
                   values.localizedTypeDescription.has_value(), values.path.has_value()},
        true);
  };
  for (const ResourceKey key :
       {NSURLLocalizedNameKey, NSURLFileSizeKey, NSURLEffectiveIconKey, NSURLIsDirectoryKey,
        NSURLIsPackageKey, NSURLIsRegularFileKey, NSURLIsHiddenKey, NSURLContentModificationDateKey,
        NSURLLocalizedTypeDescriptionKey, NSURLPathKey}) {
    EXPECT_EQ(count(valuesOf("a", key)), 1) << key;
  }
  EXPECT_EQ(count(valuesOf("a", NSURLCreationDateKey)), 0);
}

TEST_F(ResourceValuesTest, regularFile) {
  volume_.file("a.txt", 1234_B);
  volume_.setModified("a.txt", 86400);
  const ResourceValues values = valuesOf("a.txt");
  EXPECT_EQ(values.localizedName, "a.txt");
  EXPECT_EQ(values.fileSize, 1234);
  EXPECT_EQ(values.isDirectory, false);
  EXPECT_EQ(values.isRegularFile, true);
  EXPECT_EQ(values.isPackage, false);
  EXPECT_EQ(values.isHidden, false);
  EXPECT_EQ(values.contentModificationDate, Date{86400});
  EXPECT_EQ(values.path, volume_.path("a.txt"));
  ASSERT_TRUE(values.effectiveIcon);
  EXPECT_EQ(values.effectiveIcon->filePath(), volume_.path("a.txt"));
  EXPECT_FALSE(values.localizedTypeDescription.value_or("").empty());
}

TEST_F(ResourceValuesTest, folderHasNoFileSizeAndNoSlashBehindItsPath) {
  volume_.folder("folder");
  const ResourceValues values = valuesOf("folder/");
  EXPECT_EQ(values.fileSize, std::nullopt);
  EXPECT_EQ(values.isDirectory, true);
  EXPECT_EQ(values.isRegularFile, false);
  EXPECT_EQ(values.isPackage, false);
  EXPECT_EQ(values.path, volume_.path("folder"));
}

TEST_F(ResourceValuesTest, emptyFileHasTheSizeZero) {
  volume_.file("a", "");
  EXPECT_EQ(valuesOf("a").fileSize, 0);
}

TEST_F(ResourceValuesTest, linkIsNeitherFileNorFolderAndHasItsOwnLength) {
  volume_.folder("target.app");
  volume_.link("link.app", "target.app");
  const ResourceValues values = valuesOf("link.app");
  EXPECT_EQ(values.isDirectory, false);
  EXPECT_EQ(values.isRegularFile, false);
  EXPECT_EQ(values.isPackage, false);
  EXPECT_EQ(values.fileSize, 10);
  EXPECT_EQ(values.localizedName, "link.app");
}

TEST_F(ResourceValuesTest, brokenLinkHasValues) {
  volume_.link("link", "nowhere");
  EXPECT_EQ(valuesOf("link").fileSize, 7);
}

TEST_F(ResourceValuesTest, slashBehindALinkDoesNotLeadToItsTarget) {
  volume_.folder("target");
  volume_.link("link", "target");
  EXPECT_EQ(valuesOf("link/").isDirectory, false);
}

TEST_F(ResourceValuesTest, fifoIsNotARegularFile) {
  volume_.fifo("pipe");
  EXPECT_EQ(valuesOf("pipe").isRegularFile, false);
  EXPECT_EQ(valuesOf("pipe").isDirectory, false);
}

TEST_F(ResourceValuesTest, packagesAreFoldersOfThatName) {
  volume_.folder("Tool.app");
  volume_.folder("Pictures.PHOTOSLIBRARY");
  volume_.folder("Core.framework");
  volume_.folder("de.lproj");
  volume_.file("File.app", "");
  EXPECT_EQ(valuesOf("Tool.app/").isPackage, true);
  EXPECT_EQ(valuesOf("Pictures.PHOTOSLIBRARY/").isPackage, true);
  EXPECT_EQ(valuesOf("Core.framework/").isPackage, false);
  EXPECT_EQ(valuesOf("de.lproj/").isPackage, false);
  EXPECT_EQ(valuesOf("File.app").isPackage, false);
}

TEST_F(ResourceValuesTest, applicationShowsWithoutItsExtension) {
  volume_.folder("Tool.app");
  volume_.folder("Other.APP");
  volume_.folder(".app");
  volume_.folder("Plug.bundle");
  volume_.file("File.app", "");
  EXPECT_EQ(valuesOf("Tool.app/").localizedName, "Tool");
  EXPECT_EQ(valuesOf("Other.APP/").localizedName, "Other");
  EXPECT_EQ(valuesOf(".app/").localizedName, ".app");
  EXPECT_EQ(valuesOf("Plug.bundle/").localizedName, "Plug.bundle");
  EXPECT_EQ(valuesOf("File.app").localizedName, "File.app");
}

class StarterNames : public ResourceValuesTest {
 protected:
  StarterNames() { Host::install(Host::linuxDesktop({})); }
  ~StarterNames() override { Host::install(Host::linuxDesktop({})); }
  static constexpr std::string_view kEntry = "[Desktop Entry]\nType=Application\nName=Text Editor\n";
};

TEST_F(StarterNames, starterOfTheDesktopShowsItsOwnName) {
  volume_.file("org.example.Editor.desktop", kEntry);
  EXPECT_EQ(valuesOf("org.example.Editor.desktop").localizedName, "Text Editor");
}

TEST_F(StarterNames, starterOnAMacVolumeIsAFileLikeAnyOther) {
  volume_.file("a.desktop", kEntry);
  volume_.install();
  EXPECT_EQ(valuesOf("a.desktop").localizedName, "a.desktop");
}

TEST_F(StarterNames, nameThatIsNoStartersKeepsItsFileName) {
  volume_.file("a.desktop.txt", kEntry);
  volume_.file("desktop", kEntry);
  EXPECT_EQ(valuesOf("a.desktop.txt").localizedName, "a.desktop.txt");
  EXPECT_EQ(valuesOf("desktop").localizedName, "desktop");
}

TEST_F(StarterNames, whatIsNoEntryShowsItsFileName) {
  volume_.file("broken.desktop", "Name=Text Editor\n");
  volume_.file("real", kEntry);
  volume_.link("link.desktop", "real");
  volume_.fifo("pipe.desktop");
  volume_.folder("folder.desktop");
  volume_.file("a\xFF.desktop", "");
  for (const char* name : {"broken.desktop", "link.desktop", "pipe.desktop", "folder.desktop"}) {
    EXPECT_EQ(valuesOf(name).localizedName, name);
  }
  EXPECT_EQ(valuesOf("a\xFF.desktop").localizedName, "a\xEF\xBF\xBD.desktop");
}

TEST_F(StarterNames, starterIsNotOpenedUnlessItsNameIsAskedFor) {
  FileStatus status;
  status.mode = S_IFREG | 0644;
  const std::string path = volume_.file("a.desktop", kEntry);
  const URL url = URL::fileURL(path, false);
  EXPECT_EQ(resourceValues(url, NSURLLocalizedNameKey, "a.desktop", status).localizedName, "Text Editor");
  EXPECT_EQ(resourceValues(url, NSURLFileSizeKey, "a.desktop", status).localizedName, std::nullopt);
}

TEST_F(ResourceValuesTest, bytesThatAreNoUTF8ShowAsReplacementCharacters) {
  volume_.file("a\xFF.txt", "");
  const ResourceValues values = valuesOf("a\xFF.txt");
  EXPECT_EQ(values.localizedName, "a\xEF\xBF\xBD.txt");
  EXPECT_EQ(values.path, volume_.path("a\xFF.txt"));
}

TEST_F(ResourceValuesTest, hiddenNamesBeginWithADot) {
  volume_.file(".hidden", "");
  volume_.file("not.hidden", "");
  EXPECT_EQ(valuesOf(".hidden").isHidden, true);
  EXPECT_EQ(valuesOf("not.hidden").isHidden, false);
}

TEST_F(ResourceValuesTest, creationDateIsThatOfTheFileSystem) {
  volume_.file("a", "");
  volume_.setModified("a", 86400);
  const auto created = statusOf(volume_.path("a"))->created;
  EXPECT_EQ(valuesOf("a").creationDate, created);
  EXPECT_NE(created, Date{86400});
}

TEST_F(ResourceValuesTest, missingItemGivesNothing) {
  EXPECT_FALSE(resourceValues(volume_.url("none"), kAll));
  EXPECT_FALSE(resourceValues(volume_.url("none"), {}));
}

TEST_F(ResourceValuesTest, urlThatIsNoFileGivesNothing) {
  EXPECT_FALSE(resourceValues(*URL::parse("https://example.org/"), kAll));
  volume_.file("a", "");
  EXPECT_FALSE(resourceValues(*URL::parse(volume_.path("a")), kAll));
}

TEST_F(ResourceValuesTest, knownStatusIsNotAskedForAgain) {
  FileStatus status;
  status.mode = 0100644;
  status.size = 42;
  const ResourceValues values = resourceValues(volume_.url("none"), kAll, "none", status);
  EXPECT_EQ(values.fileSize, 42);
  EXPECT_EQ(values.isRegularFile, true);
  EXPECT_EQ(values.creationDate, std::nullopt);
}

TEST(ResourceKeys, setsUniteAndCompare) {
  constexpr ResourceKeys keys = NSURLFileSizeKey | NSURLPathKey;
  static_assert(keys.contains(NSURLFileSizeKey) && keys.contains(NSURLPathKey));
  static_assert(!keys.contains(NSURLIsHiddenKey));
  EXPECT_EQ(keys | NSURLFileSizeKey, keys);
  EXPECT_FALSE(keys == ResourceKeys());
}

}  // namespace
}  // namespace sorrel
