#include "SorrelFramework/Scan/MasterScan/EmailScanService.hpp"

#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/Files/FileBytes.hpp"
#include "SorrelFramework/Platform/Files/FileManager.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"
#include "SorrelFramework/Removal/RemovalPolicy.hpp"
#include "SorrelFramework/Removal/TreeRemoval.hpp"

namespace sorrel {
namespace {

constexpr std::string_view kPersistenceInfo = "PersistenceInfo.plist";
constexpr std::string_view kVersionFolders = "VersionDirectoryIdentifiers";
constexpr std::string_view kAttachments = "/Attachments/";
/// Account, mailbox and version folders lie above the first attachment.
constexpr int kLevelsAboveAttachments = 3;

CategoryPlan planFor(const CategoryInformation& category) {
  CategoryPlan plan;
  plan.keys = kRecordKeys;
  if (category.kind != rawValue(CategoryInfomationKind::EmailAttachment)) {
    plan.options = kDirectChildren;
    return plan;
  }
  plan.keys = plan.keys | NSURLPathKey;
  plan.filter = EmailScanService::attachmentFilter;
  if (const auto folder = Host::current().mailFolder()) plan.roots = {URL::fileURL(*folder, true)};
  return plan;
}

/// True if the path below the home leads through a folder of attachments. The path above is ignored: if the
/// volume or the home itself lies in a folder of that name, every message would count as an attachment.
bool isBelowAttachments(std::string_view path) {
  const Host& host = Host::current();
  if (path.starts_with(host.home() + "/")) path.remove_prefix(host.home().size());
  return host.layoutPath(path).find(kAttachments) != std::string::npos;
}

/// Replaces `target` by a copy of `source`; true if `target` is a file afterwards. A folder there is the
/// user's own and stays.
bool renewCopy(const std::string& source, const std::string& target) {
  bool isFolder = false;
  if (fileExists(target, &isFolder) && isFolder) return false;
  (void)removeItem(target, RemovalPolicy::forUser());
  const auto bytes = readFileBytes(source, kPropertyListByteLimit);
  if (bytes) (void)writeFileAtomically(target, *bytes);
  return fileExists(target);
}

}  // namespace

bool EmailScanService::attachmentFilter(const URL& /*url*/, const ResourceValues& values,
                                        EnumerationPosition* position) {
  return values.path && position != nullptr && position->level() > kLevelsAboveAttachments &&
         !values.isDirectory.value_or(true) && isBelowAttachments(*values.path);
}

void EmailScanService::scanEmailJunk(FeatureInformation& featureInfo, ProgressFunc progress,
                                     PercentFunc showPercent, SingleDoneFunc singleDone,
                                     std::function<void(CategoryResults)> done,
                                     std::shared_ptr<WeftSerialQueue> dispatch) {
  scanProEmailJunk(featureInfo, std::move(progress), std::move(showPercent), std::move(singleDone),
                   std::move(done), std::move(dispatch));
}

void EmailScanService::scanProEmailJunk(FeatureInformation& featureInfo, ProgressFunc progress,
                                        PercentFunc showPercent, SingleDoneFunc singleDone,
                                        std::function<void(CategoryResults)> done,
                                        std::shared_ptr<WeftSerialQueue> dispatch) {
  runJunkScan(featureInfo, std::move(progress), std::move(showPercent), std::move(singleDone),
              std::move(done), std::move(dispatch), planFor);
}

std::vector<std::string> EmailScanService::getMailAttachmentsDirectoryId(const URL& url) {
  const std::string source = url.appendingPathComponent(kPersistenceInfo, false).path();
  const std::string target = supportFolder().appendingPathComponent(kPersistenceInfo, false).path();
  const auto list = readPropertyListFile(renewCopy(source, target) ? target : source);
  std::vector<std::string> folders;
  if (!list || list->asDictionary() == nullptr) return folders;
  for (const auto& [key, value] : *list->asDictionary()) {
    if (key.find(kVersionFolders) == std::string::npos || value.asDictionary() == nullptr) continue;
    for (const auto& entry : *value.asDictionary()) folders.push_back(entry.key);
  }
  return folders;
}

}  // namespace sorrel
