#include "Helper/MoveOperation.hpp"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <functional>

#include "Tests/Helper/EventKit.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TreeRemoval.hpp"

namespace sorrel::helper {
namespace {

constexpr const char* kItem = "Library/Spotlight/Notes.mdimporter";
constexpr const char* kOff = "Library/Spotlight Disabled/Notes.mdimporter";

/// Each test works in a child, on a volume of its own that is mounted at "volume": an ordinary folder is not
/// a volume.
class MoveOperationTest : public test::EventKit {
 protected:
  static std::string textOf(const PathResult& result) {
    if (result.isSuccess()) return "moved";
    if (result.status != HelperEventErrorID::MoveFail) return "another status";
    return result.desc.starts_with(kRefusedItemText) ? "refused" : result.desc;
  }
  [[nodiscard]] std::string at(const std::string& name) const { return volume.path("volume/" + name); }
  [[nodiscard]] std::string make(const std::string& name) const {
    return volume.file("volume/" + name + "/Contents/Info.plist", "x"), at(name);
  }
  [[nodiscard]] std::string move(const std::string& source, const std::string& target) const {
    return movePaths(at(source), at(target));
  }
  [[nodiscard]] std::string movePaths(const std::string& source, const std::string& target) const {
    return textOf(movePath(source, target, viewOf(source), RemovalPolicy::forHelper(caller)));
  }
  [[nodiscard]] std::string there(const std::string& name) const { return isThere(at(name)) ? name : "-"; }

  /// The result of the test, on a volume with one extension.
  std::string onVolume(const std::function<std::string()>& work) {
    return test::inMountingChild([&]() -> std::string {
      ::umask(077);
      const std::string point = volume.folder("volume");
      if (::mount("volume", point.c_str(), "tmpfs", 0, "mode=755") != 0) return "skip";
      for (const char* folder : {"Library", "Library/Spotlight", "Library/PreferencePanes"}) {
        if (::mkdir(at(folder).c_str(), 0755) != 0 || ::chmod(at(folder).c_str(), 0755) != 0) return "mkdir";
      }
      static_cast<void>(make(kItem));
      return work();
    });
  }
  void expectOnVolume(const std::string& expected, const std::function<std::string()>& work) {
    const std::string told = onVolume(work);
    if (told == "skip") GTEST_SKIP() << "nothing can be mounted here";
    EXPECT_EQ(told, expected);
  }
  /// Refused, and everything unchanged.
  void expectRefused(const std::function<std::string()>& work, const std::function<void()>& prepare = {}) {
    expectOnVolume("refused, unchanged", [&] {
      if (prepare) prepare();
      const auto before = test::snapshotOf(at(""));
      const std::string told = work();
      return told + (test::snapshotOf(at("")) == before ? ", unchanged" : ", changed");
    });
  }
};

TEST_F(MoveOperationTest, anExtensionIsSwitchedOffAndOnAgain) {
  expectOnVolume(std::string("moved - ") + kOff + ", moved " + kItem + " -", [&] {
    std::string told = move(kItem, kOff);
    told += " " + there(kItem) + " " + there(kOff);
    told += ", " + move(kOff, kItem);
    return told + " " + there(kItem) + " " + there(kOff);
  });
}

TEST_F(MoveOperationTest, everyRowOfTheTableMovesBothWays) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"Spotlight", "a.mdimporter"}, {"PreferencePanes", "a.prefPane"}, {"Internet Plug-Ins", "a.plugin"}};
  for (const auto& row : rows) {
    const std::string place = "Library/" + row.first;
    const std::string on = place + "/" + row.second;
    const std::string off = place + " Disabled/" + row.second;
    expectOnVolume("moved moved", [&] {
      ::mkdir(at(place).c_str(), 0755);
      ::chmod(at(place).c_str(), 0755);
      static_cast<void>(make(on));
      const std::string first = move(on, off);
      return first + " " + move(off, on);
    });
  }
}

TEST_F(MoveOperationTest, theFolderOfTheDisabledIsMadeForAllToRead) {
  expectOnVolume("moved 40755 0", [&] {
    const std::string told = move(kItem, kOff);
    struct stat status {};
    if (::lstat(at("Library/Spotlight Disabled").c_str(), &status) != 0) return std::string("none");
    std::string mode(16, '\0');
    mode.resize(static_cast<std::size_t>(::snprintf(mode.data(), mode.size(), "%o", status.st_mode)));
    return told + " " + mode + " " + std::to_string(status.st_uid);
  });
}

TEST_F(MoveOperationTest, theTargetMayHaveANumberInItsName) {
  expectOnVolume("moved", [&] { return move(kItem, "Library/Spotlight Disabled/Notes 2.mdimporter"); });
}

TEST_F(MoveOperationTest, move_never_replaces) {
  expectOnVolume("Couldn’t be moved: File exists " + std::string(kItem) + " " + kOff, [&] {
    ::mkdir(at("Library/Spotlight Disabled").c_str(), 0755);
    ::chmod(at("Library/Spotlight Disabled").c_str(), 0755);
    static_cast<void>(volume.file("volume/" + std::string(kOff), "other"));
    const std::string told = move(kItem, kOff);
    return told + " " + there(kItem) + " " + there(kOff);
  });
}

TEST_F(MoveOperationTest, move_to_cron_d_refused) {
  for (const char* target : {"/etc/cron.d/job", "/etc/cron.d/job.mdimporter", "/etc/sudoers.d/x.plugin"}) {
    expectRefused([&] { return movePaths(at(kItem), target); });
    EXPECT_FALSE(isThere(target));
  }
}

TEST_F(MoveOperationTest, move_source_swapped) {
  expectRefused([&] {
    const SenderView before = viewOf(at(kItem));
    const SenderView other{SenderView::Kind::Present, before.device, before.inode + 1};
    return textOf(movePath(at(kItem), at(kOff), other, RemovalPolicy::forHelper(caller)));
  });
}

TEST_F(MoveOperationTest, onlyAPairOfTheTableIsMovedBetween) {
  const std::vector<std::pair<std::string, std::string>> pairs = {
      {kItem, kItem},
      {kItem, "Library/Spotlight/Other.mdimporter"},
      {kItem, "Library/PreferencePanes Disabled/Notes.mdimporter"},
      {kItem, "Library/PreferencePanes Disabled/Notes.prefPane"},
      {kItem, "Library/Spotlight Disabled/Notes.plugin"},
      {kItem, "Library/Spotlight Disabled/Notes.mdimporter/x"},
      {kItem, "Library/Spotlight Disabled/sub/Notes.mdimporter"},
      {kItem, "Library/Spotlight Disabled"},
      {kItem, "Library/Spotlight Disabled/../Spotlight Disabled/Notes.mdimporter"},
      {kItem, "Library/Spotlight disabled/Notes.mdimporter"},
      {kItem, "Library/Spotlight Disabled Disabled/Notes.mdimporter"},
      {kItem, "Other/Spotlight Disabled/Notes.mdimporter"},
      {kItem, "sub/Library/Spotlight Disabled/Notes.mdimporter"},
      {"Library/Spotlight/Notes.mdimporter/Contents", kOff},
      {"Library/Spotlight", kOff}};
  for (const auto& pair : pairs) {
    SCOPED_TRACE(pair.second);
    expectRefused([&] { return move(pair.first, pair.second); });
  }
  for (const std::string& target : {std::string(), std::string("relative.mdimporter"), std::string("/"),
                                    std::string("Library/Spotlight Disabled/Notes.mdimporter")}) {
    expectRefused([&] { return movePaths(at(kItem), target); });
  }
}

TEST_F(MoveOperationTest, theSourceMustBeOfTheTableToo) {
  expectRefused([&] { return move("Library/Spotlight/Notes.txt", kOff); },
                [&] { static_cast<void>(volume.file("volume/Library/Spotlight/Notes.txt", "x")); });
  expectRefused([&] { return movePaths("/etc/passwd", at(kOff)); });
}

TEST_F(MoveOperationTest, aFolderThatIsNoVolumeIsRefused) {
  const auto prepare = [&] {
    for (const char* folder : {"plain", "plain/Library", "plain/Library/Spotlight"}) {
      ::mkdir(at(folder).c_str(), 0755);
    }
    static_cast<void>(make("plain/Library/Spotlight/a.mdimporter"));
  };
  expectRefused(
      [&] {
        return move("plain/Library/Spotlight/a.mdimporter", "plain/Library/Spotlight Disabled/a.mdimporter");
      },
      prepare);
}

TEST_F(MoveOperationTest, foldersThatOthersMayWriteAreRefused) {
  for (const char* folder : {"", "Library", "Library/Spotlight"}) {
    for (const mode_t mode : {mode_t{0775}, mode_t{0757}, mode_t{01777}}) {
      SCOPED_TRACE(folder);
      expectOnVolume("refused " + std::string(kItem), [&] {
        ::chmod(at(folder).c_str(), mode);
        const std::string told = move(kItem, kOff);
        return told + " " + there(kItem);
      });
    }
  }
  for (const mode_t mode : {mode_t{0775}, mode_t{0757}, mode_t{01777}}) {
    expectOnVolume("refused " + std::string(kItem), [&] {
      ::mkdir(at("Library/Spotlight Disabled").c_str(), mode);
      ::chmod(at("Library/Spotlight Disabled").c_str(), mode);
      const std::string told = move(kItem, kOff);
      return told + " " + there(kItem);
    });
  }
}

TEST_F(MoveOperationTest, foldersThatRootDoesNotOwnAreRefused) {
  for (const char* folder : {"", "Library", "Library/Spotlight", "Library/Spotlight Disabled"}) {
    SCOPED_TRACE(folder);
    expectOnVolume("refused " + std::string(kItem), [&] {
      ::mkdir(at("Library/Spotlight Disabled").c_str(), 0755);
      ::chmod(at("Library/Spotlight Disabled").c_str(), 0755);
      if (::chown(at(folder).c_str(), kCaller, 0) != 0) return std::string("chown");
      const std::string told = move(kItem, kOff);
      return told + " " + there(kItem);
    });
  }
}

TEST_F(MoveOperationTest, linksOnTheWayAreRefused) {
  expectOnVolume(std::string("refused ") + kItem, [&] {
    static_cast<void>(volume.link("link", volume.path("volume")));
    const std::string link = volume.path("link/");
    const std::string told = movePaths(link + kItem, link + kOff);
    return told + " " + there(kItem);
  });
}

TEST_F(MoveOperationTest, aLinkInThePlaceOfTheTargetsFolderIsNotFollowed) {
  expectOnVolume(std::string("Couldn’t be moved: Not a directory ") + kItem, [&] {
    ::mkdir(at("outside").c_str(), 0755);
    static_cast<void>(volume.link("volume/Library/Spotlight Disabled", at("outside")));
    const std::string told = move(kItem, kOff);
    return told + " " + there(kItem);
  });
}

TEST_F(MoveOperationTest, anotherFileSystemBesideIsRefusedAndNothingIsCopied) {
  expectOnVolume("refused " + std::string(kItem) + " -", [&] {
    ::mkdir(at("Library/Spotlight Disabled").c_str(), 0755);
    ::chmod(at("Library/Spotlight Disabled").c_str(), 0755);
    ::mount("other", at("Library/Spotlight Disabled").c_str(), "tmpfs", 0, "mode=755");
    const std::string told = move(kItem, kOff);
    return told + " " + there(kItem) + " " + there(kOff);
  });
}

TEST_F(MoveOperationTest, anItemOfAThirdUserIsRefused) {
  expectOnVolume("refused moved", [&] {
    if (::chown(at(kItem).c_str(), kThird, 0) != 0) return std::string("chown");
    const std::string third = move(kItem, kOff);
    if (::chown(at(kItem).c_str(), kCaller, 0) != 0) return std::string("chown");
    return third + " " + move(kItem, kOff);
  });
}

TEST_F(MoveOperationTest, aLinkIsMovedItselfAndAMissingItemIsAFailure) {
  expectOnVolume("moved link, Couldn’t be moved: No such file or directory", [&] {
    static_cast<void>(volume.link("volume/Library/Spotlight/l.mdimporter", at(kItem)));
    const std::string told =
        move("Library/Spotlight/l.mdimporter", "Library/Spotlight Disabled/l.mdimporter");
    struct stat status {};
    ::lstat(at("Library/Spotlight Disabled/l.mdimporter").c_str(), &status);
    const SenderView unseen{SenderView::Kind::CouldNotLook, 0, 0};
    return told + (S_ISLNK(status.st_mode) ? " link, " : " other, ") +
           textOf(movePath(at("Library/Spotlight/none.mdimporter"),
                           at("Library/Spotlight Disabled/none.mdimporter"), unseen,
                           RemovalPolicy::forHelper(caller)));
  });
}

TEST_F(MoveOperationTest, aRefusedPlaceOfTheAdministratorIsNoTarget) {
  expectOnVolume("refused refused", [&] {
    ::mkdir(at("Library/Spotlight Disabled").c_str(), 0755);
    ::chmod(at("Library/Spotlight Disabled").c_str(), 0755);
    std::string told;
    for (const char* place : {"Library/Spotlight Disabled", "Library/Spotlight"}) {
      RemovalPolicy policy = RemovalPolicy::forHelper(caller);
      policy.protectSubtree(at(place));
      told += (told.empty() ? "" : " ") + textOf(movePath(at(kItem), at(kOff), viewOf(at(kItem)), policy));
    }
    return told;
  });
}

}  // namespace
}  // namespace sorrel::helper
