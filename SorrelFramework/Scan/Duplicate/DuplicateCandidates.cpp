#include "SorrelFramework/Scan/Duplicate/DuplicateCandidates.hpp"

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>

#include "SorrelFramework/Scan/SeenItems.hpp"

namespace sorrel {
std::size_t memberCount(const DuplicatesBySize& dictionary) {
  std::size_t count = 0;
  for (const auto& [size, records] : dictionary) count += records.size();
  return count;
}

std::vector<Integer> sizesDescending(const DuplicatesBySize& dictionary) {
  std::vector<Integer> sizes;
  sizes.reserve(dictionary.size());
  for (const auto& [size, records] : dictionary) sizes.push_back(size);
  std::ranges::sort(sizes, std::greater<>());
  return sizes;
}

void sortByPath(std::vector<DuplicateInfo>& records) {
  std::ranges::sort(records, std::less<>(), &DuplicateInfo::path);
  // Clang 14 takes no subrange of GCC's library, which std::ranges::unique gives.
  const auto samePath = [](const DuplicateInfo& a, const DuplicateInfo& b) { return a.path == b.path; };
  records.erase(std::unique(records.begin(), records.end(), samePath), records.end());
}

void dropOtherMounts(std::vector<DuplicateInfo>& twins) {
  SeenItems seen;
  std::erase_if(
      twins, [&seen](const DuplicateInfo& twin) { return !seen.insert(twin.path.path(), twin.fileOrPath); });
}

DuplicatesBySize candidateFolders(DuplicatesBySize folders, const std::function<bool()>& isStopped) {
  DuplicatesBySize candidates;
  SizeUnion covered;
  for (const Integer size : sizesDescending(folders)) {
    std::vector<DuplicateInfo>& records = folders[size];
    sortByPath(records);
    if (records.size() < 2 || covered.contains(size) || isStopped()) continue;
    std::map<Integer, std::vector<DuplicateInfo>> byNumber;
    for (DuplicateInfo& record : records) byNumber[record.fileNumSum].push_back(std::move(record));
    for (auto& [number, group] : byNumber) {
      if (group.size() < 2) continue;
      for (DuplicateInfo& record : group) {
        covered.insert(record.sizeList);
        candidates[size].push_back(std::move(record));
      }
    }
  }
  return candidates;
}

std::vector<std::vector<DuplicateInfo>> topmostFolders(DuplicatesBySize candidates, std::int64_t limit) {
  SizeUnion below;
  for (const auto& [size, records] : candidates) {
    for (const DuplicateInfo& record : records) below.insert(record.sizeList);
  }
  std::vector<std::vector<DuplicateInfo>> groups;
  for (const Integer size : sizesDescending(candidates)) {
    if (size < limit || below.contains(size)) continue;
    groups.push_back(std::move(candidates[size]));
  }
  return groups;
}

std::vector<DuplicateInfo> filesToHash(DuplicatesBySize files, const std::unordered_set<URL>& leftOut) {
  std::vector<DuplicateInfo> list;
  for (const Integer size : sizesDescending(files)) {
    std::vector<DuplicateInfo>& records = files[size];
    if (records.size() < 2) continue;
    std::erase_if(records, [&](const DuplicateInfo& record) { return leftOut.contains(record.path); });
    sortByPath(records);
    if (records.size() < 2) continue;  // a single file can have no twin
    std::ranges::move(records, std::back_inserter(list));
  }
  return list;
}

}  // namespace sorrel
