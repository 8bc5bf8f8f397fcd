#include "Helper/HelperConfiguration.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::helper {
namespace {

using Texts = std::vector<std::string>;

HelperConfiguration parse(std::string_view text, const std::string& expectedFault = "") {
  std::string fault;
  HelperConfiguration configuration = HelperConfiguration::parse(text, fault);
  EXPECT_EQ(fault, expectedFault) << text;
  return configuration;
}

TEST(HelperConfiguration, eachKeyIsRead) {
  const HelperConfiguration configuration = parse(
      "# a comment\n\n  refuse = /srv/data \r\nrefuse=/a=b\nallow-file-system = fuse.sshfs\n"
      "allow-file-system=nfs4\ngrace-seconds = 0\nidle-seconds = 3600");
  EXPECT_EQ(configuration.refusedPlaces, (Texts{"/srv/data", "/a=b"}));
  EXPECT_EQ(configuration.allowedFileSystems, (Texts{"fuse.sshfs", "nfs4"}));
  EXPECT_EQ(configuration.grace.count(), 0);
  EXPECT_EQ(configuration.idle.count(), 3600);
}

TEST(HelperConfiguration, nothingSaidIsTheDefault) {
  const HelperConfiguration configuration = parse("");
  EXPECT_TRUE(configuration.refusedPlaces.empty());
  EXPECT_TRUE(configuration.allowedFileSystems.empty());
  EXPECT_EQ(configuration.grace.count(), 30);
  EXPECT_EQ(configuration.idle.count(), 300);
}

TEST(HelperConfiguration, aSlipLiftsNoRefusalOfOtherLines) {
  for (const char* slip :
       {"refuse = relative", "refuse = /a/../b", "refuse", "grace-seconds = 3601", "grace-seconds = -1",
        "grace-seconds = 1s", "idle-seconds = 3601", "allow-file-system =", "alow = x", "="}) {
    const HelperConfiguration configuration =
        parse("refuse = /one\n" + std::string(slip) + "\nrefuse = /two\n", "line 2 makes no sense");
    EXPECT_EQ(configuration.refusedPlaces, (Texts{"/one", "/two"})) << slip;
    EXPECT_EQ(configuration.grace.count(), 30) << slip;
  }
}

TEST(HelperConfiguration, noFileIsNoFault) {
  const test::TemporaryFolder folder;
  std::string fault = "old";
  EXPECT_TRUE(HelperConfiguration::read(folder.path("helper.conf"), fault).refusedPlaces.empty());
  EXPECT_EQ(fault, "");
}

class HelperConfigurationFile : public testing::Test {
 protected:
  void SetUp() override {
    if (::getuid() != 0) GTEST_SKIP() << "needs root, who has to own the file";
    ::chmod(file.c_str(), 0644);
  }
  std::size_t refusals() {
    fault.clear();
    return HelperConfiguration::read(file, fault).refusedPlaces.size();
  }

  const test::TemporaryFolder folder;
  const std::string file = folder.file("helper.conf", "refuse = /srv/data\n");
  std::string fault;
};

TEST_F(HelperConfigurationFile, rootsOwnIsRead) {
  EXPECT_EQ(refusals(), 1U);
  EXPECT_EQ(fault, "");
}

TEST_F(HelperConfigurationFile, whatOthersMayWriteIsIgnored) {
  for (const mode_t mode : {0664, 0646}) {
    ASSERT_EQ(::chmod(file.c_str(), mode), 0);
    EXPECT_EQ(refusals(), 0U);
    EXPECT_EQ(fault, "not written by root alone");
  }
}

TEST_F(HelperConfigurationFile, whatAnotherUserOwnsIsIgnored) {
  ASSERT_EQ(::chown(file.c_str(), 10001, 0), 0);
  EXPECT_EQ(refusals(), 0U);
  EXPECT_EQ(fault, "not written by root alone");
}

TEST_F(HelperConfigurationFile, aLinkOrAFifoIsIgnoredAndDoesNotBlock) {
  const std::string link = folder.path("link");
  ASSERT_EQ(::symlink(file.c_str(), link.c_str()), 0);
  const std::string fifo = folder.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& other : {link, fifo}) {
    EXPECT_TRUE(HelperConfiguration::read(other, fault).refusedPlaces.empty());
    EXPECT_NE(fault, "");
  }
}

TEST_F(HelperConfigurationFile, aHugeFileIsIgnored) {
  const std::string huge = folder.file("huge.conf", std::string(70'000, '\n') + "refuse = /srv\n");
  EXPECT_TRUE(HelperConfiguration::read(huge, fault).refusedPlaces.empty());
  EXPECT_EQ(fault, "cannot be read");
}

}  // namespace
}  // namespace sorrel::helper
