#pragma once

#include <string>
#include <vector>

#include "Tests/Host/HostKit.hpp"
#include "Tests/Support/CleanKit.hpp"

namespace sorrel::hosttests {

using Words = std::vector<std::string>;

inline const FeatureRow kCaches = {1, {{0, "SystemCache", {"file://~/Library/Caches/"}}}};
inline const FeatureRow kTrash = {2, {{0, "Common", {"file://~/.Trash/"}}}};
inline const std::string kTrashFolder = "Users/alice/.Trash/";
inline const std::string kCacheFolder = "Users/alice/Library/Caches/";
inline const std::string kLog =
    "Users/alice/Library/Application Support/org.sorrel.Sorrel/org.sorrel.SorrelFrameworkLog.txt";

/// A volume with its log, which each command writes, in place.
struct LoggedVolume : TemporaryFolder {
  LoggedVolume() { text(kLog, ""); }

  [[nodiscard]] std::vector<test::TreeEntry> items() const {
    auto entries = test::snapshotOf(path());
    std::erase_if(entries, [](const test::TreeEntry& entry) { return entry.path == kLog; });
    return entries;
  }
  /// All entries, including traces that a removal and a change would leave.
  [[nodiscard]] std::vector<std::string> bytes() const {
    auto lines = snapshot(path());
    std::erase_if(lines, [this](const std::string& line) { return line.starts_with(path(kLog)); });
    return lines;
  }
};

/// A volume with a catalogue of its own.
struct Volume : LoggedVolume {
  explicit Volume(const std::vector<FeatureRow>& features) {
    file_ = text("test.plist", catalogue(features));
  }
  ProgramRun clean(const Words& more, const RunOptions& options = {}) const {
    Words words = {"--volume", path(), "--catalogue", file_, "clean"};
    words.insert(words.end(), more.begin(), more.end());
    return sorrel(words, options);
  }

 private:
  std::string file_;
};

/// The trash and the caches of alice, with items beside them that are never selected.
struct FullVolume : Volume {
  FullVolume() : Volume({kCaches, kTrash}) {
    file(kTrashFolder + "film.mov", 900);
    file(kTrashFolder + "drafts/one", 10);
    file(kTrashFolder + "drafts/sub/two", 20);
    file(kCacheFolder + "com.example/data", 300);
    file(kCacheFolder + "note", 5);
    file("Users/alice/Documents/letter", 7);
  }
};

/// The category of a document that has one.
inline Json::const_reference onlyRow(const Json& document) {
  return document.at("feature").at("categoryInfo").at(0);
}

}  // namespace sorrel::hosttests
