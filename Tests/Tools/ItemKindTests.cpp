#include "Tools/ItemKind.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace sorrel::tools {
namespace {

TEST(ItemKind, kindsAreThoseOfMacOS) {
  const std::pair<const char*, const char*> kinds[] = {
      {"a.jpg", "JPEG image"},  {"a.JPG", "JPEG image"},   {"a.png", "PNG image"},
      {"a.heic", "HEIF Image"}, {"a.heif", "HEIF Image"},  {"a.dmg", "Disk Image"},
      {"a.iso", "Disk Image"},  {"a.img", "Disk Image"},   {"a.pdf", "PDF document"},
      {"a.zip", "ZIP archive"}, {"a.mp4", "MPEG-4 movie"}, {"a.mp3", "MP3 audio"},
      {"README", "Document"},   {".jpg", "Document"},
  };
  for (const auto& [name, kind] : kinds) EXPECT_EQ(itemKind(name, false), kind) << name;
}

TEST(ItemKind, foldersAndPackagesHaveTheirOwn) {
  EXPECT_EQ(itemKind("a", true), "Folder");
  EXPECT_EQ(itemKind("a.jpg", true), "Folder");
  EXPECT_EQ(itemKind("a.framework", true), "Folder");
  EXPECT_EQ(itemKind("A.app", true), "Application");
  EXPECT_EQ(itemKind("My.photoslibrary", true), "Photos Library");
  EXPECT_EQ(itemKind("a.pvm", true), "Package");
}

TEST(ItemKind, everyOtherImageIsCalledOne) {
  for (const char* name :
       {"a.gif", "a.webp", "a.tif", "a.bmp", "a.svg", "a.psd", "a.dng", "a.cr2", "a.nef"}) {
    EXPECT_NE(itemKind(name, false).find("image"), std::string::npos) << name << itemKind(name, false);
  }
}

}  // namespace
}  // namespace sorrel::tools
