#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sorrel::bench {

/// The minimum work on a tree: list each folder, query each file's size; one thread.
class BareWalk {
 public:
  /// Bytes of all files.
  double run(const std::string& tree) {
    folders = entries = 0;
    std::vector<char> buffer(65536);
    const int folder = ::open(tree.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const double sum = sizeOf(folder, buffer);
    ::close(folder);
    return sum;
  }

  std::size_t folders = 0;  ///< below the tree's root
  std::size_t entries = 0;  ///< files and folders

 private:
  struct Record {
    std::uint64_t inode;
    std::int64_t offset;
    unsigned short length;
    unsigned char type;
    char name[1];
  };

  static bool isDots(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
  }

  double sizeOf(int folder, std::vector<char>& buffer) {
    double sum = 0;
    std::vector<std::string> below;
    for (long got; (got = ::syscall(SYS_getdents64, folder, buffer.data(), buffer.size())) > 0;) {
      for (long at = 0; at < got;) {
        const auto* record = reinterpret_cast<const Record*>(buffer.data() + at);
        const char* name = buffer.data() + at + offsetof(Record, name);
        at += record->length;
        if (isDots(name)) continue;
        ++entries;
        if (record->type == DT_DIR) {
          below.emplace_back(name);
        } else {
          struct statx status {};
          if (::statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_STATX_DONT_SYNC, STATX_SIZE | STATX_TYPE,
                      &status) == 0) {
            sum += static_cast<double>(status.stx_size);
          }
        }
      }
    }
    folders += below.size();
    for (const std::string& name : below) {
      const int inside = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      if (inside < 0) continue;
      sum += sizeOf(inside, buffer);
      ::close(inside);
    }
    return sum;
  }
};

}  // namespace sorrel::bench
