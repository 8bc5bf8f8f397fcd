#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "SorrelFramework/Scan/Duplicate/DuplicateInfo.hpp"

namespace sorrel {

/// The members of all entries of a dictionary.
[[nodiscard]] std::size_t memberCount(const DuplicatesBySize& dictionary);

/// The sizes of a dictionary, the largest first.
[[nodiscard]] std::vector<Integer> sizesDescending(const DuplicatesBySize& dictionary);

/// Sorts by path, so that results do not depend on which walk finished first, and removes records that were
/// found twice because the same path was scanned twice: a file is not its own twin.
void sortByPath(std::vector<DuplicateInfo>& records);

/// Drops members that are the same item as an earlier member, seen through another mount (SeenItems). Hard
/// links are kept.
void dropOtherMounts(std::vector<DuplicateInfo>& twins);

/// The second stage. Keeps the folders of one size that share their number of files with another one. The
/// largest go first and cover the sizes of all folders below them: a covered size is skipped, even for other
/// folders that have it.
[[nodiscard]] DuplicatesBySize candidateFolders(DuplicatesBySize folders,
                                                const std::function<bool()>& isStopped);

/// Removes the sizes that also belong to a folder below one of the candidates, and those below the limit; the
/// largest first.
[[nodiscard]] std::vector<std::vector<DuplicateInfo>> topmostFolders(DuplicatesBySize candidates,
                                                                     std::int64_t limit);

/// The files that must be read: at least two of a size, none in `leftOut`, the largest first.
[[nodiscard]] std::vector<DuplicateInfo> filesToHash(DuplicatesBySize files,
                                                     const std::unordered_set<URL>& leftOut);

}  // namespace sorrel
