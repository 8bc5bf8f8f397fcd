// Random trees: the results of a scan equal those of a model that implements only the rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"
#include "Tests/Support/DuplicateKit.hpp"

namespace sorrel {
namespace {

using Names = std::vector<std::string>;
using Groups = std::set<Names>;

/// A folder of the test's own; both maps are in the order of the names' bytes.
struct Folder {
  std::map<std::string, std::string> files;  // content by name
  std::map<std::string, Folder> folders;
};

/// Makes folders that often resemble each other: copies of one another, some with one file changed.
class RandomTree {
 public:
  explicit RandomTree(unsigned seed) : random_(seed) {}

  Folder make(int depth = 3) {
    Folder folder;
    for (unsigned i = 1 + pick(4); i > 0; --i) folder.files["f" + std::to_string(pick(6))] = content();
    if (depth == 0) return folder;
    for (unsigned i = pick(4); i > 0; --i) {
      Folder below = !known_.empty() && pick(3) != 0 ? copy() : make(depth - 1);
      known_.push_back(below);
      folder.folders["d" + std::to_string(pick(6))] = std::move(below);
    }
    return folder;
  }

 private:
  unsigned pick(unsigned count) { return static_cast<unsigned>(random_() % count); }

  /// Few lengths, around the limit of one KiB, and few contents of each.
  std::string content() {
    static constexpr std::size_t kLengths[] = {0, 5, 1024, 1025, 1025, 2000};
    return std::string(kLengths[pick(6)], static_cast<char>('a' + pick(3)));
  }

  Folder copy() {
    Folder folder = known_[pick(static_cast<unsigned>(known_.size()))];
    if (pick(3) != 0) return folder;
    // One byte of a file, or the name of one.
    const auto first = folder.files.begin();
    if (!first->second.empty()) first->second.back() = 'z';
    if (pick(2) == 0) folder.files.insert_or_assign("g", std::exchange(first->second, ""));
    return folder;
  }

  std::mt19937 random_;
  std::vector<Folder> known_;
};

class Model {
 public:
  struct Result {
    Groups files;
    Groups folders;
  };

  Model(const Folder& root, std::size_t limit) : limit_(limit) { weigh("", root); }

  Result byTheDefaults() const {
    const auto [groups, leftOut] = folderGroups();
    std::map<std::string, Names> byContent;
    for (const auto& [path, content] : files_) {
      if (content.size() > limit_ && !leftOut.contains(path)) byContent[content].push_back(path);
    }
    return {groupsOf(byContent), groups};
  }

  Result ofEveryPair() const {
    const Groups groups = folderGroups().first;
    std::map<std::string, Names> byContent;
    std::set<std::string> outside;  // contents of files outside twin folders
    for (const auto& [path, content] : files_) {
      if (content.size() <= limit_) continue;
      byContent[content].push_back(path);
      if (!liesIn(groups, path)) outside.insert(content);
    }
    std::erase_if(byContent, [&](const auto& entry) { return !outside.contains(entry.first); });
    return {groupsOf(byContent), groups};
  }

  static bool liesIn(const Groups& folders, const std::string& path) {
    return std::ranges::any_of(folders, [&](const Names& group) {
      return std::ranges::any_of(group, [&](const std::string& folder) { return path.starts_with(folder); });
    });
  }

  [[nodiscard]] const std::map<std::string, std::string>& files() const { return files_; }

 private:
  struct Weighed {
    std::string path;
    std::size_t size = 0;
    std::size_t count = 0;
    std::set<std::size_t> below;
    std::string text;  // of all files
    Names files;
  };

  Weighed weigh(const std::string& path, const Folder& folder) {
    Weighed own{path, 0, 0, {}, "", {}};
    // Files and folders are visited in one order of names; here all names of folders come first.
    for (const auto& [name, below] : folder.folders) {
      const std::string subpath = path + name + "/";
      const Weighed sub = weigh(subpath, below);
      own.size += sub.size;
      own.count += sub.count;
      own.below.insert(sub.below.begin(), sub.below.end());
      own.below.insert(sub.size);
      own.text += sub.text;
      own.files.insert(own.files.end(), sub.files.begin(), sub.files.end());
    }
    for (const auto& [name, content] : folder.files) {
      files_[path + name] = content;
      own.size += content.size();
      ++own.count;
      own.text += std::to_string(content.size()) + content + ",";
      own.files.push_back(path + name);
    }
    if (own.size > limit_) bySize_[own.size].push_back(own);
    return own;
  }

  /// Twin folders, and the excluded files.
  std::pair<Groups, std::set<std::string>> folderGroups() const {
    std::set<std::size_t> covered;
    std::set<std::size_t> belowCandidates;
    std::vector<Weighed> candidates;
    for (auto size = bySize_.rbegin(); size != bySize_.rend(); ++size) {
      if (size->second.size() < 2 || covered.contains(size->first)) continue;
      for (const Weighed& folder : size->second) {
        const auto sameCount = std::ranges::count(size->second, folder.count, &Weighed::count);
        if (sameCount < 2) continue;
        covered.insert(folder.below.begin(), folder.below.end());
        belowCandidates.insert(folder.below.begin(), folder.below.end());
        candidates.push_back(folder);
      }
    }
    std::map<std::pair<std::size_t, std::string>, std::vector<Weighed>> byText;
    for (const Weighed& folder : candidates) {
      if (!belowCandidates.contains(folder.size)) byText[{folder.size, folder.text}].push_back(folder);
    }
    std::pair<Groups, std::set<std::string>> result;
    for (const auto& [text, folders] : byText) {
      Names paths;
      Names files;
      for (const Weighed& folder : folders) {
        paths.push_back(folder.path);
        files.insert(files.end(), folder.files.begin(), folder.files.end());
      }
      std::ranges::sort(paths);
      if (paths.size() > 1) result.first.insert(paths);
      if (files.size() > 1) result.second.insert(files.begin(), files.end());
    }
    return result;
  }

  static Groups groupsOf(const std::map<std::string, Names>& byContent) {
    Groups groups;
    for (const auto& [content, paths] : byContent) {
      if (paths.size() > 1) groups.insert(paths);
    }
    return groups;
  }

  std::size_t limit_;
  std::map<std::string, std::string> files_;
  std::map<std::size_t, std::vector<Weighed>> bySize_;
};

class RandomDuplicates : public test::DuplicateScan {
 protected:
  static constexpr unsigned kTrees = 40;

  /// The tree with this number, in a folder of its own.
  Model makeTree(unsigned number) {
    place_ = "Users/alice/Data/" + std::to_string(number) + "/";
    DuplicateScanService::limitSize = number % 2;
    const Folder root = RandomTree(number).make();
    volume.folder(place_);
    write(place_, root);
    return {root, static_cast<std::size_t>(DuplicateScanService::limitSize) * 1024};
  }

  Model::Result found() {
    scan.doneCount = 0;
    run({volume.url(place_)});
    Model::Result result;
    for (Names group : groupsBelow(place_)) {
      std::ranges::sort(group);
      (group.front().ends_with('/') ? result.folders : result.files).insert(group);
    }
    return result;
  }

 private:
  void write(const std::string& path, const Folder& folder) {
    for (const auto& [name, content] : folder.files) volume.file(path + name, content);
    for (const auto& [name, below] : folder.folders) write(path + name + "/", below);
  }

  std::string place_;
};

TEST_F(RandomDuplicates, areThoseOfTheModelByDefault) {
  std::size_t groups = 0;
  for (unsigned number = 0; number < kTrees; ++number) {
    const Model::Result expected = makeTree(number).byTheDefaults();
    const Model::Result result = found();
    ASSERT_EQ(result.folders, expected.folders) << number;
    ASSERT_EQ(result.files, expected.files) << number;
    groups += expected.folders.size() + expected.files.size();
  }
  EXPECT_GT(groups, kTrees);
}

TEST_F(RandomDuplicates, areEveryPairOfEqualFilesWithTheSwitch) {
  DuplicateScanService::findsEveryEqualPair = true;
  bool differs = false;
  for (unsigned number = 0; number < kTrees; ++number) {
    const Model model = makeTree(number);
    const Model::Result expected = model.ofEveryPair();
    differs = differs || expected.files != model.byTheDefaults().files;
    const Model::Result result = found();
    ASSERT_EQ(result.folders, expected.folders) << number;
    ASSERT_EQ(result.files, expected.files) << number;
  }
  EXPECT_TRUE(differs);
}

/// Independent of the implementation of the scan.
TEST_F(RandomDuplicates, leaveNoPairOutWithTheSwitch) {
  DuplicateScanService::findsEveryEqualPair = true;
  std::size_t pairs = 0;
  for (unsigned number = kTrees; number < 2 * kTrees; ++number) {
    const Model model = makeTree(number);
    const auto limit = static_cast<std::size_t>(DuplicateScanService::limitSize) * 1024;
    const Model::Result result = found();
    for (const auto& [a, content] : model.files()) {
      for (const auto& [b, other] : model.files()) {
        if (a >= b || content != other || content.size() <= limit) continue;
        ++pairs;
        const bool isInOneGroup = std::ranges::any_of(result.files, [&](const Names& group) {
          return std::ranges::count(group, a) == 1 && std::ranges::count(group, b) == 1;
        });
        ASSERT_TRUE(isInOneGroup || (Model::liesIn(result.folders, a) && Model::liesIn(result.folders, b)))
            << number << ": " << a << " and " << b;
      }
    }
  }
  EXPECT_GT(pairs, 10 * kTrees);
}

}  // namespace
}  // namespace sorrel
