#pragma once

#include <cstdint>
#include <utility>

#include "SorrelFramework/Model/Enumerations.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

/// Running totals of one scanned root. Sizes in bytes.
class ScanFilesInformation {
 public:
  explicit ScanFilesInformation(URL rootURL = URL(), std::int64_t foSize = 0, Integer foNumber = 0,
                                std::int64_t fiSize = 0, Integer fiNumber = 0)
      : url(std::move(rootURL)),
        folderSize(foSize),
        folderNumber(foNumber),
        fileSize(fiSize),
        fileNumber(fiNumber) {}

  URL url;
  std::int64_t folderSize;
  Integer folderNumber;
  std::int64_t fileSize;
  Integer fileNumber;
};

}  // namespace sorrel
