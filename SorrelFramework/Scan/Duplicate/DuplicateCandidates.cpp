#include "SorrelFramework/Scan/Duplicate/DuplicateCandidates.hpp"

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"

namespace sorrel {
namespace {

using Number = std::pair<std::uint64_t, std::uint64_t>;  // of the file system, and in it
/// An item, the folder above it and its name there: the same through whichever mount it is reached, other
/// ones for another hard link. A folder has no hard links.
using Entry = std::tuple<Number, Number, std::string>;

std::optional<Number> numberOf(const std::string& path) {
  const auto status = statusOf(path);
  return status ? std::optional<Number>({status->device, status->inode}) : std::nullopt;
}

std::optional<Entry> entryOf(const DuplicateInfo& record) {
  const std::string path = record.path.path();
  const auto number = numberOf(record.fileOrPath ? path : path + '/');
  if (!number || !record.fileOrPath) return number ? std::optional<Entry>({*number, {}, ""}) : std::nullopt;
  const std::size_t name = path.rfind('/') + 1;
  const auto above = numberOf(path.substr(0, name));
  return above ? std::optional<Entry>({*number, *above, path.substr(name)}) : std::nullopt;
}

}  // namespace

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
  std::set<Entry> known;
  std::erase_if(twins, [&known](const DuplicateInfo& twin) {
    auto entry = entryOf(twin);
    return entry && !known.insert(*std::move(entry)).second;
  });
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
    if (records.size() < 2) continue;  // what is alone has no twin to be found
    std::ranges::move(records, std::back_inserter(list));
  }
  return list;
}

}  // namespace sorrel
