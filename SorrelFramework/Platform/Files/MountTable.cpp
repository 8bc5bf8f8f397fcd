#include "SorrelFramework/Platform/Files/MountTable.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <utility>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {
namespace {

class OwnMountTable : public MountSource {
 public:
  bool hasChanged() override {
    pollfd table{table_.get(), POLLPRI, 0};
    // A table that can't be watched may always have changed.
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
  static FileDescriptor opened() {
    return FileDescriptor(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
  }

  FileDescriptor table_ = opened();
};

std::string_view takeField(std::string_view& line) {
  const std::size_t end = std::min(line.find(' '), line.size());
  const std::string_view field = line.substr(0, end);
  line.remove_prefix(std::min(end + 1, line.size()));
  return field;
}

bool isOctal(char c) { return c >= '0' && c <= '7'; }

/// Undoes the \ooo of blanks, tabs, newlines and backslashes.
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
  return mount;
}

}  // namespace

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
  return isRead_ = true;
}

const Mount* MountTable::find(std::uint64_t number) const {
  const auto found = std::ranges::find(mounts_, number, &Mount::number);
  return found == mounts_.end() ? nullptr : &*found;
}

}  // namespace sorrel
