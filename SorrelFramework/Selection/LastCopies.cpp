#include "SorrelFramework/Selection/LastCopies.hpp"

#include <sched.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <system_error>
#include <tuple>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/RecordName.hpp"
#include "SorrelFramework/Platform/Files/StoredPlaces.hpp"
#include "SorrelFramework/Selection/Ticks.hpp"

namespace sorrel {
namespace {

namespace fs = std::filesystem;

/// A directory entry, independent of the path: a folder itself; any other item, which may have several hard
/// links, by its parent folder and its name.
using Entry = std::tuple<dev_t, ino_t, std::string>;

std::optional<Entry> entryAt(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
  std::string name;
  if (!S_ISDIR(status.st_mode)) {
    const fs::path place(path);
    name = place.filename().string();
    if (::stat(place.parent_path().c_str(), &status) != 0) return std::nullopt;
  }
  return Entry{status.st_dev, status.st_ino, name};
}

/// The items that a clean removes.
class Takings {
 public:
  explicit Takings(FeatureInformation& feature) {
    for (const Ref<FileInformation>& record : tickedRecords(TreeShape::Groups, feature)) {
      const std::string path = pathOf(record->url);
      paths_.insert(path);
      paths_.insert(places_.of(path));
      if (auto entry = entryAt(path)) entries_.insert(*std::move(entry));
    }
  }

  /// True also if another mount, or a link, leads to a removed item.
  [[nodiscard]] bool touches(const std::string& path) const {
    return touchesText(path) || touchesText(places_.of(path));
  }

  [[nodiscard]] bool leaves(const FileInformation& member) const {
    const std::string path = pathOf(member.url);
    if (touches(path)) return false;
    std::error_code error;
    // A folder that was scanned through a link to it.
    if (touches(fs::canonical(path, error).native())) return false;
    const auto entry = entryAt(path);
    return entry && !entries_.contains(*entry);
  }

 private:
  [[nodiscard]] bool touchesText(const std::string& path) const {
    for (std::string above = path; !above.empty(); above.resize(above.rfind('/'))) {
      if (paths_.contains(above)) return true;
      if (above.find('/') == std::string::npos) break;
    }
    const auto below = paths_.lower_bound(path + '/');
    return below != paths_.end() && below->starts_with(path + '/');
  }

  StoredPlaces places_ = StoredPlaces::ofThisMoment();
  std::set<std::string> paths_;  // also the paths on their file systems
  std::set<Entry> entries_;
};

/// Groups with a member that is removed, or loses contents.
FileRecords touchedGroups(FeatureInformation& feature, const Takings& takings) {
  FileRecords groups;
  if (feature.categoryInfo.empty()) return groups;
  for (FileInformation& group : feature.categoryInfo.front().childrens) {
    const bool isTouched = std::ranges::any_of(
        group.childrens, [&](const FileInformation& member) { return takings.touches(pathOf(member.url)); });
    if (isTouched) groups.emplace_back(group);
  }
  return groups;
}

bool isLater(const timespec& a, const timespec& b) {
  return std::tie(a.tv_sec, a.tv_nsec) > std::tie(b.tv_sec, b.tv_nsec);
}

/// Collects the changes at and below a path.
class Changes {
 public:
  explicit Changes(const timespec& since) : since_(since) {}

  void lookAt(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return;
    addIfChanged(path, status);
    if (!S_ISDIR(status.st_mode)) return;
    std::error_code error;
    fs::recursive_directory_iterator at(path, error);
    for (const fs::recursive_directory_iterator end; !error && at != end; at.increment(error)) {
      if (::lstat(at->path().c_str(), &status) == 0) addIfChanged(at->path().string(), status);
    }
    if (error) paths_.push_back(path);
  }
  std::vector<std::string> take() { return std::move(paths_); }

 private:
  void addIfChanged(const std::string& path, const struct stat& status) {
    if (isLater(status.st_ctim, since_)) paths_.push_back(path);
  }

  timespec since_;
  std::vector<std::string> paths_;
};

}  // namespace

FileRecords groupsWithoutACopyLeft(FeatureInformation& feature) {
  const Takings takings(feature);
  FileRecords groups = touchedGroups(feature, takings);
  std::erase_if(groups, [&takings](const Ref<FileInformation>& group) {
    return std::ranges::any_of(group->childrens,
                               [&takings](const FileInformation& member) { return takings.leaves(member); });
  });
  return groups;
}

timespec beginOfChanges() {
  timespec now{};
  // Kernels timestamp files with this clock or, most of them, with the coarse one, which is some milliseconds
  // behind.
  timespec stamp{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  do {
    ::sched_yield();
    ::clock_gettime(CLOCK_REALTIME_COARSE, &stamp);
  } while (!isLater(stamp, now));
  return now;
}

std::vector<std::string> changesInTickedGroups(FeatureInformation& feature, const timespec& since) {
  Changes changes(since);
  for (const Ref<FileInformation>& group : touchedGroups(feature, Takings(feature))) {
    for (const FileInformation& member : group->childrens) changes.lookAt(pathOf(member.url));
  }
  return changes.take();
}

}  // namespace sorrel
