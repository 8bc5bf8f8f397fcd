#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Scan/WalkRequest.hpp"

namespace sorrel {

/// The folders that the walks of a feature's scan could not read: what they hold is in no record and in no
/// size; and the files that it could not compare with others. An application may ask for them when the scan
/// is over. Any thread.
class UnreadFolders {
 public:
  struct Folder {
    std::string path;  ///< without a trailing slash
    int error = 0;     ///< errno

    friend bool operator==(const Folder&, const Folder&) = default;
  };
  struct Report {
    std::int64_t count = 0;
    std::vector<Folder> first;  ///< the first kMostNamed of them
    std::int64_t fileCount = 0;
    std::vector<Folder> firstFiles = {};  ///< the first kMostNamed of the files
  };
  static constexpr std::size_t kMostNamed = 20;

  UnreadFolders() = delete;
  /// False for an errno that means that nothing is missing: the folder is gone, no longer a folder, or a
  /// mount point, which walks do not enter.
  [[nodiscard]] static bool isReason(int error);
  static void add(std::int64_t finderID, const std::string& path, int error);
  static void add(std::int64_t finderID, const Report& report);
  static void addFile(std::int64_t finderID, const std::string& path, int error);
  static Report of(std::int64_t finderID);
  /// To be called at the start of a scan.
  static void clear(std::int64_t finderID);
  /// A handler for walks that adds to the report of the feature.
  static UnreadFolderHandler handler(std::int64_t finderID);

  /// The folders of a report as a text that another process can read back; any bytes that are no such text
  /// give what stands before the damage.
  [[nodiscard]] static std::string textOf(const Report& report);
  [[nodiscard]] static Report fromText(std::string_view text);
};

}  // namespace sorrel
