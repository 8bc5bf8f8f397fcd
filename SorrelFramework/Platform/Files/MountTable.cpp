#include "SorrelFramework/Platform/Files/MountTable.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <optional>
#include <utility>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {
namespace {

constexpr std::string_view kLayerOptions[] = {"lowerdir+", "datadir+", "upperdir", "workdir"};
constexpr std::string_view kServedTypes[] = {"nfs",    "nfs4",   "cifs", "smb3",  "smbfs",
                                             "9p",     "afs",    "ceph", "coda",  "ncpfs",
                                             "autofs", "lustre", "gfs2", "ocfs2", "virtiofs"};

class OwnMountTable : public MountSource {
 public:
  bool hasChanged() override {
    pollfd table{table_.get(), POLLPRI, 0};
    // A table that can't be watched counts as changed.
    return ::poll(&table, 1, 0) != 0 || !table_.isOpen();
  }

  std::string read() override {
    std::string text;
    std::array<char, 4096> buffer{};
    if (!table_.isOpen()) table_ = opened();
    if (::lseek(table_.get(), 0, SEEK_SET) != 0) return text;
    for (ssize_t got = 0; (got = ::read(table_.get(), buffer.data(), buffer.size())) > 0;) {
      text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return text;
  }

 private:
  static FileDescriptor opened() { return FileDescriptor(::open(kTable, O_RDONLY | O_CLOEXEC)); }

  FileDescriptor table_ = opened();
};

std::string_view takeField(std::string_view& line) {
  const std::size_t end = std::min(line.find(' '), line.size());
  const std::string_view field = line.substr(0, end);
  line.remove_prefix(std::min(end + 1, line.size()));
  return field;
}

bool isOctal(char c) { return c >= '0' && c <= '7'; }

/// Decodes the \ooo escapes of blanks, tabs, newlines and backslashes.
std::string unescaped(std::string_view field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size() && isOctal(field[i + 1]) && isOctal(field[i + 2]) &&
        isOctal(field[i + 3])) {
      text += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0'));
      i += 3;
    } else {
      text += field[i];
    }
  }
  return text;
}

/// Splits a list of paths at its colons; a backslash makes the next byte part of a path.
void addListed(std::string_view value, std::vector<std::string>& paths) {
  std::string path;
  for (std::size_t i = 0; i <= value.size(); ++i) {
    if (i == value.size() || value[i] == ':') {
      if (!path.empty()) paths.push_back(std::exchange(path, {}));
    } else {
      if (value[i] == '\\' && i + 1 < value.size()) ++i;
      path += value[i];
    }
  }
}

/// Old kernels show the path of an option with the backslashes that it was given with, newer ones without.
void addSingle(const std::string& value, std::vector<std::string>& paths) {
  paths.push_back(value);
  std::string plain;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '\\' && i + 1 < value.size()) ++i;
    plain += value[i];
  }
  if (plain != value) paths.push_back(plain);
}

/// In the options of an overlay every comma of a path is written as \054.
std::vector<std::string> layersIn(std::string_view options) {
  std::vector<std::string> layers;
  while (!options.empty()) {
    const std::string_view option = options.substr(0, options.find(','));
    options.remove_prefix(std::min(option.size() + 1, options.size()));
    const std::size_t equals = option.find('=');
    if (equals == std::string_view::npos) continue;
    const std::string_view key = option.substr(0, equals);
    const std::string value = unescaped(option.substr(equals + 1));
    if (key == "lowerdir") addListed(value, layers);
    if (std::ranges::find(kLayerOptions, key) != std::end(kLayerOptions)) addSingle(value, layers);
  }
  return layers;
}

// number parent major:minor root mount-point options optional-fields... - TYPE source super-options
std::optional<Mount> parsed(std::string_view line) {
  Mount mount;
  const std::string_view number = takeField(line);
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), mount.number);
  if (error != std::errc() || end != number.data() + number.size()) return std::nullopt;
  takeField(line);
  mount.device = takeField(line);
  mount.root = unescaped(takeField(line));
  mount.point = unescaped(takeField(line));
  takeField(line);
  while (!line.empty() && takeField(line) != "-") continue;
  mount.type = unescaped(takeField(line));
  if (mount.type.empty() || !mount.point.starts_with('/')) return std::nullopt;
  takeField(line);
  if (mount.type == "overlay") mount.layers = layersIn(takeField(line));
  return mount;
}

}  // namespace

bool isServedType(std::string_view type) {
  return type.starts_with("fuse") || std::ranges::find(kServedTypes, type) != std::end(kServedTypes);
}

std::vector<Mount> mountsIn(std::string_view mountTable) {
  std::vector<Mount> mounts;
  while (!mountTable.empty()) {
    const std::string_view line = mountTable.substr(0, mountTable.find('\n'));
    mountTable.remove_prefix(std::min(line.size() + 1, mountTable.size()));
    if (auto mount = parsed(line)) mounts.push_back(std::move(*mount));
  }
  return mounts;
}

std::unique_ptr<MountSource> MountSource::ofThisProcess() { return std::make_unique<OwnMountTable>(); }

bool MountTable::refresh() {
  if (!source_) source_ = MountSource::ofThisProcess();
  if (isRead_ && !source_->hasChanged()) return false;
  mounts_ = mountsIn(source_->read());
  places_.clear();
  for (std::size_t i = 0; i < mounts_.size(); ++i) places_.emplace(mounts_[i].number, i);
  return isRead_ = true;
}

const Mount* MountTable::find(std::uint64_t number) const {
  const auto found = places_.find(number);
  return found == places_.end() ? nullptr : &mounts_[found->second];
}

}  // namespace sorrel
