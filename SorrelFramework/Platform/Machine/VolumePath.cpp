#include "SorrelFramework/Platform/Machine/VolumePath.hpp"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <optional>
#include <utility>

#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel {
namespace {

constexpr int kMostLinks = 40;

std::optional<mode_t> modeOf(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
  return status.st_mode;
}

std::string targetOf(const std::string& link) {
  std::array<char, PATH_MAX> target;
  const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
  return length > 0 ? std::string(target.data(), static_cast<std::size_t>(length)) : std::string();
}

class Resolver {
 public:
  Resolver(const std::string& root, std::string_view path, LastLink last)
      : root_(root), rest_(path.substr(root.size())), last_(last) {}

  VolumePlace run(std::string_view given) {
    bool exists = true;
    while (exists && dropSlashes()) exists = step();
    VolumePlace place;
    place.exists = exists;
    place.real = root_ + found_ + rest_;
    if (place.real.empty()) place.real = "/";
    const bool isKept = exists ? !isRespelled_ && !isRedirected_ : !isRedirected_;
    place.path = isKept ? std::string(given) : place.real;
    return place;
  }

 private:
  /// False at the end of the path.
  bool dropSlashes() {
    rest_.erase(0, std::min(rest_.find_first_not_of('/'), rest_.size()));
    return !rest_.empty();
  }

  /// Advances by one component; false if there is no such item.
  bool step() {
    const std::string name = rest_.substr(0, rest_.find('/'));
    std::string rest = rest_.substr(name.size());
    if (name == "." || name == "..") {
      if (name == "..") goUp();
      rest_ = std::move(rest);
      return true;
    }
    const auto [spelled, mode] = find(name);
    if (!mode) {
      rest_.insert(0, "/");
      return false;
    }
    const bool isLast = rest.find_first_not_of('/') == std::string::npos;
    if (S_ISLNK(*mode) && (!isLast || last_ == LastLink::Followed))
      return follow(targetOf(root_ + found_ + '/' + spelled), rest);
    found_ += '/' + spelled;
    rest_ = std::move(rest);
    return true;
  }

  void goUp() {
    if (found_.empty()) isRedirected_ = true;
    found_.resize(found_.empty() ? 0 : found_.rfind('/'));
  }

  bool follow(const std::string& target, const std::string& rest) {
    if (target.empty() || ++links_ > kMostLinks) {
      rest_.insert(0, "/");
      return false;
    }
    if (target.front() == '/') {
      found_.clear();
      isRedirected_ = true;
    }
    rest_ = target + rest;
    return true;
  }

  std::pair<std::string, std::optional<mode_t>> find(const std::string& name) {
    const std::string folder = root_ + found_ + '/';
    if (const auto mode = modeOf(folder + name)) return {name, mode};
    const auto names = namesIn(folder);
    // Not strcasecmp(3), which follows the locale: a Turkish desktop would distinguish "I" from "i".
    const auto match = std::ranges::find_if(names, [wanted = lowercased(name)](const std::string& candidate) {
      return textEqual(lowercased(candidate), wanted);
    });
    if (match == names.end()) return {name, std::nullopt};
    isRespelled_ = true;
    return {*match, modeOf(folder + *match)};
  }

  const std::string& root_;
  std::string found_;  // below the root, without links
  std::string rest_;
  LastLink last_;
  int links_ = 0;
  bool isRespelled_ = false;   // a name differs in letter case
  bool isRedirected_ = false;  // a link resolves differently than on this machine
};

}  // namespace

VolumePlace placeOnVolume(const std::string& root, std::string_view path, LastLink last) {
  return Resolver(root, path, last).run(path);
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  if (DIR* stream = ::opendir(folder.c_str())) {
    while (const dirent* entry = ::readdir(stream)) {
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") names.emplace_back(name);
    }
    ::closedir(stream);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace sorrel
