#include "SorrelFramework/Platform/Files/FolderStream.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

FileDescriptor plainOpen(const std::string& path) {
  return FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

std::vector<std::string> sortedNames(FolderStream& stream, int folder) {
  std::vector<std::string> names;
  stream.start(folder);
  while (const FolderStream::Entry* entry = stream.next()) names.emplace_back(entry->name, entry->length);
  std::sort(names.begin(), names.end());
  return names;
}

TEST(FolderStream, givesEveryEntryButTheDots) {
  const test::TemporaryVolume volume;
  volume.file("top/.hidden", "");
  volume.file("top/...", "");
  volume.file("top/a", "");
  volume.folder("top/b");
  const FileDescriptor folder = plainOpen(volume.path("top"));
  FolderStream stream;
  EXPECT_EQ(sortedNames(stream, folder.get()), (std::vector<std::string>{"...", ".hidden", "a", "b"}));
  EXPECT_EQ(stream.error(), 0);
}

TEST(FolderStream, readsMoreEntriesThanOneCallHolds) {
  const test::TemporaryVolume volume;
  constexpr int count = 1000;
  for (int i = 0; i < count; ++i) volume.file("top/" + std::string(60, 'n') + std::to_string(i), "");
  const FileDescriptor folder = plainOpen(volume.path("top"));
  FolderStream stream;
  const auto names = sortedNames(stream, folder.get());
  EXPECT_EQ(names.size(), static_cast<std::size_t>(count));
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
}

TEST(FolderStream, tellsFoldersFromOtherItems) {
  const test::TemporaryVolume volume;
  volume.folder("top/folder");
  volume.link("top/link", "folder");
  const FileDescriptor folder = plainOpen(volume.path("top"));
  FolderStream stream;
  stream.start(folder.get());
  while (const FolderStream::Entry* entry = stream.next()) {
    if (entry->type == FolderStream::Type::Unknown) GTEST_SKIP() << "this file system does not say";
    const bool isFolder = std::string(entry->name) == "folder";
    EXPECT_EQ(entry->type, isFolder ? FolderStream::Type::Directory : FolderStream::Type::Other)
        << entry->name;
  }
}

TEST(FolderStream, errorEndsTheListingAndAnotherStartForgetsIt) {
  const test::TemporaryVolume volume;
  volume.file("top/a", "");
  const FileDescriptor file(::open(volume.path("top/a").c_str(), O_RDONLY | O_CLOEXEC));
  const FileDescriptor folder = plainOpen(volume.path("top"));
  FolderStream stream;
  EXPECT_TRUE(sortedNames(stream, file.get()).empty());
  EXPECT_EQ(stream.error(), ENOTDIR);
  EXPECT_EQ(sortedNames(stream, folder.get()), std::vector<std::string>{"a"});
  EXPECT_EQ(stream.error(), 0);
}

class OpenFolderIn : public testing::Test {
 protected:
  OpenFolderIn() { volume_.folder("Users/alice/real"); }
  [[nodiscard]] FileDescriptor open(std::string_view name) const { return plainOpen(volume_.path(name)); }

  test::TemporaryVolume volume_;
};

TEST_F(OpenFolderIn, noLinkIsFollowed) {
  volume_.link("Users/alice/link", "real");
  const FileDescriptor home = open("Users/alice");
  EXPECT_TRUE(openFolderIn(home.get(), "real").isOpen());
  EXPECT_FALSE(openFolderIn(home.get(), "link").isOpen());
  EXPECT_TRUE(errno == ELOOP || errno == ENOTDIR) << errno;
}

TEST_F(OpenFolderIn, aFifoIsNotWaitedFor) {
  volume_.fifo("Users/alice/pipe");
  const FileDescriptor home = open("Users/alice");
  EXPECT_FALSE(openFolderIn(home.get(), "pipe").isOpen());
  EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(OpenFolderIn, aForeignMountIsNotEntered) {
  const std::string point = volume_.folder("Users/alice/mount");
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount("tmpfs", point.c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    const FileDescriptor home = open("Users/alice");
    const bool entered = openFolderIn(home.get(), "mount").isOpen();
    return entered ? "entered" : std::to_string(errno);
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, std::to_string(EXDEV));
}

TEST_F(OpenFolderIn, anotherPlaceOfTheSameFileSystemIsNotEntered) {
  const std::string point = volume_.folder("Users/alice/mount");
  const std::string source = volume_.path("Users/alice/real");
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount(source.c_str(), point.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
    const FileDescriptor home = open("Users/alice");
    const bool entered = openFolderIn(home.get(), "mount").isOpen();
    return entered ? "entered" : std::to_string(errno);
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, std::to_string(EXDEV));
}

}  // namespace
}  // namespace sorrel
