#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

/// The listener of a clean. All calls come on a background thread (the clean's own, or one of the helper's
/// connection), one after the other.
class CleanServiceProtocol {
 public:
  virtual ~CleanServiceProtocol() = default;

  /// The end of a clean, once. `allCategorys` is the repaired tree, `size` the bytes freed, `abnormalFiles`
  /// the records that could not be deleted, `status` a raw DeleteStatus and `desc` the text for it. A clean
  /// of type Common does not report failed records in `status`: check `abnormalFiles`. Never called if the
  /// connection to the helper breaks while it works.
  virtual void cleanFinished(const std::vector<Ref<CategoryInformation>>& allCategorys, std::int64_t size,
                             const FileRecords& abnormalFiles, Integer status, const std::string& desc) = 0;
  /// Kept for applications that implement it; the framework never calls it.
  virtual void cleanSuspended() {}
  /// Fraction of the whole clean that is done: 0.25, 0.5, 0.75.
  virtual void cleanProgress(float percent) = 0;
};

}  // namespace sorrel
