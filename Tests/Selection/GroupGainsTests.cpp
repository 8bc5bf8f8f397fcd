// The bytes that the removal of one of several equal files would free.
#include "SorrelFramework/Selection/GroupGains.hpp"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "Tests/Support/CleanKit.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/LoopFileSystem.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

namespace fs = std::filesystem;
using test::operator""_KiB;
using Names = std::vector<std::string>;
/// "BYTES NOTE" of each member; paths in notes begin below the volume.
using Gains = std::vector<std::string>;

class GroupGains : public testing::Test {
 protected:
  /// For a group of members whose records have a size of 100 bytes.
  [[nodiscard]] Gains of(const Names& members) const {
    std::vector<Ref<FileInformation>> records;
    for (const std::string& member : members) {
      records.push_back(test::makeRecord({.url = volume_.url(member), .size = 100}));
    }
    const auto header = test::makeRecord({.url = URL(), .childrens = records});
    Gains gains;
    const std::string above = volume_.path() + '/';
    for (const Gain& gain : gainsOf(*header)) {
      std::string text = std::to_string(gain.bytes) + ' ' + gain.note;
      if (const std::size_t at = text.find(above); at != std::string::npos) text.erase(at, above.size());
      gains.push_back(text);
    }
    return gains;
  }
  void makeFiles(const Names& names) const {
    for (const std::string& name : names) volume_.file(name, "same");
  }
  void hardLink(const std::string& from, const std::string& to) const {
    fs::create_hard_link(volume_.path(from), volume_.path(to));
  }
  [[nodiscard]] bool clone(const std::string& from, const std::string& to) const {
    return test::cloneFile(volume_.path(from), volume_.path(to));
  }
  /// Compares the gains in a child, after `make` has made files on a file system with clones at "disk".
  void expectWithClones(const std::function<bool()>& make, const Names& members, const Gains& gains) {
    const std::string told = test::inMountingChild([&]() -> std::string {
      const test::LoopFileSystem btrfs("btrfs", volume_.path("image"), volume_.path("disk"));
      if (!btrfs.isMounted()) return "skip";
      return make() ? textOf(of(members)) : "no files could be made";
    });
    if (told == "skip") GTEST_SKIP() << "no btrfs, no loop device or no right to mount";
    EXPECT_EQ(told, textOf(gains));
  }
  static std::string textOf(const Gains& gains) {
    std::string text;
    for (const std::string& gain : gains) text += gain + '\n';
    return text;
  }

  test::TemporaryVolume volume_;
};

TEST_F(GroupGains, memberThatSharesNothingFreesItsSize) {
  makeFiles({"a", "b"});
  EXPECT_EQ(of({"a", "b"}), Gains({"100 ", "100 "}));
}

TEST_F(GroupGains, groupWithoutMembersHasNone) { EXPECT_EQ(of({}), Gains()); }

TEST_F(GroupGains, memberThatIsGoneFreesNothingAndIsNobodysFirst) {
  makeFiles({"c"});
  hardLink("c", "d");
  EXPECT_EQ(of({"a", "b", "c", "d"}),
            Gains({"0 gone", "0 gone", "0 has other hard links", "0 hard link of c"}));
}

TEST_F(GroupGains, ofHardLinksEachNamesTheFirstOne) {
  makeFiles({"a", "d"});
  hardLink("a", "b");
  hardLink("a", "c");
  EXPECT_EQ(of({"a", "b", "d", "c"}),
            Gains({"0 has other hard links", "0 hard link of a", "100 ", "0 hard link of a"}));
}

TEST_F(GroupGains, hardLinkOutsideTheGroupKeepsTheBytesToo) {
  makeFiles({"a", "b"});
  hardLink("a", "outside");
  EXPECT_EQ(of({"a", "b"}), Gains({"0 has other hard links", "100 "}));
}

TEST_F(GroupGains, memberByAnotherPathIsTheSameFile) {
  makeFiles({"one/a", "one/b"});
  volume_.link("two", "one");
  EXPECT_EQ(of({"one/a", "two/a", "two/b"}), Gains({"100 ", "0 the same file as one/a", "100 "}));
}

TEST_F(GroupGains, linkIsAFileOfItsOwn) {
  makeFiles({"a"});
  volume_.link("b", "a");
  volume_.link("broken", "none");
  EXPECT_EQ(of({"a", "b", "broken"}), Gains({"100 ", "100 ", "100 "}));
}

TEST_F(GroupGains, folderFreesItsSizeAndTellsOfHiddenItemsAtAnyDepth) {
  makeFiles({"one/x", "two/deep/er/.hidden", "three/.folder/x"});
  const std::string hidden = "100 hidden items in it were not compared";
  EXPECT_EQ(of({"one/", "two/", "three/"}), Gains({"100 ", hidden, hidden}));
}

TEST_F(GroupGains, filesOfOneNumberOnTwoFileSystemsAreTwo) {
  const std::string told = test::inMountingChild([this]() -> std::string {
    std::vector<ino_t> numbers;
    for (const std::string place : {"one", "two"}) {
      if (::mount("tmpfs", volume_.folder(place).c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
      struct stat status {};
      if (::lstat(volume_.file(place + "/a", "same").c_str(), &status) != 0) return "no file";
      numbers.push_back(status.st_ino);
    }
    return numbers[0] == numbers[1] ? textOf(of({"one/a", "two/a"})) : "skip";
  });
  if (told == "skip") GTEST_SKIP() << "no mounting here, or no two files of one number";
  EXPECT_EQ(told, textOf({"100 ", "100 "}));
}

TEST_F(GroupGains, ofClonesEachNamesTheFirstOne) {
  const auto make = [this] {
    volume_.filledFile("disk/a", 64_KiB);
    volume_.filledFile("disk/b", 64_KiB, 2);
    return clone("disk/a", "disk/c") && clone("disk/a", "disk/d");
  };
  expectWithClones(make, {"disk/b", "disk/a", "disk/c", "disk/d"},
                   {"100 ", "0 has clones", "0 clone of disk/a", "0 clone of disk/a"});
}

TEST_F(GroupGains, cloneOutsideTheGroupKeepsTheBytesToo) {
  const auto make = [this] {
    volume_.filledFile("disk/a", 64_KiB);
    return clone("disk/a", "disk/outside");
  };
  expectWithClones(make, {"disk/a"}, {"0 shares all of it with other files"});
}

TEST_F(GroupGains, hardLinkOfACloneIsNoCloneOfItsOwn) {
  const auto make = [this] {
    volume_.filledFile("disk/a", 64_KiB);
    if (!clone("disk/a", "disk/outside")) return false;
    hardLink("disk/a", "disk/b");
    return true;
  };
  expectWithClones(make, {"disk/a", "disk/b"},
                   {"0 shares all of it with other files, has other hard links", "0 hard link of disk/a"});
}

TEST_F(GroupGains, filesThatShareBlocksWithOthersFreeTheRestAndAreNoClones) {
  const auto make = [this] {
    for (const std::string name : {"disk/a", "disk/b"}) {
      const std::string path = volume_.filledFile(name, 64_KiB, name == "disk/a" ? 1 : 2);
      if (!test::cloneFile(path, path + "'")) return false;
      std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
      file.seekp(8192);
      if (!file.write(std::string(4096, 'x').data(), 4096).flush()) return false;
    }
    hardLink("disk/b", "disk/outside");
    return true;
  };
  expectWithClones(
      make, {"disk/a", "disk/b"},
      {"4096 shares 60.0 KiB with other files", "0 shares 60.0 KiB with other files, has other hard links"});
}

}  // namespace
}  // namespace sorrel
