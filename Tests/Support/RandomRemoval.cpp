#include "Tests/Support/RandomRemoval.hpp"

#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/RemovalKit.hpp"

namespace sorrel::test {
namespace {

/// One tree, a selection in it, and a removal of the selection.
class RandomCase {
 public:
  RandomCase(const TemporaryVolume& volume, std::uint64_t seed)
      : top_(volume.folder("case")),
        random_(seed),
        isRoot_(::geteuid() == 0),
        isPlain_(isRoot_ && pick(2) == 0) {
    volume.setMode("", 0755);
    makeTree();
  }

  /// The fault of the removal, "" if there is none.
  std::string run(const RemovalPolicy& policy) {
    const auto before = byPath();
    for (std::size_t i = 0, count = 1 + pick(4); i < count; ++i)
      selected_.insert(paths_[pick(paths_.size())]);
    std::string wrong;
    for (const std::string& path : selected_) wrong += removeOne(path, policy);
    return wrong + compare(before, byPath());
  }

 private:
  using Entries = std::map<std::string, TreeEntry>;

  std::size_t pick(std::size_t count) { return static_cast<std::size_t>(random_() % count); }

  std::string newName() {
    static const std::array<std::string, 10> odd = {"-rf", "a\nb", "\xFF", " ", "*",
                                                    "%2F", "...",  "é",    "~", std::string(255, 'l')};
    const std::string number = std::to_string(paths_.size());
    return pick(4) != 0 ? number : odd[pick(odd.size())].substr(0, 250) + number;
  }

  void makeTree() {
    std::vector<std::string> folders = {top_};
    std::vector<std::string> files;
    for (std::size_t i = 0, count = 3 + pick(25); i < count; ++i) {
      const std::string path = folders[pick(folders.size())] + '/' + newName();
      switch (pick(8)) {
        case 0:
        case 1:
        case 2:
          ::mkdir(path.c_str(), 0755);
          folders.push_back(path);
          break;
        case 3: {
          const std::array<std::string, 5> targets = {"/", "..", ".", "none", top_};
          const std::string target =
              paths_.empty() || pick(2) == 0 ? targets[pick(5)] : paths_[pick(paths_.size())];
          ::symlink(target.c_str(), path.c_str());
          break;
        }
        case 4:
          ::mkfifo(path.c_str(), 0600);
          break;
        case 5:
          if (!files.empty() && ::link(files[pick(files.size())].c_str(), path.c_str()) == 0) break;
          [[fallthrough]];
        default:
          std::ofstream(path) << i;
          files.push_back(path);
      }
      paths_.push_back(path);
    }
    if (isPlain_) giveAway(folders);
  }

  /// Makes permissions matter: each item belongs to the plain user or to root, folders have unusual modes.
  void giveAway(const std::vector<std::string>& folders) {
    static constexpr std::array<mode_t, 7> modes = {0755, 0755, 0755, 0700, 0500, 0000, 01777};
    for (const std::string& path : paths_) {
      if (pick(4) != 0) {
        EXPECT_EQ(::lchown(path.c_str(), kPlainUser, kPlainUser), 0);
      }
    }
    EXPECT_EQ(::lchown(top_.c_str(), kPlainUser, kPlainUser), 0);
    for (std::size_t i = 1; i < folders.size(); ++i) ::chmod(folders[i].c_str(), modes[pick(modes.size())]);
  }

  std::string removeOne(const std::string& path, const RemovalPolicy& policy) const {
    const bool wasThere = isThere(path);
    if (isPlain_) ::setfsuid(kPlainUser);
    const RemovalResult result = removeItem(path, policy);
    if (isPlain_) ::setfsuid(0);
    if (!wasThere) return result.error != 0 ? "" : path + ": was gone, and reported as removed\n";
    if (result.isSuccess() == isThere(path)) return path + ": ended with " + textOf(result) + '\n';
    if (!result.isSuccess() && isRoot_ && !isPlain_) return path + ": root failed, " + textOf(result) + '\n';
    return "";
  }

  [[nodiscard]] Entries byPath() const {
    Entries entries;
    for (TreeEntry& entry : snapshotOf(top_)) {
      if (S_ISDIR(entry.mode)) entry.size = entry.modifiedSeconds = entry.modifiedNanoseconds = 0;
      entries.emplace(top_ + '/' + entry.path, entry);
    }
    return entries;
  }

  [[nodiscard]] bool isSelected(const std::string& path) const {
    return std::ranges::any_of(
        selected_, [&](const std::string& item) { return path == item || path.starts_with(item + '/'); });
  }

  [[nodiscard]] std::string compare(const Entries& before, const Entries& after) const {
    std::string wrong;
    for (const auto& [path, entry] : before) {
      const auto found = after.find(path);
      if (found == after.end() ? !isSelected(path) : found->second != entry) wrong += path + ": changed\n";
    }
    for (const auto& [path, entry] : after) {
      if (!before.contains(path)) wrong += path + ": new\n";
    }
    return wrong;
  }

  std::string top_;
  std::mt19937_64 random_;
  bool isRoot_;
  bool isPlain_;
  std::vector<std::string> paths_;
  std::set<std::string> selected_;
};

}  // namespace

std::string faultOfRandomRemoval(std::uint64_t seed, const RemovalPolicy& policy) {
  const TemporaryVolume volume;
  return RandomCase(volume, seed).run(policy);
}

}  // namespace sorrel::test
