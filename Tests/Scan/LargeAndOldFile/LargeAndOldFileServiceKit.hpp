#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Scan/LargeAndOldFile/LargeAndOldFileService.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {

using Kind = LargeAndOldFileService::LargeAndFileKind;
using Names = std::vector<std::string>;

inline constexpr Integer kFeature = 3;
inline constexpr std::int64_t kMiB = 1 << 20;
inline constexpr double kDay = 86'400;

/// The home of alice on a volume, and the tools available to the scan: none, unless a test installs one.
class LargeAndOldFileTest : public testing::Test {
 protected:
  LargeAndOldFileTest() {
    SuperScanService::scanStatus.resetForTesting();
    SuperScanService::percentService.exchange(nullptr);
    useTools(volume.folder("no tools"));
  }

  void useTools(const std::string& folder) {
    Host host =
        Host::macVolume(volume.path(), "alice", {std::string(TemporaryVolume::kBundleIdentifier), "", {}});
    host.setToolFolder(folder);
    Host::install(std::move(host));
    LogService::resetForTesting();
  }
  /// An mdfind that records its arguments and prints these lines.
  void useToolThatPrints(const std::string& text) {
    const std::string output = volume.file("output", text);
    volume.script("tools/mdfind",
                  "printf '%s\\n' \"$@\" >'" + volume.path("arguments") + "'; cat '" + output + "'");
    useTools(volume.path("tools"));
  }
  std::string big(const std::string& name, ByteCount size = 60_MiB) {
    return volume.file("Users/alice/" + name, size);
  }
  void start() {
    LargeAndOldFileService::scanLargeAndOldFile(*feature, scan.progress(), scan.percent(), scan.singleDone(),
                                                scan.treeDone(), scan.queue);
  }
  void run() {
    start();
    ASSERT_TRUE(scan.waitUntilDone());
  }
  CategoryInformation& all() { return feature->categoryInfo[0]; }
  CategoryInformation& row(Kind kind) {
    return (*all().childrenCateogry)[static_cast<std::size_t>(rawValue(kind))];
  }
  /// Paths below the home.
  Names names(const CategoryInformation& category) {
    return namesOf(category.childrens.refs(), volume.url("Users/alice/"));
  }
  Names names() { return names(all()); }
  std::string log() {
    LogService::shard().flushForTesting();
    return contentOf(LogService::shard().logPath.path());
  }
  bool hasLogged(const std::string& text) { return log().find(":Info>:" + text + "\n") != std::string::npos; }

  /// A record that no scan made.
  Ref<FileInformation> record(const std::string& path, std::int64_t size, Date date = Date::now()) {
    return makeRef<FileInformation>(NSControlStateValueOff, made++, Integer{1}, path, Image(), size, date,
                                    URL::fileURL(path, false), "", true, false, std::any(),
                                    Children<FileInformation>(), feature->categoryInfo.ref(0),
                                    rawValue(FilesKind::File), Integer{0});
  }
  void add(const Ref<FileInformation>& file, double now = Date::now().secondsSince1970) {
    LargeAndOldFileService::addToChildrenCategory(all(), *file, {now - 365 * kDay}, {now - 30 * kDay},
                                                  {now - 7 * kDay});
  }
  /// The kinds of the rows that contain the record; each contains it once.
  std::set<Kind> kindsOf(const FileInformation& file) {
    std::set<Kind> kinds;
    for (std::size_t i = 0; i < all().childrenCateogry->size(); ++i) {
      for (const FileInformation& child : (*all().childrenCateogry)[i].childrens) {
        if (&child != &file) continue;
        EXPECT_TRUE(kinds.insert(static_cast<Kind>(i)).second);
      }
    }
    return kinds;
  }

  TemporaryVolume volume;
  ScanRecord scan;
  Ref<FeatureInformation> feature = makeLargeAndOldFeature();
  Integer made = 0;
};

}  // namespace sorrel::test
