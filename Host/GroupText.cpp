#include "Host/GroupText.hpp"

#include <sys/stat.h>

#include <filesystem>
#include <iomanip>
#include <map>
#include <ostream>
#include <string>
#include <system_error>
#include <utility>

#include "Host/RecordName.hpp"
#include "Host/SafeText.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FeatureInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"

namespace sorrel::cli {
namespace {

namespace fs = std::filesystem;

constexpr int kSizeColumn = 11;   // "1023.9 KiB" and a blank
constexpr std::size_t kStep = 2;  // columns for each level

void writeRow(std::ostream& out, std::size_t level, std::int64_t size, const std::string& text) {
  out << std::setw(kSizeColumn) << std::right << sizeText(size) << std::string(2 + level * kStep, ' ')
      << printable(text) << '\n';
}

bool holdsHiddenItems(const std::string& folder) {
  std::error_code error;
  fs::recursive_directory_iterator at(folder, error);
  for (const fs::recursive_directory_iterator end; !error && at != end; at.increment(error)) {
    if (at->path().filename().string().starts_with('.')) return true;
  }
  return false;
}

/// What the removal of a member alone would free, and why that is not its size.
struct Gain {
  std::int64_t bytes;
  std::string note;
};

/// The files of one group that were seen so far, by device and inode.
using Seen = std::map<std::pair<dev_t, ino_t>, std::string>;

Gain gainOf(const FileInformation& member, Seen& seen) {
  const std::string path = pathOf(member.url);
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return {0, "gone"};
  if (S_ISDIR(status.st_mode)) {
    return {member.size, holdsHiddenItems(path) ? "hidden items in it were not compared" : ""};
  }
  const auto [first, isNew] = seen.emplace(std::pair(status.st_dev, status.st_ino), path);
  if (status.st_nlink > 1) return {0, isNew ? "has other hard links" : "hard link of " + first->second};
  if (!isNew) return {0, "the same file as " + first->second};
  return {member.size, ""};
}

void writeGroup(std::ostream& out, const FileInformation& group, std::size_t level) {
  writeRow(out, level, group.size, group.title);
  Seen seen;
  for (const FileInformation& member : group.childrens) {
    const Gain gain = gainOf(member, seen);
    writeRow(out, level + 1, gain.bytes, nameOf(member) + (gain.note.empty() ? "" : "  (" + gain.note + ")"));
  }
}

}  // namespace

void writeGroups(std::ostream& out, const FeatureInformation& feature, std::int64_t size) {
  std::size_t groups = 0;
  std::size_t items = 0;
  writeRow(out, 0, size, feature.title);
  for (const CategoryInformation& category : feature.categoryInfo) {
    writeRow(out, 1, category.size, category.title);
    for (const FileInformation& group : category.childrens) {
      writeGroup(out, group, 2);
      items += group.childrens.size();
      ++groups;
    }
    if (!category.childrenCateogry) continue;
    for (const CategoryInformation& row : *category.childrenCateogry) writeRow(out, 2, row.size, row.title);
  }
  out << items << (items == 1 ? " item in " : " items in ") << groups
      << (groups == 1 ? " group, " : " groups, ") << sizeText(size) << '\n';
}

}  // namespace sorrel::cli
