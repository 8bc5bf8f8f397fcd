#include "Tests/Faults/TickedTree.hpp"

#include <algorithm>
#include <filesystem>

namespace sorrel::test::tickedtree {
namespace {

namespace fs = std::filesystem;

constexpr int kFolders = 20;
constexpr int kLeaves = 20;
constexpr std::string_view kHelper = "-helper-";
constexpr std::string_view kPackage = "-package-";

void makeLeaf(const TemporaryVolume& volume, const std::string& folder, int number) {
  constexpr const char* kKinds[] = {"link", "package", "file", "file", "file", "file", "file", "helper"};
  const std::string kind = kKinds[number % 8];
  const std::string name =
      folder + (number % 5 == 3 ? "/off-" : "/on-") + kind + "-" + std::to_string(number);
  if (kind == "link") {
    volume.link(name, "../../../beside");
  } else if (kind == "package") {
    volume.file(name + "/a", name);
    volume.file(name + "/sub/b", name);
  } else {
    volume.file(name, name);
  }
}

Integer stateOf(std::string_view name) {
  if (name.starts_with("on-") || name.starts_with("all-")) return NSControlStateValueOn;
  if (name.starts_with("off-") || name.starts_with("none-")) return NSControlStateValueOff;
  return NSControlStateValueMixed;
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
  std::ranges::sort(names);
  return names;
}

Ref<FileInformation> makeFolderRecord(const std::string& path, const std::string& name, Integer finderID) {
  std::vector<Ref<FileInformation>> leaves;
  const std::string inside = path + '/';
  for (const std::string& leaf : namesIn(path)) {
    const bool isFolder = leaf.find(kPackage) != std::string::npos;
    leaves.push_back(makeRecord({URL::fileURL(inside + leaf, isFolder),
                                 stateOf(leaf),
                                 1,
                                 leaf.find(kHelper) == std::string::npos,
                                 {},
                                 static_cast<Integer>(leaves.size())}));
  }
  const auto size = static_cast<std::int64_t>(leaves.size());
  return makeRecord({URL::fileURL(path, true), stateOf(name), size, true, leaves, finderID});
}

}  // namespace

void makeFiles(const TemporaryVolume& volume) {
  volume.file("work/beside/file", "precious");
  volume.file("canary/folder/file", "precious");
  int categories = 0;
  for (const char* category : {"all", "mixed", "mixed", "mixed", "none"}) {
    const std::string top = "work/" + std::string(category) + "-" + std::to_string(categories++);
    for (int i = 0; i < kFolders; ++i) {
      constexpr const char* kStates[] = {"on", "off", "mixed", "mixed"};
      const std::string folder = top + "/" + kStates[i % 4] + "-" + std::to_string(i);
      for (int j = 0; j < kLeaves; ++j) makeLeaf(volume, folder, j);
    }
  }
}

std::vector<Ref<CategoryInformation>> makeRecords(const std::string& root,
                                                  const Ref<FeatureInformation>& feature) {
  std::vector<Ref<CategoryInformation>> categorys;
  const std::string work = root + "/work/";
  for (const std::string& category : namesIn(work)) {
    if (category == "beside") continue;
    const std::string top = work + category + '/';
    std::vector<Ref<FileInformation>> records;
    for (const std::string& folder : namesIn(top)) {
      const auto record = makeFolderRecord(top + folder, folder, static_cast<Integer>(records.size()));
      if (!record->childrens.empty()) records.push_back(record);
    }
    categorys.push_back(makeCategory(feature, stateOf(category), records));
  }
  return categorys;
}

bool isSelected(std::string_view path) {
  std::vector<std::string_view> names;
  for (std::size_t at = 0; at <= path.size();) {
    const std::size_t slash = std::min(path.find('/', at), path.size());
    names.push_back(path.substr(at, slash - at));
    at = slash + 1;
  }
  if (names.size() < 4 || names[0] != "work" || names[1] == "beside") return false;
  if (stateOf(names[1]) != NSControlStateValueMixed) return stateOf(names[1]) == NSControlStateValueOn;
  if (stateOf(names[2]) != NSControlStateValueMixed) return stateOf(names[2]) == NSControlStateValueOn;
  return stateOf(names[3]) == NSControlStateValueOn && names[3].find(kHelper) == std::string_view::npos;
}

}  // namespace sorrel::test::tickedtree
