#pragma once

#include <string>

struct sqlite3;

namespace sorrel {

/// A private copy of a database whose last writer was killed in the middle of a transaction, with the journal
/// that rolls the transaction back: for a reader that must not change the original. The copy lies in a folder
/// of its own, which only the user may enter, below the folder for temporary files.
class RolledBackCopy {
 public:
  /// True if `database`, which was opened read-only and is not in use, returns only an error because the
  /// journal beside it was not rolled back.
  [[nodiscard]] static bool isNeeded(sqlite3* database);

  /// Copies the file that `database` has open under the real path `path`. It can't change meanwhile: a
  /// program that would roll the journal back itself is locked out.
  RolledBackCopy(sqlite3* database, const std::string& path);
  /// Removes the copy's names; a connection that is still open keeps its contents.
  ~RolledBackCopy();
  RolledBackCopy(const RolledBackCopy&) = delete;
  RolledBackCopy& operator=(const RolledBackCopy&) = delete;

  /// Path of the copy; "" if there is none: another program works with the database, the journal belongs to a
  /// transaction over several databases (rolling that back could remove a file that the journal names), or
  /// one of the two files has more than 512 MiB.
  [[nodiscard]] const std::string& path() const { return path_; }

  /// Rolls the transaction back on a fresh connection to the copy, which must not be used for writing.
  static void rollBack(sqlite3* copy);

 private:
  std::string folder_;
  std::string path_;
};

}  // namespace sorrel
