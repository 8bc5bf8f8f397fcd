#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Units/SqliteRow.hpp"

struct sqlite3;

namespace sorrel {

/// One connection to the database of another program. Reading leaves no trace: the database, its log and its
/// folder stay as they are, whatever state a browser left them in, and nothing is created beside them. What a
/// killed writer left half done is rolled back in a private copy, whose names are gone when openDB() returns.
/// The first executionSQL() opens the file anew for writing. Locks of others are never waited for. One
/// instance serves one database at a time and one thread at a time.
class SqliteTool {
 public:
  /// The connection; empty before openDB() and after a successful closeDB(). Reopened by the first
  /// executionSQL().
  sqlite3* runSqliteDB = nullptr;

  SqliteTool() = default;
  ~SqliteTool();
  SqliteTool(const SqliteTool&) = delete;
  SqliteTool& operator=(const SqliteTool&) = delete;

  /// False, with the reason printed (Platform/Base/LinePrinter.hpp), for anything but a regular file that can
  /// be opened, a missing one too; a connection that answers nothing is kept then. A path with a zero byte is
  /// false without a word and without a connection. Whether the file is a database shows at the first query
  /// only. A connection that is still open is closed first.
  [[nodiscard]] bool openDB(const std::string& dbPath);

  /// `dbPath` is not used. With `forcedClose` the connection is given up even if a statement is still open
  /// (it ends with that statement); without, the close fails then and the connection stays. True if it is
  /// closed or never was open.
  bool closeDB(const std::string& dbPath, bool forcedClose = true);

  /// Runs all statements of `SQL`: (true, ""), or false with SQLite's message, or "Error" if it has none.
  std::pair<bool, std::string> executionSQL(const std::string& SQL);

  /// All rows of the first statement of `querySQL`, every value as its text, a BLOB up to its first zero
  /// byte. A lock, a broken file, a value over 16 MiB or a result over 512 MiB ends the rows without an
  /// error.
  [[nodiscard]] std::vector<SqliteRow> queryDBData(const std::string& querySQL);

  /// From now on this connection runs nothing but transactions and deletions of rows of `table` whose
  /// condition reads that table only; everything else fails as "not authorized". "" lifts the rule. For
  /// statements that are put together from what a database held.
  void restrictToDeleting(std::string_view table);

  /// `stop` is asked now and then while a statement runs, on the calling thread; true ends the statement. For
  /// the stop button, and for a database that was made to keep a reader busy forever.
  void setStopCondition(std::function<bool()> stop);

 private:
  bool connect(const std::string& name, int flags, const char* vfs);
  bool connectForReading();
  bool connectToCopy();
  bool reopenForWriting();
  void limitConnection();
  void applyRules();

  std::string path_;  // as resolved by openDB(); "" if it failed
  bool writable_ = false;
  std::string deletingTable_;  // "" without the rule of restrictToDeleting()
  std::function<bool()> stop_;
};

}  // namespace sorrel
