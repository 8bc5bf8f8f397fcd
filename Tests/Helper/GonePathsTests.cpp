#include "Helper/GonePaths.hpp"

#include <gtest/gtest.h>

namespace sorrel::helper {
namespace {

TEST(GonePaths, holdWhatLayBelowThem) {
  GonePaths gone;
  EXPECT_FALSE(gone.holds("/a"));
  gone.add("/a");
  EXPECT_FALSE(gone.holds("/a!"));
  gone.add("/a!");
  EXPECT_TRUE(gone.holds("/a/b"));
  EXPECT_TRUE(gone.holds("/a/b/c"));
  gone.add("/a/b/c");
  EXPECT_TRUE(gone.holds("/a/d"));
  EXPECT_FALSE(gone.holds("/ab"));
  EXPECT_FALSE(gone.holds("/b"));
}

}  // namespace
}  // namespace sorrel::helper
