#include "Tools/LastUse.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::tools {
namespace {

// 2026-11-21 10:11:12 and half a second.
const std::string kAttribute("\x40\x6E\x01\x6B\0\0\0\0\0\x65\xCD\x1D\0\0\0\0", 16);
constexpr Date kMoment{1'795'255'872};
constexpr Date kVisit{1'584'705'730};            // 2020-03-20 12:02:10
constexpr std::int64_t kFarOff = 4'102'444'800;  // 2100-01-01: later than any change a test makes

class LastUse : public testing::Test {
 protected:
  LastUse() { Host::install(Host::linuxDesktop({})); }
  ~LastUse() override { Host::install(Host::linuxDesktop({})); }

  void setRead(const std::string& name, std::int64_t seconds) const {
    const timespec times[] = {{seconds, 0}, {0, UTIME_OMIT}};
    ASSERT_EQ(::utimensat(AT_FDCWD, volume.path(name).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }
  std::string program(const std::string& name) const { return volume.script(name, "true"); }
  void noteVisit(const std::string& path, const std::string& visited) const {
    volume.file("data/recently-used.xbel", "<xbel version=\"1.0\"><bookmark href=\"file://" + path +
                                               "\" added=\"2020-01-01T00:00:00Z\" modified=\"" + visited +
                                               "\" visited=\"" + visited + "\"></bookmark></xbel>");
  }

  test::TemporaryVolume volume;
  test::ScopedVariable data_{"XDG_DATA_HOME", volume.path("data").c_str()};
};

TEST(LastUseInAttribute, isSecondsAndNanosecondsTheLowestByteFirst) {
  EXPECT_EQ(lastUseInAttribute(kAttribute), kMoment);
  EXPECT_EQ(lastUseInAttribute(std::string("\1") + std::string(15, '\0')), Date{1});
  EXPECT_EQ(lastUseInAttribute(std::string("\0\1", 2) + std::string(14, '\0')), Date{256});
}

TEST(LastUseInAttribute, otherBytesAreNoMoment) {
  const std::string zeros(8, '\0');
  EXPECT_EQ(lastUseInAttribute(""), std::nullopt);
  EXPECT_EQ(lastUseInAttribute(kAttribute.substr(0, 15)), std::nullopt);
  EXPECT_EQ(lastUseInAttribute(kAttribute + '\0'), std::nullopt);
  EXPECT_EQ(lastUseInAttribute(zeros + zeros), std::nullopt);
  EXPECT_EQ(lastUseInAttribute(std::string(8, '\xFF') + zeros), std::nullopt);  // before 1970
  EXPECT_EQ(lastUseInAttribute(std::string("\x80\x41\xF4\xFF\x3A\0\0\0", 8) + zeros), std::nullopt)
      << "year 10000";
  const std::string lastYear("\x7F\x41\xF4\xFF\x3A\0\0\0", 8);
  EXPECT_TRUE(lastUseInAttribute(lastYear + zeros).has_value());
  EXPECT_TRUE(lastUseInAttribute(lastYear + std::string("\xFF\xC9\x9A\x3B\0\0\0\0", 8)).has_value());
  EXPECT_EQ(lastUseInAttribute(lastYear + std::string("\0\xCA\x9A\x3B\0\0\0\0", 8)), std::nullopt)
      << "a second of nanoseconds";
}

TEST_F(LastUse, ofAnItemThatNobodyToldOfIsUnknown) {
  volume.file("plain", "1");
  program("tool");
  setRead("tool", 1'000'000'000);
  volume.folder("Editor.app");
  for (const char* name : {"plain", "tool", "Editor.app", "missing"}) {
    EXPECT_EQ(lastUse(volume.path(name)), std::nullopt) << name;
  }
}

TEST_F(LastUse, isWhatTheAttributeOfMacOSTells) {
  const std::string path = volume.folder("Editor.app");
  if (::lsetxattr(path.c_str(), "user.com.apple.lastuseddate#PS", kAttribute.data(), kAttribute.size(), 0) !=
      0) {
    GTEST_SKIP() << "no attributes here: " << errno;
  }
  EXPECT_EQ(lastUse(path), kMoment);
  volume.install();
  EXPECT_EQ(lastUse(path), kMoment);
  volume.link("link", "Editor.app");
  EXPECT_EQ(lastUse(volume.path("link")), std::nullopt);
}

TEST_F(LastUse, ofAProgramIsItsLastReadingIfThatCameAfterItsLastChange) {
  program("tool");
  setRead("tool", kFarOff);
  EXPECT_EQ(lastUse(volume.path("tool")), Date{static_cast<double>(kFarOff)});
}

TEST_F(LastUse, readingTellsNothingOfWhatIsNoProgram) {
  volume.file("plain", "1");
  volume.folder("folder");
  program("tool");
  volume.link("link", "tool");
  for (const char* name : {"plain", "folder", "link"}) {
    setRead(name, kFarOff);
    EXPECT_EQ(lastUse(volume.path(name)), std::nullopt) << name;
  }
}

TEST_F(LastUse, isWhatTheListOfRecentlyUsedFilesTells) {
  const std::string path = volume.file("letter", "1");
  noteVisit(path, "2020-03-20T12:02:10Z");
  EXPECT_EQ(lastUse(path), kVisit);
  EXPECT_EQ(lastUse(volume.path("data/../letter")), kVisit);
}

TEST_F(LastUse, isTheNewestOfAll) {
  const std::string path = program("tool");
  noteVisit(path, "2020-03-20T12:02:10Z");
  EXPECT_EQ(lastUse(path), kVisit);
  setRead("tool", kFarOff);
  EXPECT_EQ(lastUse(path), Date{static_cast<double>(kFarOff)});
}

TEST_F(LastUse, desktopTellsNothingOfAMountedVolume) {
  const std::string path = program("tool");
  noteVisit(path, "2020-03-20T12:02:10Z");
  setRead("tool", kFarOff);
  volume.install();
  EXPECT_EQ(lastUse(path), std::nullopt);
}

}  // namespace
}  // namespace sorrel::tools
