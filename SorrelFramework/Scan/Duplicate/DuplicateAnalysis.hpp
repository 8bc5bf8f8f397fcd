#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <unordered_set>
#include <vector>

#include "SorrelFramework/Scan/Duplicate/DuplicateSearch.hpp"
#include "SorrelFramework/Scan/ScanStages.hpp"

namespace sorrel {

/// The third stage, on the queue of the scan: hashes the files of the candidate folders and finds the folders
/// that are twins.
void hashFolders(const DuplicateSearchRef& search, StageThrough through);

/// The fourth stage, on the queue of the scan: hashes the candidate files that lie in none of these folders.
void hashFiles(const DuplicateSearchRef& search, const StageThrough& through);

/// DuplicateScanService::getMD5FromFolderPath().
[[nodiscard]] std::tuple<std::string, std::vector<URL>, std::int64_t, std::unordered_set<URL>> hashesInFolder(
    const URL& folder);

}  // namespace sorrel
