#include "SorrelFramework/Platform/Files/FolderListing.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

FileDescriptor plainOpen(const std::string& path) {
  return FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

std::vector<std::string> namesOf(const FolderListing& listing) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < listing.size(); ++i) names.emplace_back(listing.name(i));
  return names;
}

TEST(FolderListing, sortsByTheBytesOfTheNames) {
  const test::TemporaryVolume volume;
  const std::vector<std::string> ordered = {"-rf", ".a",  "10", "9",  "B",        "a",
                                            "a b", "a.b", "a0", "ab", "\xC3\xA9", "\xFF"};
  for (auto name = ordered.rbegin(); name != ordered.rend(); ++name) volume.file("top/" + *name, "");
  const FileDescriptor folder = plainOpen(volume.path("top"));
  FolderStream stream;
  FolderListing listing;
  ASSERT_TRUE(listing.read(stream, folder.get()));
  EXPECT_EQ(namesOf(listing), ordered);
}

TEST(FolderListing, namesEndInNUL) {
  const test::TemporaryVolume volume;
  volume.file("top/abc", "");
  volume.file("top/abcd", "");
  const FileDescriptor folder = plainOpen(volume.path("top"));
  FolderStream stream;
  FolderListing listing;
  ASSERT_TRUE(listing.read(stream, folder.get()));
  EXPECT_STREQ(listing.name(0).data(), "abc");
  EXPECT_STREQ(listing.name(1).data(), "abcd");
}

TEST(FolderListing, forgetsTheFolderBefore) {
  const test::TemporaryVolume volume;
  volume.file("one/a", "");
  volume.file("one/b", "");
  volume.file("two/c", "");
  volume.folder("three");
  FolderStream stream;
  FolderListing listing;
  const auto read = [&](std::string_view name) {
    const FileDescriptor folder = plainOpen(volume.path(name));
    EXPECT_TRUE(listing.read(stream, folder.get()));
    return namesOf(listing);
  };
  EXPECT_EQ(read("one"), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(read("two"), std::vector<std::string>{"c"});
  EXPECT_TRUE(read("three").empty());
}

TEST(FolderListing, brokenListingIsTold) {
  const test::TemporaryVolume volume;
  const FileDescriptor file = plainOpen(volume.file("a", ""));
  FolderStream stream;
  FolderListing listing;
  EXPECT_FALSE(listing.read(stream, file.get()));
  EXPECT_EQ(listing.size(), 0U);
}

TEST(FolderListing, typesStayWithTheirNames) {
  const test::TemporaryVolume volume;
  volume.file("top/a", "");
  volume.folder("top/b");
  volume.file("top/c", "");
  const FileDescriptor folder = plainOpen(volume.path("top"));
  FolderStream stream;
  FolderListing listing;
  ASSERT_TRUE(listing.read(stream, folder.get()));
  if (listing.type(0) == FolderStream::Type::Unknown) GTEST_SKIP() << "this file system does not say";
  EXPECT_EQ(listing.type(0), FolderStream::Type::Other);
  EXPECT_EQ(listing.type(1), FolderStream::Type::Directory);
  EXPECT_EQ(listing.type(2), FolderStream::Type::Other);
}

TEST(FolderListing, addedNamesKeepTheirSizeWhenSorted) {
  FolderListing listing;
  listing.add({"old", 3, FolderStream::Type::Other}, 1);
  listing.clear();
  listing.add({"b", 1, FolderStream::Type::Other}, 20);
  listing.add({"a", 1, FolderStream::Type::Directory});
  listing.sort();
  EXPECT_EQ(namesOf(listing), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(listing.size(0), 0);
  EXPECT_EQ(listing.size(1), 20);
  EXPECT_EQ(listing.type(0), FolderStream::Type::Directory);
}

}  // namespace
}  // namespace sorrel
