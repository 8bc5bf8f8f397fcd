#include "SorrelFramework/Platform/Items/DesktopEntry.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

class DesktopEntry : public testing::Test {
 protected:
  [[nodiscard]] std::optional<std::string> nameIn(std::string_view content) const {
    return desktopEntryName(volume_.file("a.desktop", content));
  }
  /// A whole entry of `size` bytes.
  static std::string entryOfSize(std::size_t size) {
    std::string text = "[Desktop Entry]\nName=Long\n#";
    text.resize(size, 'x');
    return text;
  }

  test::TemporaryVolume volume_;
  test::ScopedVariable language_{"LANGUAGE", "de_AT:de"};
  test::ScopedVariable locale_{"LC_ALL", "C.UTF-8"};
};

TEST_F(DesktopEntry, nameIsThatOfTheEntry) {
  EXPECT_EQ(nameIn("# a comment\n[Desktop Entry]\nType=Application\nName=Files\nExec=files %U\n"), "Files");
}

TEST_F(DesktopEntry, nameIsTakenInTheLanguageOfTheProcess) {
  constexpr std::string_view entry =
      "[Desktop Entry]\nName=Files\nName[fr]=Fichiers\nName[de]=Dateien\nName[de_CH]=Files CH\n";
  EXPECT_EQ(nameIn(entry), "Dateien");
  const test::ScopedVariable other("LANGUAGE", "fr");
  EXPECT_EQ(nameIn(entry), "Fichiers");
  const test::ScopedVariable unknown("LANGUAGE", "nl");
  EXPECT_EQ(nameIn(entry), "Files");
}

TEST_F(DesktopEntry, namesOfOtherGroupsDoNotCount) {
  EXPECT_EQ(nameIn("[Desktop Entry]\nType=Application\n[Desktop Action new]\nName=New Window\n"),
            std::nullopt);
  EXPECT_EQ(nameIn("[Desktop Entry]\nName=Files\n[Desktop Action new]\nName=New Window\n"), "Files");
}

TEST_F(DesktopEntry, anythingWrongGivesNothing) {
  EXPECT_EQ(nameIn(""), std::nullopt);
  EXPECT_EQ(nameIn("Name=Files\n"), std::nullopt);
  EXPECT_EQ(nameIn("[Desktop Entry]\nName=\n"), std::nullopt);
  EXPECT_EQ(nameIn("[Desktop Entry]\nName=Files\nnonsense\n"), std::nullopt);
  EXPECT_EQ(nameIn("[Desktop Entry]\nName=\xFF\xFE\n"), std::nullopt);
  EXPECT_EQ(nameIn(std::string_view("\0\0\0\0", 4)), std::nullopt);
}

TEST_F(DesktopEntry, fileOfMoreThan64KiBIsNotRead) {
  EXPECT_EQ(nameIn(entryOfSize(std::size_t{64} * 1024)), "Long");
  EXPECT_EQ(nameIn(entryOfSize(std::size_t{64} * 1024 + 1)), std::nullopt);
}

TEST_F(DesktopEntry, linksAreNotFollowedAndOnlyFilesAreRead) {
  volume_.file("real", "[Desktop Entry]\nName=Files\n");
  EXPECT_EQ(desktopEntryName(volume_.path("real")), "Files");
  EXPECT_EQ(desktopEntryName(volume_.link("link.desktop", "real")), std::nullopt);
  EXPECT_EQ(desktopEntryName(volume_.fifo("pipe.desktop")), std::nullopt);
  EXPECT_EQ(desktopEntryName(volume_.folder("folder.desktop")), std::nullopt);
  EXPECT_EQ(desktopEntryName(volume_.path("missing.desktop")), std::nullopt);
  EXPECT_EQ(desktopEntryName(volume_.path("real") + std::string(1, '\0') + ".desktop"), std::nullopt);
}

TEST_F(DesktopEntry, fileIsClosedAgain) {
  const std::size_t before = test::openDescriptors();
  EXPECT_EQ(nameIn("[Desktop Entry]\nName=Files\n"), "Files");
  EXPECT_EQ(nameIn("broken"), std::nullopt);
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(DesktopEntry, entriesAreToldByTheirNames) {
  EXPECT_TRUE(isDesktopEntryName("a.desktop"));
  EXPECT_TRUE(isDesktopEntryName(".desktop"));
  EXPECT_FALSE(isDesktopEntryName("desktop"));
  EXPECT_FALSE(isDesktopEntryName("a.desktop~"));
  EXPECT_FALSE(isDesktopEntryName("a.DESKTOP"));
}

}  // namespace
}  // namespace sorrel
