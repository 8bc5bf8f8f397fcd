#include "SorrelFramework/Platform/Files/FileExtents.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fiemap.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/LoopFileSystem.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

FileDescriptor opened(const std::string& path) {
  return FileDescriptor(::open(path.c_str(), O_RDWR | O_CLOEXEC));
}

TEST(FileExtents, aPipeHasNone) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const FileDescriptor in(ends[0]);
  const FileDescriptor out(ends[1]);
  EXPECT_FALSE(extentsFrom(in.get(), 0, 100, 0));
  EXPECT_FALSE(isCopiedOnWrite(in.get()));
}

TEST(FileExtents, areThoseBetweenTheTwoOffsets) {
  const test::TemporaryFolder folder;
  const std::string answer = test::inMountingChild([&]() -> std::string {
    const test::LoopFileSystem disk("xfs", folder.path() + "/image", folder.path() + "/disk");
    if (!disk.isMounted()) return "skip";
    const FileDescriptor file = opened(folder.file("disk/file", std::string(4096, 'x')));
    if (::pwrite(file.get(), "x", 1, 1 << 20) != 1) return "skip";
    const auto all = extentsFrom(file.get(), 0, 2 << 20, FIEMAP_FLAG_SYNC);
    const auto second = extentsFrom(file.get(), 8192, 2 << 20, 0);
    const auto none = extentsFrom(file.get(), 4 << 20, 5 << 20, 0);
    if (!all || !second || !none) return "unknown";
    return std::to_string(all->size()) + " " + std::to_string(all->back().logical) + " " +
           std::to_string(second->size()) + " " + std::to_string(none->size());
  });
  if (answer == "skip") GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(answer, "2 1048576 1 0");
}

TEST(FileExtents, btrfsCopiesOnWriteAndXfsDoesNot) {
  const test::TemporaryFolder folder;
  for (const std::string type : {"btrfs", "xfs"}) {
    const std::string answer = test::inMountingChild([&]() -> std::string {
      const test::LoopFileSystem disk(type, folder.path() + "/" + type, folder.path() + "/disk");
      if (!disk.isMounted()) return "skip";
      return isCopiedOnWrite(opened(folder.file("disk/file", "x")).get()) ? "copies" : "writes in place";
    });
    if (answer == "skip") GTEST_SKIP() << "nothing can be mounted here";
    EXPECT_EQ(answer, type == "btrfs" ? "copies" : "writes in place");
  }
}

}  // namespace
}  // namespace sorrel
