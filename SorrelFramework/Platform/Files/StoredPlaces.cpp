#include "Host/StoredPlaces.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <system_error>

namespace sorrel::cli {
namespace {

namespace fs = std::filesystem;

/// Undoes the \ooo of blanks, tabs, newlines and backslashes.
std::string unescaped(const std::string& field) {
  constexpr std::size_t kDigits = 3;
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    const std::string digits = field[i] == '\\' ? field.substr(i + 1, kDigits) : "";
    if (digits.size() == kDigits && digits.find_first_not_of("01234567") == std::string::npos) {
      text += static_cast<char>(std::stoi(digits, nullptr, 8));
      i += kDigits;
    } else {
      text += field[i];
    }
  }
  return text;
}

std::string withoutSlashAtEnd(std::string path) {
  if (path.ends_with('/')) path.pop_back();
  return path;
}

/// The path without links above the item; the item may be one.
std::optional<std::string> realPath(const std::string& path, bool isLink) {
  std::error_code error;
  const fs::path given(path);
  const fs::path real =
      isLink ? fs::canonical(given.parent_path(), error) / given.filename() : fs::canonical(given, error);
  return error ? std::nullopt : std::optional<std::string>(real.native());
}

}  // namespace

StoredPlaces::StoredPlaces(std::string_view mountTable) {
  std::istringstream table{std::string(mountTable)};
  for (std::string text; std::getline(table, text);) {
    std::istringstream line(text);
    std::uint64_t number = 0;
    std::string parent;
    std::string device;
    std::string root;
    std::string point;
    if (!(line >> number >> parent >> device >> root >> point)) continue;
    mounts_[number] = {device + withoutSlashAtEnd(unescaped(root)), withoutSlashAtEnd(unescaped(point))};
  }
}

StoredPlaces StoredPlaces::ofThisMoment() {
  std::ifstream table("/proc/self/mountinfo", std::ios::binary);
  return StoredPlaces(std::string(std::istreambuf_iterator<char>(table), {}));
}

std::string StoredPlaces::of(const std::string& path) const {
  struct statx status {};
  constexpr int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
  if (::statx(AT_FDCWD, path.c_str(), flags, STATX_TYPE | STATX_MNT_ID, &status) != 0) return path;
  const auto mount = mounts_.find(status.stx_mnt_id);
  if (mount == mounts_.end()) return path;
  const std::optional<std::string> real = realPath(path, S_ISLNK(status.stx_mode));
  const std::string& point = mount->second.point;
  if (!real || !(withoutSlashAtEnd(*real) + '/').starts_with(point + '/')) return path;
  return mount->second.place + withoutSlashAtEnd(*real).substr(point.size());
}

}  // namespace sorrel::cli
