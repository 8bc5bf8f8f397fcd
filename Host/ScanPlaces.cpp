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

/// The volume is known by the name that the user gave it, which links may be part of: what lies on it is
/// called by that name too.
std::string underVolumesName(const std::string& path) {
  const std::string& root = Host::current().root();
  if (root.empty()) return path;
  std::error_code error;
  const std::string straight = fs::canonical(root, error).string();
  if (error || (path != straight && !isBelow(path, straight))) return path;
  return root + path.substr(straight == "/" ? 0 : straight.size());
}

Place placeOf(const std::string& word) {
  const auto refuse = [&word](const std::string& why) {
    throw CommandError(ExitStatus::WrongUse, "the PATH '" + word + "' " + why + ".");
  };
  std::error_code error;
  const auto straight = straightPath(word, error);
  if (!straight) refuse("can't be reached: " + error.message());
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

std::vector<URL> scanPlaces(const std::vector<std::string>& words) {
  std::vector<Place> places;
  places.reserve(words.size());
  for (const std::string& word : words) places.push_back(placeOf(word));

  std::vector<URL> urls;
  std::set<std::pair<std::uint64_t, std::uint64_t>> known;  // by device and inode: a folder mounted twice
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
