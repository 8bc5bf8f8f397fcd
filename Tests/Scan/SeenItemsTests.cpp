#include "SorrelFramework/Scan/SeenItems.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

TEST(SeenItems, itemIsNewOnce) {
  const test::TemporaryVolume volume;
  const std::string file = volume.file("a", "1");
  const std::string folder = volume.folder("folder");
  SeenItems seen;
  EXPECT_TRUE(seen.insert(file, true));
  EXPECT_FALSE(seen.insert(file, true));
  EXPECT_TRUE(seen.insert(folder, false));
  EXPECT_FALSE(seen.insert(folder, false));
}

TEST(SeenItems, hardLinksAreDifferentItems) {
  const test::TemporaryVolume volume;
  const std::string file = volume.file("a", "1");
  std::filesystem::create_hard_link(file, volume.path("b"));
  SeenItems seen;
  EXPECT_TRUE(seen.insert(file, true));
  EXPECT_TRUE(seen.insert(volume.path("b"), true));
}

TEST(SeenItems, itemThatCannotBeReadIsAlwaysNew) {
  const test::TemporaryVolume volume;
  SeenItems seen;
  EXPECT_TRUE(seen.insert(volume.path("gone"), true));
  EXPECT_TRUE(seen.insert(volume.path("gone"), true));
}

}  // namespace
}  // namespace sorrel
