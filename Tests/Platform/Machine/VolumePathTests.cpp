#include "SorrelFramework/Platform/Machine/VolumePath.hpp"

#include <gtest/gtest.h>

#include <string>

#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

/// A volume, and beside it a folder of this machine that does not belong to it.
class VolumePath : public testing::Test {
 protected:
  [[nodiscard]] VolumePlace place(std::string_view name, LastLink last = LastLink::Followed) const {
    return placeOnVolume(volume_.path(), volume_.path(name), last);
  }
  /// `path` below the root of the volume; all of it if it lies elsewhere.
  [[nodiscard]] std::string below(const std::string& path) const {
    return path.starts_with(volume_.path() + '/') ? path.substr(volume_.path().size() + 1) : path;
  }

  test::TemporaryVolume volume_;
  test::TemporaryFolder machine_;
};

TEST_F(VolumePath, pathThatIsThereIsKept) {
  volume_.file("Library/Caches/x", "");
  const VolumePlace found = place("Library/Caches//x");
  EXPECT_TRUE(found.exists);
  EXPECT_EQ(found.path, volume_.path("Library/Caches//x"));
  EXPECT_EQ(below(found.real), "Library/Caches/x");
}

TEST_F(VolumePath, rootItselfIsThere) {
  const VolumePlace found = placeOnVolume(volume_.path(), volume_.path(), LastLink::Followed);
  EXPECT_TRUE(found.exists);
  EXPECT_EQ(found.path, volume_.path());
}

TEST_F(VolumePath, letterCaseIsIgnoredWhereTheExactNameIsAbsent) {
  volume_.file("library/Caches/x", "");
  EXPECT_EQ(below(place("Library/caches/x").path), "library/Caches/x");
  volume_.file("Library/Caches/y", "");
  EXPECT_EQ(below(place("Library/Caches/y").path), "Library/Caches/y");
}

TEST_F(VolumePath, absoluteLinkBeginsAtTheRoot) {
  volume_.file("Data/Users/alice/x", "");
  volume_.link("Homes", "/Data/Users");
  EXPECT_EQ(below(place("Homes/alice/x").path), "Data/Users/alice/x");
  EXPECT_TRUE(place("Homes/alice/x").exists);
}

TEST_F(VolumePath, relativeLinkKeepsThePathAsItWasGiven) {
  volume_.file("Data/Users/alice/x", "");
  volume_.link("Homes", "Data/Users");
  const VolumePlace found = place("Homes/alice/x");
  EXPECT_EQ(below(found.path), "Homes/alice/x");
  EXPECT_EQ(below(found.real), "Data/Users/alice/x");
}

TEST_F(VolumePath, linkOfThisMachineLeadsNowhere) {
  machine_.file("secret", "");
  volume_.link("link", machine_.path());
  const VolumePlace found = place("link/secret");
  EXPECT_FALSE(found.exists);
  EXPECT_EQ(found.path, volume_.path() + machine_.path("secret"));
}

TEST_F(VolumePath, nothingLeadsAboveTheRoot) {
  volume_.file("Library/x", "");
  volume_.link("Users/alice/up", "../../../../../Library");
  EXPECT_EQ(below(place("Users/alice/up/x").path), "Library/x");
  EXPECT_EQ(below(place("../../Library/x").path), "Library/x");
}

TEST_F(VolumePath, targetsOfLinksMatchWithoutLetterCaseToo) {
  volume_.file("Data/x", "");
  volume_.link("link", "/data");
  EXPECT_EQ(below(place("LINK/X").path), "Data/x");
}

TEST_F(VolumePath, linkAtTheEndIsKeptOrFollowed) {
  volume_.folder("Data");
  volume_.link("link", "/Data");
  EXPECT_EQ(below(place("link", LastLink::Kept).path), "link");
  EXPECT_EQ(below(place("link/", LastLink::Kept).path), "link/");
  EXPECT_EQ(below(place("link", LastLink::Followed).path), "Data");
}

TEST_F(VolumePath, loopOfLinksLeadsNowhere) {
  volume_.link("a", "/b");
  volume_.link("b", "/a");
  EXPECT_FALSE(place("a").exists);
  EXPECT_TRUE(place("a", LastLink::Kept).exists);
}

TEST_F(VolumePath, pathThatLeadsNowhereIsKept) {
  volume_.file("Library/file", "");
  for (const char* const name : {"library/none", "Library/file/x", "none/none"}) {
    EXPECT_FALSE(place(name).exists) << name;
    EXPECT_EQ(below(place(name).path), name);
  }
}

TEST_F(VolumePath, namesComeInByteOrder) {
  for (const char* const name : {"top/b", "top/B", "top/a"}) volume_.file(name, "");
  EXPECT_EQ(namesIn(volume_.path("top")), (std::vector<std::string>{"B", "a", "b"}));
  EXPECT_TRUE(namesIn(volume_.path("none")).empty());
}

}  // namespace
}  // namespace sorrel
