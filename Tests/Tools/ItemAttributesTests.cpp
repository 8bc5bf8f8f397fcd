#include "Tools/ItemAttributes.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::tools {
namespace {

using test::operator""_KiB;

class ItemAttributes : public testing::Test {
 protected:
  std::string value(const std::string& name, std::string_view attribute) {
    const auto all = itemAttributes(volume.path(name));
    if (!all) return "no item";
    const auto found = std::ranges::find(*all, attribute, &ItemAttribute::name);
    return found == all->end() ? "no line" : found->value;
  }

  test::TemporaryVolume volume;
};

TEST_F(ItemAttributes, fileTellsSizeTypeKindAndDates) {
  volume.filledFile("a.png", 12_KiB);
  volume.setModified("a.png", 1'592'445'728);
  EXPECT_EQ(value("a.png", "kMDItemFSSize"), "12288");
  EXPECT_EQ(value("a.png", "kMDItemLogicalSize"), "12288");
  EXPECT_GE(std::stoll(value("a.png", "kMDItemPhysicalSize")), 12288);
  EXPECT_EQ(value("a.png", "kMDItemContentType"), "\"public.png\"");
  EXPECT_EQ(value("a.png", "kMDItemContentTypeTree"),
            "(\n    \"public.png\",\n    \"public.image\",\n    \"public.data\",\n    \"public.item\",\n    "
            "\"public.content\"\n)");
  EXPECT_EQ(value("a.png", "kMDItemKind"), "\"PNG image\"");
  EXPECT_EQ(value("a.png", "kMDItemContentModificationDate"), "2020-06-18 02:02:08 +0000");
  EXPECT_EQ(value("a.png", "kMDItemFSContentChangeDate"), "2020-06-18 02:02:08 +0000");
  EXPECT_EQ(value("a.png", "kMDItemFSNodeCount"), "(null)");
  EXPECT_EQ(value("a.png", "kMDItemFSOwnerUserID"), std::to_string(::geteuid()));
}

TEST_F(ItemAttributes, sizeOfAPackageIsThatOfAllFilesInIt) {
  volume.file("A.app/Contents/a", 5_KiB);
  volume.file("A.app/Contents/.b", 2_KiB);
  EXPECT_EQ(value("A.app", "kMDItemFSSize"), "7168");
  EXPECT_EQ(value("A.app", "kMDItemFSNodeCount"), "1");
  EXPECT_EQ(value("A.app/Contents", "kMDItemFSNodeCount"), "2");
  EXPECT_EQ(value("A.app", "kMDItemContentType"), "\"com.apple.application-bundle\"");
  EXPECT_EQ(value("A.app", "kMDItemKind"), "\"Application\"");
  EXPECT_EQ(value("A.app", "kMDItemPhysicalSize"), "(null)");
}

TEST_F(ItemAttributes, linkTellsAboutItself) {
  volume.file("A.app/a", 5_KiB);
  volume.link("link", "A.app");
  EXPECT_EQ(value("link", "kMDItemFSSize"), "5");
  EXPECT_EQ(value("link", "kMDItemContentType"), "\"public.symlink\"");
}

TEST_F(ItemAttributes, linesAreSortedByName) {
  volume.file("a");
  EXPECT_TRUE(std::ranges::is_sorted(itemAttributes(volume.path("a")).value(), {}, &ItemAttribute::name));
}

TEST_F(ItemAttributes, noValueHoldsTheName) {
  const std::string name = "kMDItemFSSize = 1.app";
  volume.file(name + "/a", 5_KiB);
  const auto all = itemAttributes(volume.path(name));
  for (const ItemAttribute& attribute : all.value()) {
    EXPECT_EQ(attribute.value.find("kMDItem"), std::string::npos) << attribute.name;
  }
}

TEST_F(ItemAttributes, lastUseStandsAmongTheLinesOnlyIfItIsKnown) {
  volume.folder("A.app");
  EXPECT_EQ(value("A.app", "kMDItemLastUsedDate"), "no line");
  volume.script("tool", "true");
  const timespec times[] = {{4'102'444'800, 0}, {0, UTIME_OMIT}};
  ASSERT_EQ(::utimensat(AT_FDCWD, volume.path("tool").c_str(), times, 0), 0);
  Host::install(Host::linuxDesktop({}));
  EXPECT_EQ(value("tool", "kMDItemLastUsedDate"), "2100-01-01 00:00:00 +0000");
  EXPECT_TRUE(std::ranges::is_sorted(itemAttributes(volume.path("tool")).value(), {}, &ItemAttribute::name));
}

TEST_F(ItemAttributes, nothingIsKnownOfAMissingItem) {
  EXPECT_FALSE(itemAttributes(volume.path("missing")).has_value());
}

}  // namespace
}  // namespace sorrel::tools
