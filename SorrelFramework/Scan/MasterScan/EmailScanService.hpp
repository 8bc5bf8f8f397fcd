#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "SorrelFramework/Scan/ScanFrame.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"

namespace sorrel {

/// Measures what mail programs have stored. A category of kind EmailAttachment gives one record for each file
/// of a mail store that lies in a folder "Attachments", at any depth; any other kind one for each item
/// directly in its folders, sized as a whole.
class EmailScanService : public SuperScanService {
 public:
  /// Starts the scan and returns. Callbacks, and the tree, as in SystemScanService::scanSystemJunk.
  static void scanEmailJunk(FeatureInformation& featureInfo, ProgressFunc progress, PercentFunc showPercent,
                            SingleDoneFunc singleDone, std::function<void(CategoryResults)> done,
                            std::shared_ptr<WeftSerialQueue> dispatch);
  static void scanProEmailJunk(FeatureInformation& featureInfo, ProgressFunc progress,
                               PercentFunc showPercent, SingleDoneFunc singleDone,
                               std::function<void(CategoryResults)> done,
                               std::shared_ptr<WeftSerialQueue> dispatch);

  /// Names of the version folders ("V10") of the mail store whose "PersistenceInfo.plist" lies in the folder
  /// `url`, in the order of that file: the keys of the dictionaries under its keys that contain
  /// "VersionDirectoryIdentifiers". The file is copied to the user's documents folder first, replacing an
  /// item of that name unless it is a folder, and the copy is read; if that fails, the file itself. Empty if
  /// neither can be read.
  static std::vector<std::string> getMailAttachmentsDirectoryId(const URL& url);

  /// The filter of EmailAttachment categories: files at level 4 or deeper that have an ancestor "Attachments"
  /// below the home.
  static bool attachmentFilter(const URL& url, const ResourceValues& values, EnumerationPosition* position);
};

}  // namespace sorrel
