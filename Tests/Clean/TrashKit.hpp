#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "SorrelFramework/Clean/FileRemover.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/CleanKit.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {

/// A desktop home whose trash is `data/Trash` of a temporary folder.
class TrashTest : public testing::Test {
 protected:
  using Names = std::vector<std::string>;

  void SetUp() override {
    Host::install(Host::linuxDesktop({}));
    home_.folder("data/Trash/files");
    home_.folder("data/Trash/info");
  }

  /// Moves a file to the trash under that name: the item and its record.
  void trash(const std::string& name, const std::string& content = "x") const {
    home_.file(kFiles + name, content);
    home_.file(infoOf(name), "[Trash Info]\nPath=/a\nDeletionDate=2026-01-02T03:04:05\n");
  }
  [[nodiscard]] std::string infoOf(const std::string& name) const { return kInfo + name + ".trashinfo"; }
  [[nodiscard]] URL url(const std::string& name) const { return URL::fileURL(home_.path(name), false); }
  [[nodiscard]] std::vector<TreeEntry> items() const { return snapshotOf(home_.path()); }
  /// The paths that a clean of these items of the trash removes.
  Names goneAfterRemoving(const Names& names) const {
    const auto before = items();
    const FileRemover::Session removal = FileRemover::shard().begin();
    for (const std::string& name : names)
      EXPECT_EQ(removal.removeItem(url(kFiles + name)), std::nullopt) << name;
    removal.finish();
    return goneBetween(before, items());
  }

  const std::string kFiles = "data/Trash/files/";
  const std::string kInfo = "data/Trash/info/";
  const std::string kSizes = "data/Trash/directorysizes";
  TemporaryVolume home_;
  const ScopedVariable data_{"XDG_DATA_HOME", home_.path("data").c_str()};
};

}  // namespace sorrel::test
