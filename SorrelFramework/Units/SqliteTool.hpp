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
/// folder stay as they are, in whatever state a browser left them, and no file is created beside them. A
/// transaction that a killed writer left unfinished is rolled back in a private copy, whose names are gone
/// when openDB() returns. The first executionSQL() reopens the file for writing. It never waits for locks of
/// other processes. One instance serves one database at a time and one thread at a time.
class SqliteTool {
 public:
  /// The connection; empty before openDB() and after a successful closeDB(). Reopened by the first
  /// executionSQL().
  sqlite3* runSqliteDB = nullptr;

  SqliteTool() = default;
  ~SqliteTool();
  SqliteTool(const SqliteTool&) = delete;
  SqliteTool& operator=(const SqliteTool&) = delete;

  /// False, with the reason printed (Platform/Base/LinePrinter.hpp), if there is no regular file that can be
  /// opened; a connection on which every query fails is kept then. A path with a zero byte returns false
  /// without a message and without a connection. Whether the file is a database shows at the first query
  /// only. A connection that is still open is closed first.
  [[nodiscard]] bool openDB(const std::string& dbPath);

  /// `dbPath` is not used. With `forcedClose` the connection is given up even if a statement is still open
  /// (it ends with that statement); without it, the close fails in that case and the connection stays. True
  /// if it is closed or never was open.
  bool closeDB(const std::string& dbPath, bool forcedClose = true);

  /// Runs all statements of `SQL`: (true, ""), or false with SQLite's message, or "Error" if it has none.
  std::pair<bool, std::string> executionSQL(const std::string& SQL);

  /// All rows of the first statement of `querySQL`, every value as its text, a BLOB up to its first zero
  /// byte. A lock, a broken file, a value over 16 MiB or a result over 512 MiB ends the rows without an
  /// error.
  [[nodiscard]] std::vector<SqliteRow> queryDBData(const std::string& querySQL);

  /// From now on this connection runs only transactions and deletions of rows of `table` whose condition
  /// reads that table only; everything else fails as "not authorized". "" lifts the rule. For statements that
  /// are built from the contents of a database.
  void restrictToDeleting(std::string_view table);

  /// `stop` is called from time to time while a statement runs, on the calling thread; true ends the
  /// statement. For the stop button, and for a database that was crafted to keep a reader busy forever.
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
