#include "SorrelFramework/Platform/Files/StoredPlaces.hpp"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>
#include <functional>
#include <string>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

bool bindMount(const std::string& from, const std::string& on) {
  return ::mount(from.c_str(), on.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

TEST(StoredPlaces, oneItemHasOnePlaceBehindLinks) {
  const test::TemporaryVolume volume;
  const std::string file = volume.file("d/a");
  volume.file("d/b");
  volume.link("way", "d");
  const StoredPlaces places = StoredPlaces::ofThisMoment();
  EXPECT_TRUE(places.of(file).ends_with("/d/a"));
  EXPECT_NE(places.of(file).front(), '/');
  EXPECT_EQ(places.of(volume.path("way/a")), places.of(file));
  EXPECT_NE(places.of(volume.path("d/b")), places.of(file));
  EXPECT_EQ(places.of(volume.path("d")) + "/a", places.of(file));
}

TEST(StoredPlaces, aLinkIsAPlaceOfItsOwn) {
  const test::TemporaryVolume volume;
  volume.folder("d");
  volume.link("way", "d");
  volume.link("broken", "none");
  const StoredPlaces places = StoredPlaces::ofThisMoment();
  EXPECT_TRUE(places.of(volume.path("way")).ends_with("/way"));
  EXPECT_TRUE(places.of(volume.path("broken")).ends_with("/broken"));
  EXPECT_NE(places.of(volume.path("broken")).front(), '/');
}

TEST(StoredPlaces, oneItemHasOnePlaceBehindMounts) {
  const test::TemporaryVolume volume;
  volume.file("Data/sub folder/a");
  volume.file("file");
  volume.folder("a view");
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (!bindMount(volume.path("Data/sub folder"), volume.path("a view")) ||
        !bindMount(volume.path("Data/sub folder/a"), volume.path("file"))) {
      return "skip";
    }
    const StoredPlaces places = StoredPlaces::ofThisMoment();
    const std::string place = places.of(volume.path("Data/sub folder/a"));
    std::string wrong;
    if (place.front() == '/') wrong += place + " ";
    for (const char* name : {"a view/a", "file"}) {
      if (places.of(volume.path(name)) != place) wrong += places.of(volume.path(name)) + " ";
    }
    if (places.of(volume.path("a view")) + "/a" != place) wrong += "view";
    return wrong;
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "");
}

TEST(StoredPlaces, otherFileSystemsHaveOtherPlaces) {
  const test::TemporaryVolume volume;
  const std::string one = volume.folder("one");
  const std::string two = volume.folder("two");
  const std::string told = test::inMountingChild([&]() -> std::string {
    for (const std::string& point : {one, two}) {
      if (::mount("tmpfs", point.c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    }
    volume.file("one/a");
    volume.file("two/a");
    const StoredPlaces places = StoredPlaces::ofThisMoment();
    return places.of(one + "/a") == places.of(two + "/a") ? "same" : "other";
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "other");
}

TEST(StoredPlaces, whatIsNotThereOrInNoKnownMountKeepsItsPath) {
  const test::TemporaryVolume volume;
  const std::string file = volume.file("a");
  EXPECT_EQ(StoredPlaces::ofThisMoment().of("/none/a"), "/none/a");
  for (const char* table : {"", "\n", "1 2\n", "x 1 8:1 / / rw - ext4 s rw\n"})
    EXPECT_EQ(StoredPlaces(table).of(file), file) << table;
}

TEST(StoredPlaces, theTopOfAFileSystemIsAboveAllInIt) {
  const StoredPlaces places = StoredPlaces::ofThisMoment();
  const std::string top = places.of("/");
  EXPECT_NE(top.back(), '/');
  EXPECT_NE(top.find(':'), std::string::npos);
}

}  // namespace
}  // namespace sorrel
