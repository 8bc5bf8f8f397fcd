#include "SorrelFramework/Units/RolledBackCopy.hpp"

#include <fcntl.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Platform/Files/FileBytes.hpp"

namespace sorrel {
namespace {

constexpr std::int64_t kMaximumBytes = std::int64_t{512} * 1024 * 1024;
constexpr std::size_t kChunk = std::size_t{256} * 1024;
// The last bytes of a journal that names a super-journal (Database File Format, 3; pager.c,
// readSuperJournal).
constexpr std::string_view kJournalMagic("\xd9\xd5\x05\xf9\x20\xa1\x63\xd7", 8);

std::string privateFolder() {
  std::error_code error;
  std::string folder = (std::filesystem::temp_directory_path(error) / "sorrel-XXXXXX").string();
  return !error && ::mkdtemp(folder.data()) != nullptr ? folder : std::string();
}

FileDescriptor newFile(const std::string& path) {
  return FileDescriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
}

bool copyJournal(const std::string& from, const std::string& to) {
  const auto bytes = readFileBytes(from, static_cast<std::size_t>(kMaximumBytes));
  if (!bytes || bytes->empty() || bytes->ends_with(kJournalMagic)) return false;
  return writeAll(newFile(to).get(), *bytes);
}

/// Through SQLite's own descriptor: opening and closing the file once more would drop the locks of this
/// process's other connections.
bool copyDatabase(sqlite3_file& from, const std::string& path) {
  sqlite3_int64 size = 0;
  if (from.pMethods->xFileSize(&from, &size) != SQLITE_OK || size > kMaximumBytes) return false;
  const FileDescriptor to = newFile(path);
  std::vector<char> buffer(kChunk);
  for (sqlite3_int64 at = 0; at < size;) {
    const auto count = static_cast<int>(std::min<sqlite3_int64>(size - at, kChunk));
    if (from.pMethods->xRead(&from, buffer.data(), count, at) != SQLITE_OK) return false;
    if (!writeAll(to.get(), {buffer.data(), static_cast<std::size_t>(count)})) return false;
    at += count;
  }
  return true;
}

sqlite3_file* fileOf(sqlite3* database) {
  sqlite3_file* file = nullptr;
  const int code =
      sqlite3_file_control(database, "main", SQLITE_FCNTL_FILE_POINTER, static_cast<void*>(&file));
  return code == SQLITE_OK && file != nullptr && file->pMethods != nullptr ? file : nullptr;
}

bool copyLocked(sqlite3* database, const std::string& from, const std::string& to) {
  sqlite3_file* const file = fileOf(database);
  if (file == nullptr || file->pMethods->xLock(file, SQLITE_LOCK_SHARED) != SQLITE_OK) return false;
  const bool copied = copyJournal(from + "-journal", to + "-journal") && copyDatabase(*file, to);
  file->pMethods->xUnlock(file, SQLITE_LOCK_NONE);
  return copied;
}

}  // namespace

bool RolledBackCopy::isNeeded(sqlite3* database) {
  sqlite3_exec(database, "select 1 from sqlite_master limit 1", nullptr, nullptr, nullptr);
  return sqlite3_extended_errcode(database) == SQLITE_READONLY_ROLLBACK;
}

RolledBackCopy::RolledBackCopy(sqlite3* database, const std::string& path) : folder_(privateFolder()) {
  if (folder_.empty()) return;
  const std::string copy = folder_ + "/database";
  if (copyLocked(database, path, copy)) path_ = copy;
}

RolledBackCopy::~RolledBackCopy() {
  if (folder_.empty()) return;
  ::unlink((folder_ + "/database-journal").c_str());
  ::unlink((folder_ + "/database").c_str());
  ::rmdir(folder_.c_str());
}

void RolledBackCopy::rollBack(sqlite3* copy) {
  // With the exclusive mode, set before the first read, SQLite does not look for side files after the names
  // are removed.
  sqlite3_exec(copy,
               "pragma locking_mode=exclusive; pragma synchronous=off; select 1 from sqlite_master limit 1;"
               "pragma query_only=1",
               nullptr, nullptr, nullptr);
}

}  // namespace sorrel
