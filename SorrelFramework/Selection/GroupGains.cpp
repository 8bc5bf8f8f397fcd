#include "SorrelFramework/Selection/GroupGains.hpp"

#include <sys/stat.h>

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/RecordName.hpp"
#include "SorrelFramework/Platform/Files/BlockSharing.hpp"
#include "SorrelFramework/Platform/Text/SizeText.hpp"

namespace sorrel {
namespace {

namespace fs = std::filesystem;

bool holdsHiddenItems(const std::string& folder) {
  std::error_code error;
  fs::recursive_directory_iterator at(folder, error);
  for (const fs::recursive_directory_iterator end; !error && at != end; at.increment(error)) {
    if (at->path().filename().string().starts_with('.')) return true;
  }
  return false;
}

/// The members of one group and the blocks they share.
class Group {
 public:
  explicit Group(const FileInformation& header) {
    members_.reserve(header.childrens.size());
    for (const FileInformation& member : header.childrens) lookAt(member);
  }

  [[nodiscard]] std::vector<Gain> gains() const {
    std::vector<Gain> all;
    all.reserve(members_.size());
    for (const Member& member : members_) all.push_back(gainOf(member));
    return all;
  }

 private:
  using FileID = std::pair<dev_t, ino_t>;
  struct Member {
    const FileInformation* record;
    mode_t mode = 0;  // 0 if it is gone
    nlink_t links = 0;
    FileID id;
  };
  struct File {
    std::string path;  // of the group's first member with this inode
    std::optional<BlockSharing> sharing;
  };
  struct Clones {
    std::string first;
    std::size_t count = 0;
  };

  void lookAt(const FileInformation& record) {
    const std::string path = pathOf(record.url);
    struct stat status {};
    const bool isThere = ::lstat(path.c_str(), &status) == 0;
    const FileID id(status.st_dev, status.st_ino);
    members_.push_back({&record, status.st_mode, status.st_nlink, id});
    if (!isThere || S_ISDIR(status.st_mode)) return;
    const auto [at, isNew] = files_.try_emplace(id, File{path, std::nullopt});
    if (!isNew) return;
    at->second.sharing = BlockSharing::of(path);
    if (at->second.sharing && !at->second.sharing->cloneText().empty()) {
      Clones& clones = clones_[at->second.sharing->cloneText()];
      if (clones.count++ == 0) clones.first = path;
    }
  }

  [[nodiscard]] Gain gainOf(const Member& member) const {
    if (member.mode == 0) return {0, "gone"};
    const std::string path = pathOf(member.record->url);
    if (S_ISDIR(member.mode)) {
      return {member.record->size, holdsHiddenItems(path) ? "hidden items in it were not compared" : ""};
    }
    const File& file = files_.at(member.id);
    const bool hasLinks = member.links > 1;
    if (file.path != path) return {0, (hasLinks ? "hard link of " : "the same file as ") + file.path};
    std::string note = noteOn(file);
    if (hasLinks) return {0, note + (note.empty() ? "" : ", ") + "has other hard links"};
    if (!file.sharing) return {member.record->size, ""};
    return {static_cast<std::int64_t>(file.sharing->ownBytes()), std::move(note)};
  }

  [[nodiscard]] std::string noteOn(const File& file) const {
    if (!file.sharing) return "";
    if (file.sharing->ownBytes() != 0) {
      return "shares " + sizeText(static_cast<std::int64_t>(file.sharing->sharedBytes())) +
             " with other files";
    }
    const auto clones = clones_.find(file.sharing->cloneText());
    if (clones != clones_.end() && clones->second.first != file.path)
      return "clone of " + clones->second.first;
    if (clones != clones_.end() && clones->second.count > 1) return "has clones";
    return "shares all of it with other files";
  }

  std::vector<Member> members_;
  std::map<FileID, File> files_;
  std::map<std::string, Clones> clones_;  // by BlockSharing::cloneText()
};

}  // namespace

std::vector<Gain> gainsOf(const FileInformation& group) { return Group(group).gains(); }

}  // namespace sorrel
