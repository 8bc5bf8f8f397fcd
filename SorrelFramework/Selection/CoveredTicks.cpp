#include "SorrelFramework/Selection/CoveredTicks.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <string>
#include <tuple>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/RecordName.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"
#include "SorrelFramework/Selection/Ticks.hpp"

namespace sorrel {
namespace {

bool liesBelowOneOf(const std::set<std::string>& paths, std::string path) {
  while (path.rfind('/') != std::string::npos) {
    path.resize(path.rfind('/'));
    if (paths.contains(path)) return true;
  }
  return false;
}

void setFromMembers(FileInformation& group) {
  const auto isOn = [](const FileInformation& member) { return member.state == NSControlStateValueOn; };
  const bool anyOn = std::ranges::any_of(group.childrens, isOn);
  const bool allOn = anyOn && std::ranges::all_of(group.childrens, isOn);
  group.state = anyOn ? NSControlStateValueMixed : NSControlStateValueOff;
  if (allOn) group.state = NSControlStateValueOn;
}

bool isGone(const FileInformation& record) {
  struct stat status {};
  return ::lstat(pathOf(record.url).c_str(), &status) != 0 && errno == ENOENT;
}

}  // namespace

FileRecords untickCovered(FeatureInformation& feature) {
  FileRecords covered = tickedRecords(TreeShape::Groups, feature);
  std::set<std::string> paths;
  for (const auto& record : covered) paths.insert(pathOf(record->url));
  std::erase_if(covered, [&](const auto& record) { return !liesBelowOneOf(paths, pathOf(record->url)); });
  for (const auto& record : covered) record->state = NSControlStateValueOff;
  for (const auto& record : covered) {
    if (record->parentFileInfo) setFromMembers(*record->parentFileInfo);
  }
  return covered;
}

void removeCoveredThatAreGone(FeatureInformation& feature, const FileRecords& covered) {
  bool anyGone = false;
  for (const auto& record : covered) {
    if (!record->parentFileInfo || !isGone(*record)) continue;
    record->parentFileInfo->state = NSControlStateValueMixed;
    record->state = NSControlStateValueOn;
    record->deleteStatus = rawValue(DeleteStatus::DeleteSuccess);
    anyGone = true;
  }
  if (anyGone) std::ignore = DuplicateScanService::sortCategory(feature.categoryInfo.front());
}

}  // namespace sorrel
