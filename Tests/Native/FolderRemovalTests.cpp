#include "SorrelFramework/Native/FolderRemoval.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

class FolderRemovalTest : public testing::Test {
 protected:
  [[nodiscard]] FileDescriptor top() const {
    return FileDescriptor(::open(volume_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  [[nodiscard]] ItemIdentity identity(std::string_view name) const {
    const auto found = identityOf(AT_FDCWD, volume_.path(name).c_str());
    EXPECT_TRUE(found.has_value()) << name;
    return found.value_or(ItemIdentity{});
  }
  [[nodiscard]] bool isThere(std::string_view name) const {
    return identityOf(AT_FDCWD, volume_.path(name).c_str()).has_value();
  }

  test::TemporaryVolume volume_;
  RemovalPolicy policy_ = RemovalPolicy::forUser();
  FolderRemoval removal_{policy_};
};

TEST_F(FolderRemovalTest, removesTheItemThatWasMeant) {
  volume_.file("folder/file", "x");
  removal_.run(top(), "folder", identity("folder"));
  EXPECT_EQ(removal_.error(), 0);
  EXPECT_EQ(removal_.removedEntries(), 2U);
  EXPECT_FALSE(isThere("folder"));
}

TEST_F(FolderRemovalTest, leavesAnItemThatTookThePlaceOfAnother) {
  volume_.file("meant", "x");
  volume_.file("file", "x");
  volume_.file("folder/file", "x");
  for (const char* name : {"file", "folder"}) {
    FolderRemoval removal(policy_);
    removal.run(top(), name, identity("meant"));
    EXPECT_EQ(removal.error(), ESTALE) << name;
    EXPECT_EQ(removal.removedEntries(), 0U);
  }
  EXPECT_TRUE(isThere("file"));
  EXPECT_TRUE(isThere("folder/file"));
}

TEST_F(FolderRemovalTest, leavesTheSameItemBehindAnotherMount) {
  volume_.file("folder/file", "x");
  ItemIdentity item = identity("folder");
  ++item.mount;
  removal_.run(top(), "folder", item);
  EXPECT_EQ(removal_.error(), ESTALE);
  EXPECT_TRUE(isThere("folder/file"));
}

TEST_F(FolderRemovalTest, itemThatIsGoneIsAFailure) {
  volume_.file("file", "x");
  const ItemIdentity item = identity("file");
  ASSERT_EQ(::unlink(volume_.path("file").c_str()), 0);
  removal_.run(top(), "file", item);
  EXPECT_EQ(removal_.error(), ENOENT);
  EXPECT_FALSE(removal_.isRefused());
}

}  // namespace
}  // namespace sorrel
