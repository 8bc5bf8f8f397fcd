#include "Helper/HelperConfiguration.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::helper {
namespace {

using Texts = std::vector<std::string>;

HelperConfiguration parse(std::string_view text) {
  HelperConfiguration configuration = HelperConfiguration::parse(text);
  EXPECT_EQ(configuration.fault, "") << text;
  return configuration;
}

TEST(HelperConfiguration, eachKeyIsRead) {
  const HelperConfiguration configuration = parse(
      "# a comment\n\n  refuse = /srv/data \r\nrefuse=/a=b\nallow-file-system = fuse.sshfs\n"
      "allow-file-system=nfs4\nidle-seconds = 3600");
  EXPECT_EQ(configuration.refusedPlaces, (Texts{"/srv/data", "/a=b"}));
  EXPECT_EQ(configuration.allowedFileSystems, (Texts{"fuse.sshfs", "nfs4"}));
  EXPECT_EQ(configuration.idle.count(), 3600);
}

TEST(HelperConfiguration, nothingSaidIsTheDefault) {
  const HelperConfiguration configuration = parse("");
  EXPECT_TRUE(configuration.refusedPlaces.empty());
  EXPECT_TRUE(configuration.allowedFileSystems.empty());
  EXPECT_EQ(configuration.idle.count(), 300);
}

TEST(HelperConfiguration, aSlashAtTheEndNamesTheSamePlace) {
  EXPECT_EQ(parse("refuse = /srv/data/\nrefuse = /srv/other// \n").refusedPlaces,
            (Texts{"/srv/data", "/srv/other"}));
}

TEST(HelperConfiguration, aNameMayHoldBlanksNumberSignsAndApostrophes) {
  EXPECT_EQ(parse("refuse = /srv/my data#1/Bob's = files").refusedPlaces,
            (Texts{"/srv/my data#1/Bob's = files"}));
}

TEST(HelperConfiguration, aLineThatMakesNoSenseIsAFaultOfTheWhole) {
  for (const char* slip : {"refuse = relative",
                           "refuse = /a/../b",
                           "refuse",
                           "refuse =",
                           "refuse = /",
                           "refuse = //srv",
                           "refuse = \"/srv/data\"",
                           "refuse = '/srv/data'",
                           "refuse = /srv/\"my data\"",
                           "refuse = /srv/'my data'",
                           "refuse = /srv/my\\ data",
                           "refuse = /srv/data # ours",
                           "refuse = /srv/data\t#ours",
                           "refuse = /srv/a\vb",
                           "refuse = /srv/data/*",
                           "refuse = /srv/data?",
                           "refuse = /srv/$USER",
                           "refuse = /srv/{a,b}",
                           "refuse = /srv/a /srv/b",
                           "refuse = /srv/a,/srv/b",
                           "refuse = /srv/a, /srv/b",
                           "refuse = /srv/a;/srv/b",
                           "refuse = /srv/a ; ours",
                           "refuse = /srv/data\u00a0",
                           "refuse = /srv/data\u201d",
                           "# ours\rrefuse = /srv/data\r# end",
                           "refuse: /srv/data",
                           "Refuse = /srv/data",
                           "refuse /srv/data",
                           "\xef\xbb\xbfrefuse = /srv/data",
                           "\xef\xbb\xbf# a comment",
                           "; a comment",
                           "[refuse]",
                           "allow-file-system =",
                           "allow-file-system = nfs4 # ours",
                           "allow-file-system = nfs4, cifs",
                           "idle-seconds = x",
                           "grace-seconds = 30",
                           "idle-seconds = -1",
                           "idle-seconds = 1s",
                           "idle-seconds =",
                           "idle-seconds = 3601",
                           "idle-seconds = 30 # half",
                           "log-paths = maybe",
                           "log-paths =",
                           "alow = x",
                           "="}) {
    const HelperConfiguration configuration =
        HelperConfiguration::parse("refuse = /one\n" + std::string(slip) + "\nrefuse = /two\nnonsense\n");
    EXPECT_EQ(configuration.fault, "line 2 makes no sense") << slip;
    EXPECT_EQ(configuration.idle.count(), 300) << slip;
  }
  EXPECT_EQ(HelperConfiguration::parse(std::string_view("refuse = /a\0b\n", 14)).fault,
            "line 1 makes no sense");
}

class HelperConfigurationFile : public testing::Test {
 protected:
  void SetUp() override {
    if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs root, who has to own the file";
    ::chmod(file.c_str(), 0644);
  }
  /// The fault, or the number of refused paths.
  static std::string outcomeOf(const std::string& path) {
    const HelperConfiguration configuration = HelperConfiguration::read(path);
    return configuration.fault.empty() ? std::to_string(configuration.refusedPlaces.size())
                                       : configuration.fault;
  }

  const test::TemporaryFolder folder;
  const std::string file = folder.file("helper.conf", "refuse = /srv/data\n");
};

TEST_F(HelperConfigurationFile, aFileOfRootIsRead) { EXPECT_EQ(outcomeOf(file), "1"); }

TEST_F(HelperConfigurationFile, noFileAndNoFolderAreNoFault) {
  EXPECT_EQ(outcomeOf(folder.path("none.conf")), "0");
  EXPECT_EQ(outcomeOf(folder.path("none/helper.conf")), "0");
}

TEST_F(HelperConfigurationFile, aFileThatOthersMayWriteIsAFault) {
  for (const mode_t mode : {0664, 0646}) {
    ASSERT_EQ(::chmod(file.c_str(), mode), 0);
    EXPECT_EQ(outcomeOf(file), "others than root may write it");
  }
}

TEST_F(HelperConfigurationFile, aFileOfAnotherUserIsAFault) {
  ASSERT_EQ(::chown(file.c_str(), 10001, 0), 0);
  EXPECT_EQ(outcomeOf(file), "others than root may write it");
}

TEST_F(HelperConfigurationFile, aFolderThatOthersMayWriteIsAFaultEvenWhenItIsEmpty) {
  const char* const kFault = "others than root may write its folder";
  ASSERT_EQ(::chmod(folder.path().c_str(), 0775), 0);
  EXPECT_EQ(outcomeOf(file), kFault);
  ASSERT_EQ(::unlink(file.c_str()), 0);
  EXPECT_EQ(outcomeOf(file), kFault) << "another user may have removed it";
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(::chown(folder.path().c_str(), 10001, 0), 0);
  EXPECT_EQ(outcomeOf(file), kFault);
}

TEST_F(HelperConfigurationFile, aLinkIsAFaultWhereverItLeads) {
  const std::string link = folder.path("link");
  for (const std::string& target : {file, folder.path("none")}) {
    ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
    EXPECT_EQ(outcomeOf(link), "cannot be opened") << target;
    ASSERT_EQ(::unlink(link.c_str()), 0);
  }
  const std::string outer = folder.path("outer");
  for (const std::string& target : {folder.path(), folder.path("none")}) {
    ASSERT_EQ(::symlink(target.c_str(), outer.c_str()), 0);
    EXPECT_EQ(outcomeOf(outer + "/helper.conf"), "cannot be opened") << target;
    ASSERT_EQ(::unlink(outer.c_str()), 0);
  }
}

TEST_F(HelperConfigurationFile, whatIsNoRegularFileIsAFaultAndDoesNotBlock) {
  const std::string fifo = folder.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(outcomeOf(fifo), "others than root may write it");
  ASSERT_EQ(::mkdir(folder.path("folder").c_str(), 0755), 0);
  EXPECT_NE(outcomeOf(folder.path("folder")), "0");
  EXPECT_EQ(outcomeOf(file + "/helper.conf"), "cannot be opened") << "a file in the place of the folder";
}

TEST_F(HelperConfigurationFile, aHugeFileIsAFault) {
  const std::string rest = "refuse = /srv\n";
  constexpr std::size_t kMost = std::size_t{64} << 10;
  EXPECT_EQ(outcomeOf(folder.file("most", std::string(kMost - rest.size(), '\n') + rest)), "1");
  EXPECT_EQ(outcomeOf(folder.file("more", std::string(kMost - rest.size() + 1, '\n') + rest)),
            "cannot be read whole");
}

}  // namespace
}  // namespace sorrel::helper
