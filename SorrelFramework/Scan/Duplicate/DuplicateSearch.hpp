#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "SorrelFramework/Scan/Duplicate/DuplicateInfo.hpp"
#include "SorrelFramework/Scan/FinderRun.hpp"

namespace sorrel {

/// The class variables of DuplicateScanService, as of the beginning of a scan.
struct DuplicateSettings {
  std::int64_t limit = 0;  ///< bytes
  bool findsEveryEqualPair = false;
  bool ignoresFoldersWithoutHashes = false;
};

/// What the stages of a search hand on. It changes on the queue of the run.
struct DuplicateSearch {
  std::shared_ptr<FinderRun> run;
  DuplicateSettings settings;
  DuplicatesBySize files;           ///< above the limit, by the walk
  DuplicatesBySize folders;         ///< the same, then the candidates among them
  std::unordered_set<URL> leftOut;  ///< files that are not hashed again: their folders were
  std::unordered_map<URL, std::optional<std::string>> hashesInTwins;  ///< of the files of twin folders
  std::unordered_set<std::string> unread;  ///< files that could not be read, and are reported
  DuplicatesByHash filesByHash;
  DuplicatesByHash foldersByHash;
};
using DuplicateSearchRef = std::shared_ptr<DuplicateSearch>;

}  // namespace sorrel
