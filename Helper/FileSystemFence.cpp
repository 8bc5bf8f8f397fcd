#include "Helper/FileSystemFence.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "SorrelFramework/Platform/FileDescriptor.hpp"

namespace sorrel::helper {
namespace {

// A type that is not here may be one that nobody has thought of.
constexpr std::string_view kLocalTypes[] = {
    "ext2",    "ext3", "ext4",     "xfs",      "btrfs", "f2fs",    "zfs",  "bcachefs", "jfs",
    "nilfs2",  "ntfs", "reiserfs", "vfat",     "msdos", "exfat",   "hfs",  "hfsplus",  "ntfs3",
    "iso9660", "udf",  "erofs",    "squashfs", "tmpfs", "overlay", "apfs", "ecryptfs", "minix"};

class OwnMountTable : public MountSource {
 public:
  bool hasChanged() override {
    pollfd table{table_.get(), POLLPRI, 0};
    // A table that can't be watched may always be another.
    return ::poll(&table, 1, 0) != 0 || !table_.isOpen();
  }

  std::string read() override {
    std::string text;
    std::array<char, 4096> buffer{};
    if (::lseek(table_.get(), 0, SEEK_SET) != 0) return text;
    for (ssize_t got = 0; (got = ::read(table_.get(), buffer.data(), buffer.size())) > 0;) {
      text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return text;
  }

 private:
  FileDescriptor table_{::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC)};
};

std::string_view takeField(std::string_view& line) {
  const std::size_t end = std::min(line.find(' '), line.size());
  const std::string_view field = line.substr(0, end);
  line.remove_prefix(std::min(end + 1, line.size()));
  return field;
}

}  // namespace

std::unique_ptr<MountSource> MountSource::ofThisProcess() { return std::make_unique<OwnMountTable>(); }

FileSystemFence::FileSystemFence(std::vector<std::string> allowedTypes, std::unique_ptr<MountSource> source)
    : allowedTypes_(std::move(allowedTypes)), source_(std::move(source)) {
  read();
}

bool FileSystemFence::mayEnter(std::uint64_t mount) {
  // The number of a mount that is gone may already be that of another.
  if (source_->hasChanged()) read();
  const auto found = types_.find(mount);
  return found != types_.end() && isAllowed(found->second);
}

// number parent major:minor root mount-point options optional-fields... - TYPE source super-options
std::map<std::uint64_t, std::string> FileSystemFence::typesIn(std::string_view mountTable) {
  std::map<std::uint64_t, std::string> types;
  while (!mountTable.empty()) {
    std::string_view line = mountTable.substr(0, mountTable.find('\n'));
    mountTable.remove_prefix(std::min(line.size() + 1, mountTable.size()));
    std::uint64_t mount = 0;
    const std::string_view number = takeField(line);
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), mount);
    if (error != std::errc() || end != number.data() + number.size()) continue;
    constexpr int kBeforeOptional = 5;
    for (int i = 0; i < kBeforeOptional; ++i) takeField(line);
    while (!line.empty() && takeField(line) != "-") continue;
    const std::string_view type = takeField(line);
    if (!type.empty()) types[mount] = type;
  }
  return types;
}

void FileSystemFence::read() { types_ = typesIn(source_->read()); }

bool FileSystemFence::isAllowed(std::string_view type) const {
  return std::ranges::find(kLocalTypes, type) != std::end(kLocalTypes) ||
         std::ranges::find(allowedTypes_, type) != allowedTypes_.end();
}

}  // namespace sorrel::helper
