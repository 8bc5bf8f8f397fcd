#include "Host/ScanPlaces.hpp"

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "Host/CommandError.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"

namespace sorrel::cli {
namespace {

namespace fs = std::filesystem;

struct Place {
  std::string path;
  FileStatus status;
};

bool isBelow(const std::string& path, const std::string& folder) {
  const std::string above = folder.ends_with('/') ? folder : folder + '/';
  return path.size() > above.size() && path.starts_with(above);
}

/// The volume keeps the path that the user gave it, which may contain links: items on it are shown below that
/// path too.
std::string underVolumesName(const std::string& path) {
  const std::string& root = Host::current().root();
  if (root.empty()) return path;
  std::error_code error;
  const std::string straight = fs::canonical(root, error).string();
  if (error || (path != straight && !isBelow(path, straight))) return path;
  return root + path.substr(straight == "/" ? 0 : straight.size());
}

/// Follows a path of this machine to an item of the volume: its own links as its own system does, below its
/// root, and those outside of it as this machine does.
class VolumeRoute {
 public:
  explicit VolumeRoute(std::error_code& error)
      : root_(Host::current().root()), straightRoot_(fs::canonical(root_ + '/', error).string()) {
    enter("/");
  }

  /// Goes on by one component; false if there is no such item.
  bool step(const std::string& name, std::error_code& error) {
    if (!onVolume_) {
      const std::string next = fs::canonical(here_ + '/' + name, error).string();
      if (!error) enter(next);
    } else if (name != "..") {
      const std::string next = Host::current().followingLinks(*onVolume_ + '/' + name);
      onVolume_ = belowRoot(fs::canonical(next, error).string());
      if (!onVolume_ && !error) error = std::make_error_code(std::errc::no_such_file_or_directory);
    } else if (onVolume_->size() == root_.size()) {
      onVolume_.reset();
      enter(fs::path(straightRoot_).parent_path().string());
    } else {
      onVolume_->resize(onVolume_->rfind('/'));
    }
    return !error;
  }
  /// The path with the volume's name as the user gave it; nothing off the volume.
  [[nodiscard]] std::optional<std::string> onVolume() const {
    return onVolume_ && onVolume_->empty() ? "/" : onVolume_;
  }

 private:
  void enter(const std::string& place) {
    here_ = place;
    onVolume_ = belowRoot(place);
  }
  /// A path without links by the volume's name, without a slash at its end.
  [[nodiscard]] std::optional<std::string> belowRoot(const std::string& straight) const {
    if (straight == straightRoot_) return root_;
    if (!isBelow(straight, straightRoot_)) return std::nullopt;
    return root_ + straight.substr(straightRoot_ == "/" ? 0 : straightRoot_.size());
  }

  const std::string& root_;
  std::string straightRoot_;
  std::string here_;  // without links, while it lies off the volume
  std::optional<std::string> onVolume_;
};

Place placeOf(const std::string& word) {
  const auto refuse = [&word](const std::string& why) {
    throw CommandError(ExitStatus::WrongUse, "the PATH '" + word + "' " + why + ".");
  };
  std::error_code error;
  const auto straight = scannedPath(word, error);
  if (!straight) refuse("can't be reached: " + (error ? error.message() : "It is not on the volume"));
  const auto status = statusOf(*straight);
  if (!status) refuse("can't be reached");
  if (!status->isDirectory() && !status->isRegularFile()) refuse("is neither a folder nor a file");
  return {*straight, *status};
}

}  // namespace

std::optional<std::string> straightPath(const std::string& word, std::error_code& error) {
  const std::string straight = fs::canonical(word, error).string();
  if (error) return std::nullopt;
  return underVolumesName(straight);
}

std::optional<std::string> scannedPath(const std::string& word, std::error_code& error) {
  if (Host::current().layout() != Host::Layout::MacVolume || word.empty()) return straightPath(word, error);
  VolumeRoute route(error);
  if (error) return std::nullopt;
  for (const fs::path& name : fs::absolute(word, error).relative_path()) {
    if (error || (!name.empty() && name != "." && !route.step(name.string(), error))) return std::nullopt;
  }
  return error ? std::nullopt : route.onVolume();
}

std::vector<URL> scanPlaces(const std::vector<std::string>& words) {
  std::vector<Place> places;
  places.reserve(words.size());
  for (const std::string& word : words) places.push_back(placeOf(word));

  std::vector<URL> urls;
  std::set<std::pair<std::uint64_t, std::uint64_t>> known;  // device and inode: a folder may be mounted twice
  for (const Place& place : places) {
    const bool isInside =
        std::ranges::any_of(places, [&](const Place& other) { return isBelow(place.path, other.path); });
    const bool isFolder = place.status.isDirectory();
    if (isInside || (isFolder && !known.insert({place.status.device, place.status.inode}).second)) continue;
    const URL url = URL::fileURL(place.path, isFolder);
    if (std::ranges::find(urls, url) == urls.end()) urls.push_back(url);
  }
  return urls;
}

URL homePlace() {
  const Place home = placeOf(Host::current().home());
  return URL::fileURL(home.path, home.status.isDirectory());
}

}  // namespace sorrel::cli
