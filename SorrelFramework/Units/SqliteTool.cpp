#include "SorrelFramework/Units/SqliteTool.hpp"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "SorrelFramework/Platform/Base/LinePrinter.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"
#include "SorrelFramework/Units/RolledBackCopy.hpp"

namespace sorrel {
namespace {

// Limits for a database written by another program.
struct Limit {
  int id;
  int value;
};
constexpr std::array<Limit, 5> kLimits = {{{SQLITE_LIMIT_LENGTH, 16 * 1024 * 1024},
                                           {SQLITE_LIMIT_EXPR_DEPTH, 200},
                                           {SQLITE_LIMIT_VDBE_OP, 250'000},
                                           {SQLITE_LIMIT_TRIGGER_DEPTH, 20},
                                           {SQLITE_LIMIT_ATTACHED, 0}}};
constexpr std::size_t kMaximumResultBytes = std::size_t{512} * 1024 * 1024;
constexpr int kOperationsBetweenStopTests = 20'000;
// Bytes 18 and 19 of the file: the write and the read version, 2 if a write-ahead log is in use (Database
// File Format, 1.3.3).
constexpr int kHeaderLength = 20;
constexpr char kWriteAheadVersion = 2;
constexpr off_t kLogHeaderLength = 32;

// No file can have that name, so SQLite returns its own error and message.
constexpr const char* kImpossibleName = "/dev/null/database";

struct StatementCloser {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementCloser>;

/// The real path of a regular file, because SQLite derives the names of its side files from it; "" for
/// anything else.
std::string regularFile(const std::string& path) {
  if (path.empty()) return {};
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
  struct stat info {};
  if (!real || ::stat(real.get(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
  return real.get();
}

/// Size of a file, -1 if there is none.
off_t sizeOf(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? info.st_size : -1;
}

/// True if the rollback journal beside the database starts like one that was not finished or invalidated.
bool hasJournal(const std::string& path) {
  if (sizeOf(path + "-journal") <= 0) return false;
  const int file = ::open((path + "-journal").c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
  if (file < 0) return true;
  char first = 0;
  const bool started = ::read(file, &first, 1) == 1 && first != 0;
  ::close(file);
  return started;
}

/// True if the header of the open database asks for a write-ahead log. Read through SQLite's own descriptor:
/// opening and closing the file once more would drop the locks of this process's other connections.
bool usesWriteAheadLog(sqlite3* database) {
  sqlite3_file* file = nullptr;
  if (sqlite3_file_control(database, "main", SQLITE_FCNTL_FILE_POINTER, static_cast<void*>(&file)) !=
          SQLITE_OK ||
      file == nullptr || file->pMethods == nullptr) {
    return false;
  }
  std::array<char, kHeaderLength> header{};
  if (file->pMethods->xRead(file, header.data(), kHeaderLength, 0) != SQLITE_OK) return false;
  return header[18] == kWriteAheadVersion || header[19] == kWriteAheadVersion;
}

std::string fileURI(const std::string& path, const char* parameters) {
  return "file://" + percentEncodedPath(path) + "?" + parameters;
}

/// SQLite's authorizer for SqliteTool::restrictToDeleting(); `rule` is the name of the table.
int authorize(void* rule, int action, const char* first, const char* second, const char*, const char* inner) {
  const auto& table = *static_cast<const std::string*>(rule);
  const bool onTable = first != nullptr && ::strcasecmp(first, table.c_str()) == 0;
  switch (action) {
    case SQLITE_TRANSACTION:
      return SQLITE_OK;
    case SQLITE_DELETE:
    case SQLITE_READ:
      if (onTable) return SQLITE_OK;
      [[fallthrough]];
    case SQLITE_INSERT:
    case SQLITE_UPDATE:
    case SQLITE_SELECT:
    case SQLITE_FUNCTION:
      // Statements run by a trigger of the schema belong to the deletion; a statement cannot define a trigger
      // itself.
      return inner != nullptr ? SQLITE_OK : SQLITE_DENY;
    default:
      static_cast<void>(second);
      return SQLITE_DENY;
  }
}

int askToStop(void* condition) { return (*static_cast<std::function<bool()>*>(condition))() ? 1 : 0; }

/// Builds rows from a statement; maps each column to its index among the names of the rows.
class RowReader {
 public:
  explicit RowReader(sqlite3_stmt* statement) : statement_(statement) {
    auto names = std::make_shared<SqliteRow::Names>();
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
      const char* const name = sqlite3_column_name(statement, column);
      if (name == nullptr || !isValidUTF8(name)) {
        places_.push_back(kSkipped);
        continue;
      }
      const auto known = std::ranges::find(*names, std::string_view(name));
      places_.push_back(static_cast<std::size_t>(known - names->begin()));
      if (known == names->end()) names->emplace_back(name);
    }
    names_ = std::move(names);
  }

  /// Appends the current row; false if the result has grown too large.
  bool appendRow(std::vector<SqliteRow>& rows) {
    cells_.assign(names_->size(), {});
    text_.clear();
    for (std::size_t column = 0; column < places_.size(); ++column) {
      if (places_[column] == kSkipped) continue;
      const auto* const value =
          reinterpret_cast<const char*>(sqlite3_column_text(statement_, static_cast<int>(column)));
      if (value == nullptr) continue;
      const std::size_t length = std::strlen(value);
      bytes_ += length;
      if (bytes_ > kMaximumResultBytes) return false;
      cells_[places_[column]] = {static_cast<std::uint32_t>(text_.size()),
                                 static_cast<std::uint32_t>(length)};
      text_.append(value, length);
    }
    bytes_ += sizeof(SqliteRow) + cells_.size() * sizeof(SqliteRow::Cell);
    rows.emplace_back(names_, cells_, text_);  // copies, as those have exactly the size they need
    return true;
  }

 private:
  static constexpr std::size_t kSkipped = SIZE_MAX;

  sqlite3_stmt* statement_;
  std::shared_ptr<const SqliteRow::Names> names_;
  std::vector<std::size_t> places_;  // for each column, the index of its name
  std::size_t bytes_ = 0;
  std::vector<SqliteRow::Cell> cells_;  // of the current row
  std::string text_;
};

}  // namespace

SqliteTool::~SqliteTool() { sqlite3_close_v2(runSqliteDB); }

bool SqliteTool::openDB(const std::string& dbPath) {
  sqlite3_close_v2(std::exchange(runSqliteDB, nullptr));
  writable_ = false;
  path_.clear();
  if (dbPath.find('\0') != std::string::npos) return false;
  path_ = regularFile(dbPath);
  const bool opened =
      path_.empty() ? connect(kImpossibleName, SQLITE_OPEN_READONLY, nullptr) : connectForReading();
  if (opened) return true;
  path_.clear();
  printLine(sqlite3_errmsg(runSqliteDB));
  return false;
}

bool SqliteTool::closeDB(const std::string& /*dbPath*/, bool forcedClose) {
  const int code = forcedClose ? sqlite3_close_v2(runSqliteDB) : sqlite3_close(runSqliteDB);
  if (code != SQLITE_OK) return false;
  runSqliteDB = nullptr;
  writable_ = false;
  path_.clear();
  return true;
}

std::pair<bool, std::string> SqliteTool::executionSQL(const std::string& SQL) {
  if (!path_.empty() && !writable_ && !reopenForWriting()) return {false, sqlite3_errmsg(runSqliteDB)};
  char* message = nullptr;
  if (sqlite3_exec(runSqliteDB, SQL.c_str(), nullptr, nullptr, &message) == SQLITE_OK) return {true, ""};
  const std::unique_ptr<char, decltype(&sqlite3_free)> owned(message, &sqlite3_free);
  return {false, owned ? owned.get() : "Error"};
}

std::vector<SqliteRow> SqliteTool::queryDBData(const std::string& querySQL) {
  std::vector<SqliteRow> rows;
  if (querySQL.empty() || runSqliteDB == nullptr) return rows;
  sqlite3_stmt* prepared = nullptr;
  if (sqlite3_prepare_v2(runSqliteDB, querySQL.c_str(), -1, &prepared, nullptr) != SQLITE_OK) return rows;
  const Statement statement(prepared);
  if (!statement) return rows;
  RowReader reader(statement.get());
  while (sqlite3_step(statement.get()) == SQLITE_ROW && reader.appendRow(rows)) {
  }
  return rows;
}

void SqliteTool::restrictToDeleting(std::string_view table) {
  deletingTable_ = table;
  applyRules();
}

void SqliteTool::setStopCondition(std::function<bool()> stop) {
  stop_ = std::move(stop);
  applyRules();
}

/// Replaces the current connection by a new one; false leaves a connection that holds the error.
bool SqliteTool::connect(const std::string& name, int flags, const char* vfs) {
  sqlite3_close_v2(std::exchange(runSqliteDB, nullptr));
  const int code =
      sqlite3_open_v2(name.c_str(), &runSqliteDB, flags | SQLITE_OPEN_URI | SQLITE_OPEN_NOFOLLOW, vfs);
  if (code != SQLITE_OK) return false;
  limitConnection();
  applyRules();
  return true;
}

/// For each state in which a browser, running or killed, leaves its files, one method of opening changes none
/// of them.
bool SqliteTool::connectForReading() {
  const off_t log = sizeOf(path_ + "-wal");
  const bool index = sizeOf(path_ + "-shm") >= 0;
  const std::string unlocked = fileURI(path_, "mode=ro&immutable=1");
  if (!connect(fileURI(path_, "mode=ro"), SQLITE_OPEN_READONLY, nullptr)) return false;
  if (hasJournal(path_)) return !RolledBackCopy::isNeeded(runSqliteDB) || connectToCopy();
  // SQLite would remove a log beside an empty database.
  if (sizeOf(path_) == 0) return connect(unlocked, SQLITE_OPEN_READONLY, nullptr);
  // No log: opening it in that mode would create one. Without a log the file is complete in itself.
  if (log < 0) return !usesWriteAheadLog(runSqliteDB) || connect(unlocked, SQLITE_OPEN_READONLY, nullptr);
  // A shared index, so a writer may be alive: use its locks, but never write to the index. If no writer is
  // left, SQLite rebuilds the contents in private memory.
  if (index) return connect(fileURI(path_, "mode=ro&readonly_shm=1"), SQLITE_OPEN_READONLY, nullptr);
  if (log < kLogHeaderLength) return connect(unlocked, SQLITE_OPEN_READONLY, nullptr);
  // A log left by a killed writer. No process has the database open, so no lock is needed, and with the
  // exclusive mode (set before the first read) the index lives in memory instead of a new file.
  if (!connect(fileURI(path_, "mode=ro"), SQLITE_OPEN_READONLY, "unix-none")) return false;
  sqlite3_exec(runSqliteDB, "pragma locking_mode=exclusive", nullptr, nullptr, nullptr);
  return true;
}

/// An unfinished transaction: a connection that cannot write cannot roll it back, and returns no rows.
/// Without a copy it stays like that.
bool SqliteTool::connectToCopy() {
  const RolledBackCopy copy(runSqliteDB, path_);
  if (copy.path().empty()) return true;
  if (!connect(fileURI(copy.path(), "mode=rw"), SQLITE_OPEN_READWRITE, nullptr)) {
    return connect(fileURI(path_, "mode=ro"), SQLITE_OPEN_READONLY, nullptr);
  }
  RolledBackCopy::rollBack(runSqliteDB);
  return true;
}

bool SqliteTool::reopenForWriting() {
  writable_ = connect(fileURI(path_, "mode=rw"), SQLITE_OPEN_READWRITE, nullptr);
  if (writable_) sqlite3_db_config(runSqliteDB, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
  return writable_;
}

void SqliteTool::limitConnection() {
  for (const auto& [id, value] : kLimits) sqlite3_limit(runSqliteDB, id, value);
  sqlite3_db_config(runSqliteDB, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(runSqliteDB, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(runSqliteDB, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
  sqlite3_db_config(runSqliteDB, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

void SqliteTool::applyRules() {
  if (runSqliteDB == nullptr) return;
  const bool restricted = !deletingTable_.empty();
  sqlite3_set_authorizer(runSqliteDB, restricted ? &authorize : nullptr, &deletingTable_);
  sqlite3_progress_handler(runSqliteDB, kOperationsBetweenStopTests, stop_ ? &askToStop : nullptr, &stop_);
}

}  // namespace sorrel
