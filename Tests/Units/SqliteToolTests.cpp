#include "SorrelFramework/Units/SqliteTool.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/LinePrinter.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

using test::TemporaryFolder;
using Dictionary = std::map<std::string, std::string>;

void run(sqlite3* database, const char* sql) {
  ASSERT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(database);
}

void makeDatabase(const std::string& path, const char* sql) {
  sqlite3* database = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
  run(database, sql);
  sqlite3_close(database);
}

/// Another program that runs `sql` on the database and then keeps it open until it is killed.
class OtherProgram {
 public:
  OtherProgram(const std::string& path, const char* sql) {
    std::array<int, 2> ready{};
    if (::pipe(ready.data()) != 0) return;
    child_ = ::fork();
    if (child_ == 0) {
      sqlite3* database = nullptr;
      const bool done = sqlite3_open(path.c_str(), &database) == SQLITE_OK &&
                        sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
      const char answer = done ? 'y' : 'n';
      if (::write(ready[1], &answer, 1) == 1) ::pause();
      ::_exit(1);
    }
    ::close(ready[1]);
    char answer = 0;
    EXPECT_EQ(::read(ready[0], &answer, 1), 1);
    EXPECT_EQ(answer, 'y') << sql;
    ::close(ready[0]);
  }
  ~OtherProgram() { kill(); }
  OtherProgram(const OtherProgram&) = delete;
  OtherProgram& operator=(const OtherProgram&) = delete;

  void kill() {
    if (child_ <= 0) return;
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
    child_ = -1;
  }

 private:
  pid_t child_ = -1;
};

void runAndGetKilled(const std::string& path, const char* sql) { OtherProgram(path, sql).kill(); }

using Moment = std::pair<std::int64_t, std::int64_t>;
Moment modified(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
  return {info.st_mtim.tv_sec, info.st_mtim.tv_nsec};
}

/// Names, bytes and times of everything in a folder, and the folder's own time.
std::map<std::string, std::pair<std::string, Moment>> snapshot(const std::string& folder) {
  std::map<std::string, std::pair<std::string, Moment>> result;
  result[""] = {"", modified(folder)};
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    result[entry.path().filename()] = {test::contentOf(entry.path()), modified(entry.path())};
  }
  return result;
}

std::vector<std::string> names(const std::string& folder) {
  std::vector<std::string> result;
  for (const auto& [name, rest] : snapshot(folder)) {
    if (!name.empty()) result.push_back(name);
  }
  return result;
}

constexpr const char* kTable =
    "create table t(id integer primary key, name text);"
    "insert into t values(1,'one'),(2,'two'),(3,null);";
constexpr const char* kLogged =
    "pragma journal_mode=wal; create table t(id integer primary key, name text);"
    "insert into t values(1,'one'),(2,'two'),(3,null);";

class SqliteToolTest : public testing::Test {
 protected:
  std::string database(const char* sql = kTable) {
    makeDatabase(path(), sql);
    return path();
  }
  [[nodiscard]] std::string path() const { return folder_.path("History"); }
  std::vector<SqliteRow> query(const std::string& sql) {
    EXPECT_TRUE(tool_.openDB(path()));
    std::vector<SqliteRow> rows = tool_.queryDBData(sql);
    EXPECT_TRUE(tool_.closeDB(path()));
    return rows;
  }
  /// Opens, reads and closes, and expects the folder untouched.
  std::size_t rowsReadWithoutTrace() {
    const auto before = snapshot(folder_.path());
    const std::size_t count = query("select * from t").size();
    EXPECT_TRUE(snapshot(folder_.path()) == before);
    return count;
  }

  TemporaryFolder folder_;
  SqliteTool tool_;
};

TEST_F(SqliteToolTest, connectionIsEmptyBeforeOpen) {
  EXPECT_EQ(tool_.runSqliteDB, nullptr);
  EXPECT_TRUE(tool_.queryDBData("select 1").empty());
  EXPECT_EQ(tool_.executionSQL("select 1"), std::make_pair(false, std::string("Error")));
  EXPECT_TRUE(tool_.closeDB(""));
}

TEST_F(SqliteToolTest, openGivesAConnection) {
  EXPECT_TRUE(tool_.openDB(database()));
  EXPECT_NE(tool_.runSqliteDB, nullptr);
}

TEST_F(SqliteToolTest, valuesOfEveryTypeComeBackAsText) {
  database("create table v(i, r, e, b, s); insert into v values(42, 700000000.5, 1e20, x'616263', 'text');");
  const auto rows = query("select * from v");
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].dictionary(),
            (Dictionary{{"i", "42"}, {"r", "700000000.5"}, {"e", "1.0e+20"}, {"b", "abc"}, {"s", "text"}}));
}

TEST_F(SqliteToolTest, nullCellIsAbsentFromTheRow) {
  database();
  const auto rows = query("select * from t order by id");
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[0].find("name"), "one");
  EXPECT_EQ(rows[2].find("name"), std::nullopt);
  EXPECT_EQ(rows[2].dictionary(), (Dictionary{{"id", "3"}}));
}

TEST_F(SqliteToolTest, emptyTextIsAValue) {
  database("create table v(s); insert into v values('');");
  EXPECT_EQ(query("select s from v").at(0).find("s"), "");
}

TEST_F(SqliteToolTest, lastNonNullOfEqualColumnNamesWins) {
  database();
  const auto rows = query("select 'a' as x, 'b' as x, 'c' as y, null as x, null as y");
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].dictionary(), (Dictionary{{"x", "b"}, {"y", "c"}}));
}

TEST_F(SqliteToolTest, joinFillsTheSharedNameFromTheSecondTable) {
  database(
      "create table items(id, url); create table visits(id, item);"
      "insert into items values(1,'u'); insert into visits values(70,1);");
  const auto rows = query("select * from items inner join visits on visits.item = items.id order by id");
  EXPECT_EQ(rows.at(0).find("id"), "70");
  EXPECT_EQ(rows.at(0).find("url"), "u");
}

TEST_F(SqliteToolTest, columnNameThatIsNoUTF8IsSkipped) {
  database();
  EXPECT_EQ(query("select 1 as \"\xFF\", 2 as b").at(0).dictionary(), (Dictionary{{"b", "2"}}));
}

TEST_F(SqliteToolTest, emptyStatementGivesNoRows) {
  ASSERT_TRUE(tool_.openDB(database()));
  EXPECT_TRUE(tool_.queryDBData("").empty());
  EXPECT_TRUE(tool_.queryDBData("  -- nothing").empty());
}

TEST_F(SqliteToolTest, brokenStatementGivesNoRows) {
  ASSERT_TRUE(tool_.openDB(database()));
  EXPECT_TRUE(tool_.queryDBData("selec * from t").empty());
  EXPECT_TRUE(tool_.queryDBData("select * from missing").empty());
}

TEST_F(SqliteToolTest, onlyTheFirstStatementOfAQueryRuns) {
  ASSERT_TRUE(tool_.openDB(database()));
  EXPECT_EQ(tool_.queryDBData("select 1 as a; select 2 as a").at(0).find("a"), "1");
}

TEST_F(SqliteToolTest, executionDeletesRows) {
  ASSERT_TRUE(tool_.openDB(database()));
  EXPECT_EQ(tool_.executionSQL("delete from t where id = 2"), std::make_pair(true, std::string()));
  EXPECT_EQ(tool_.queryDBData("select * from t").size(), 2U);
  EXPECT_TRUE(tool_.closeDB(path()));
  EXPECT_EQ(query("select * from t").size(), 2U);
}

TEST_F(SqliteToolTest, executionKeepsATransactionOpenBetweenCalls) {
  ASSERT_TRUE(tool_.openDB(database()));
  EXPECT_TRUE(tool_.executionSQL("begin immediate").first);
  EXPECT_TRUE(tool_.executionSQL("delete from t").first);
  EXPECT_TRUE(tool_.executionSQL("rollback").first);
  EXPECT_EQ(tool_.queryDBData("select * from t").size(), 3U);
}

TEST_F(SqliteToolTest, executionOfInvalidSQLGivesTheMessage) {
  ASSERT_TRUE(tool_.openDB(database()));
  EXPECT_EQ(tool_.executionSQL("delet"), std::make_pair(false, std::string("near \"delet\": syntax error")));
  EXPECT_EQ(tool_.executionSQL("delete from x"), std::make_pair(false, std::string("no such table: x")));
}

TEST_F(SqliteToolTest, unforcedCloseFailsWhileAStatementIsOpen) {
  ASSERT_TRUE(tool_.openDB(database()));
  sqlite3_stmt* statement = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(tool_.runSqliteDB, "select * from t", -1, &statement, nullptr), SQLITE_OK);
  EXPECT_FALSE(tool_.closeDB(path(), false));
  EXPECT_NE(tool_.runSqliteDB, nullptr);
  sqlite3_finalize(statement);
  EXPECT_TRUE(tool_.closeDB(path(), false));
  EXPECT_EQ(tool_.runSqliteDB, nullptr);
}

TEST_F(SqliteToolTest, forcedCloseGivesUpAnOpenStatement) {
  ASSERT_TRUE(tool_.openDB(database()));
  sqlite3_stmt* statement = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(tool_.runSqliteDB, "select * from t", -1, &statement, nullptr), SQLITE_OK);
  EXPECT_TRUE(tool_.closeDB(path()));
  sqlite3_finalize(statement);
}

TEST_F(SqliteToolTest, closingTwiceIsFine) {
  ASSERT_TRUE(tool_.openDB(database()));
  EXPECT_TRUE(tool_.closeDB(path()));
  EXPECT_TRUE(tool_.closeDB(path()));
}

TEST_F(SqliteToolTest, missingFileIsNotCreated) {
  testing::internal::CaptureStdout();
  EXPECT_FALSE(tool_.openDB(folder_.path("missing")));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "unable to open database file\n");
  EXPECT_NE(tool_.runSqliteDB, nullptr) << "the connection is kept";
  EXPECT_TRUE(tool_.queryDBData("select 1").empty());
  EXPECT_FALSE(tool_.executionSQL("create table t(a)").first);
  EXPECT_TRUE(tool_.closeDB(""));
  EXPECT_TRUE(names(folder_.path()).empty());
}

TEST_F(SqliteToolTest, onlyRegularFilesAreOpened) {
  ASSERT_EQ(::mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  folder_.folder("folder");
  ASSERT_EQ(::symlink("loop", folder_.path("loop").c_str()), 0);
  for (const char* name : {"fifo", "folder", "loop", "fifo/below"}) {
    EXPECT_FALSE(tool_.openDB(folder_.path(name))) << name;
    EXPECT_TRUE(tool_.queryDBData("select * from t").empty()) << name;
  }
  EXPECT_FALSE(tool_.openDB(""));
}

TEST_F(SqliteToolTest, pathWithAZeroByteOpensNothingAndSaysNothing) {
  ASSERT_TRUE(tool_.openDB(database()));
  testing::internal::CaptureStdout();
  EXPECT_FALSE(tool_.openDB(path() + std::string("\0x", 2)));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(tool_.runSqliteDB, nullptr) << "what was open before must not take the next statement";
  EXPECT_FALSE(tool_.executionSQL("delete from t").first);
  EXPECT_TRUE(tool_.closeDB(""));
  EXPECT_EQ(query("select * from t").size(), 3U);
}

TEST_F(SqliteToolTest, reasonOfAFailedOpenGoesWhereTheApplicationWants) {
  static std::string printed;
  printed.clear();
  setLinePrinter([](std::string_view text) { printed = text; });
  testing::internal::CaptureStdout();
  EXPECT_FALSE(tool_.openDB(folder_.path("missing")));
  setLinePrinter(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(printed, "unable to open database file");
}

TEST_F(SqliteToolTest, fileThatIsNoDatabaseGivesNoRows) {
  folder_.file("History", std::string(5000, 'x'));
  EXPECT_EQ(rowsReadWithoutTrace(), 0U);
  ASSERT_TRUE(tool_.openDB(path()));
  EXPECT_EQ(tool_.executionSQL("delete from t"),
            std::make_pair(false, std::string("file is not a database")));
}

TEST_F(SqliteToolTest, emptyFileGivesNoRowsAndStaysEmpty) {
  folder_.file("History");
  folder_.file("History-wal", "left over");
  EXPECT_EQ(rowsReadWithoutTrace(), 0U);
}

TEST_F(SqliteToolTest, linkIsFollowedToItsSideFiles) {
  folder_.folder("real");
  makeDatabase(folder_.path("real/db"), "pragma journal_mode=wal");
  runAndGetKilled(folder_.path("real/db"), kTable);
  ASSERT_EQ(::symlink("real/db", path().c_str()), 0);
  EXPECT_EQ(query("select * from t").size(), 3U);
}

TEST_F(SqliteToolTest, namesWithURISpecialsAreTakenAsTheyAre) {
  const std::string name = folder_.path("a b%41?mode=memory#x\xFF");
  makeDatabase(name, kTable);
  ASSERT_TRUE(tool_.openDB(name));
  EXPECT_EQ(tool_.queryDBData("select * from t").size(), 3U);
  EXPECT_TRUE(tool_.executionSQL("delete from t where id=1").first);
}

TEST_F(SqliteToolTest, openingAnotherDatabaseClosesTheFirst) {
  makeDatabase(folder_.path("other"), "create table t(id); insert into t values(9);");
  ASSERT_TRUE(tool_.openDB(database()));
  ASSERT_TRUE(tool_.executionSQL("delete from t where id=1").first);
  ASSERT_TRUE(tool_.openDB(folder_.path("other")));
  EXPECT_EQ(tool_.queryDBData("select * from t").at(0).find("id"), "9");
}

// What reading leaves behind.

TEST_F(SqliteToolTest, readingLeavesNoTraceOfAPlainDatabase) {
  database();
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTest, readingLeavesNoTraceOfALoggedDatabaseClosedCleanly) {
  database(kLogged);
  ASSERT_EQ(names(folder_.path()), (std::vector<std::string>{"History"}));
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTest, readingLeavesTheLogOfAKilledWriterAlone) {
  runAndGetKilled(path(), kLogged);
  ASSERT_EQ(names(folder_.path()), (std::vector<std::string>{"History", "History-shm", "History-wal"}));
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTest, readingALogWithoutIndexMakesNone) {
  runAndGetKilled(path(), kLogged);
  ASSERT_EQ(::unlink(folder_.path("History-shm").c_str()), 0);
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTest, readingALogWithATornIndexChangesNeither) {
  runAndGetKilled(path(), kLogged);
  for (const std::string& torn : {std::string(), std::string(100, 'x'), std::string(32768, 'x')}) {
    folder_.file("History-shm", torn);
    EXPECT_EQ(rowsReadWithoutTrace(), 3U) << torn.size();
  }
}

TEST_F(SqliteToolTest, readingWithAnEmptyLogKeepsIt) {
  database(kLogged);
  folder_.file("History-wal");
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
  folder_.file("History-shm");
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTest, readingAReadOnlyFolderSeesTheLogToo) {
  runAndGetKilled(path(), kLogged);
  ASSERT_EQ(::unlink(folder_.path("History-shm").c_str()), 0);
  for (const char* name : {"History", "History-wal"}) ::chmod(folder_.path(name).c_str(), 0444);
  ::chmod(folder_.path().c_str(), 0555);
  const auto before = snapshot(folder_.path());
  EXPECT_EQ(test::inPlainChild([this] {
              if (!tool_.openDB(path())) return std::string("not opened");
              const std::string rows = std::to_string(tool_.queryDBData("select * from t").size());
              return rows + ", " + tool_.executionSQL("delete from t").second;
            }),
            "3, unable to open database file");
  EXPECT_TRUE(snapshot(folder_.path()) == before);
  ::chmod(folder_.path().c_str(), 0700);
}

TEST_F(SqliteToolTest, fileThatMayNotBeReadIsNotOpened) {
  ::chmod(database().c_str(), 0);
  ::chmod(folder_.path().c_str(), 0755);
  setLinePrinter([](std::string_view) {});
  EXPECT_EQ(test::inPlainChild([this] { return std::string(tool_.openDB(path()) ? "opened" : "refused"); }),
            "refused");
  setLinePrinter(nullptr);
}

TEST_F(SqliteToolTest, readingBesideALiveWriterSeesItsCommits) {
  const OtherProgram writer(path(), kLogged);
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTest, readingBesideALiveWriterWithAFreshLogWorks) {
  database(kLogged);
  const OtherProgram writer(path(), "insert into t values(4,'four'); pragma wal_checkpoint(truncate);");
  EXPECT_EQ(rowsReadWithoutTrace(), 4U);
}

TEST_F(SqliteToolTest, readingBesideAWriterInAnOpenTransactionSeesTheStateBefore) {
  database(kLogged);
  const OtherProgram writer(path(), "begin immediate; delete from t;");
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTest, lockedDatabaseOpensButGivesNoRows) {
  database();
  const OtherProgram writer(path(), "begin exclusive");
  EXPECT_EQ(rowsReadWithoutTrace(), 0U);
  ASSERT_TRUE(tool_.openDB(path()));
  EXPECT_EQ(tool_.executionSQL("delete from t"), std::make_pair(false, std::string("database is locked")));
}

constexpr const char* kSpill =
    "pragma cache_size=1; begin immediate; update t set name = hex(zeroblob(9000));"
    "insert into t(name) select hex(zeroblob(9000)) from t, t as u, t as v;";

TEST_F(SqliteToolTest, queryShowsTheRowsBeforeAKilledWriterAndLeavesItsJournal) {
  database();
  runAndGetKilled(path(), kSpill);
  ASSERT_EQ(names(folder_.path()), (std::vector<std::string>{"History", "History-journal"}));
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
  EXPECT_EQ(query("select name from t where id=1").at(0).find("name"), "one");
}

TEST_F(SqliteToolTest, copyOfADatabaseWithAJournalLeavesNothingBehind) {
  const test::ScopedVariable temporary("TMPDIR", folder_.folder("temporary").c_str());
  database();
  runAndGetKilled(path(), kSpill);
  ASSERT_TRUE(tool_.openDB(path()));
  EXPECT_TRUE(names(folder_.path("temporary")).empty()) << "gone while it is read";
  EXPECT_EQ(tool_.queryDBData("select * from t").size(), 3U);
  EXPECT_TRUE(tool_.queryDBData("delete from t returning id").empty());
  EXPECT_EQ(tool_.queryDBData("pragma integrity_check").at(0).find("integrity_check"), "ok");
  EXPECT_EQ(tool_.queryDBData("select * from t").size(), 3U);
  EXPECT_TRUE(tool_.closeDB(path()));
  EXPECT_TRUE(names(folder_.path("temporary")).empty());
}

TEST_F(SqliteToolTest, journalShowsNoRowsWhereNothingCanBeCopied) {
  const test::ScopedVariable temporary("TMPDIR", folder_.path("missing").c_str());
  database();
  runAndGetKilled(path(), kSpill);
  EXPECT_EQ(rowsReadWithoutTrace(), 0U);
}

TEST_F(SqliteToolTest, journalOfALiveWriterNeedsNoCopy) {
  const test::ScopedVariable temporary("TMPDIR", folder_.path("missing").c_str());
  database();
  const OtherProgram writer(path(), "begin immediate; delete from t where id=1;");
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTest, journalOverSeveralDatabasesIsLeftToItsOwner) {
  database();
  runAndGetKilled(path(), kSpill);
  const std::string victim = folder_.file("victim", "precious");
  // What ends such a journal: page 0, the name, its length, the sum of its bytes, the magic number.
  std::ofstream journal(folder_.path("History-journal"), std::ios::app | std::ios::binary);
  std::uint32_t sum = 0;
  for (const char c : victim) sum += static_cast<std::uint32_t>(c);
  const auto put = [&journal](std::uint32_t number) {
    for (const int shift : {24, 16, 8, 0}) journal.put(static_cast<char>(number >> shift));
  };
  put(1073741824 / 4096 + 1);
  journal << victim;
  put(static_cast<std::uint32_t>(victim.size()));
  put(sum);
  journal << "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";
  journal.close();
  EXPECT_EQ(rowsReadWithoutTrace(), 0U);
  EXPECT_EQ(test::contentOf(victim), "precious");
}

TEST_F(SqliteToolTest, journalThatIsNoneGivesRowsOrNoneAndNoHarm) {
  database();
  folder_.file("History-journal", std::string(5000, '\xd9'));
  rowsReadWithoutTrace();
}

TEST_F(SqliteToolTest, executionRollsBackTheJournalOfAKilledWriter) {
  database();
  runAndGetKilled(path(), kSpill);
  ASSERT_TRUE(tool_.openDB(path()));
  EXPECT_EQ(tool_.executionSQL("delete from t where id=2"), std::make_pair(true, std::string()));
  EXPECT_EQ(tool_.queryDBData("select * from t").size(), 2U);
  EXPECT_EQ(tool_.queryDBData("pragma integrity_check").at(0).find("integrity_check"), "ok");
}

TEST_F(SqliteToolTest, journalOfAnIdlePersistentWriterDoesNotHideTheRows) {
  database("pragma journal_mode=persist; create table t(id); insert into t values(1);");
  ASSERT_EQ(names(folder_.path()), (std::vector<std::string>{"History", "History-journal"}));
  EXPECT_EQ(rowsReadWithoutTrace(), 1U);
}

TEST_F(SqliteToolTest, executionAfterAKilledWriterTakesItsCommitsOver) {
  runAndGetKilled(path(), kLogged);
  ASSERT_TRUE(tool_.openDB(path()));
  EXPECT_TRUE(tool_.executionSQL("delete from t where id=1").first);
  EXPECT_TRUE(tool_.closeDB(path()));
  EXPECT_EQ(names(folder_.path()), (std::vector<std::string>{"History"})) << "the log is put away";
  EXPECT_EQ(rowsReadWithoutTrace(), 2U);
}

TEST_F(SqliteToolTest, executionBesideALiveWriterDeletes) {
  const OtherProgram writer(path(), kLogged);
  ASSERT_TRUE(tool_.openDB(path()));
  EXPECT_EQ(tool_.queryDBData("select * from t").size(), 3U);
  EXPECT_EQ(tool_.executionSQL("delete from t where id=1"), std::make_pair(true, std::string()));
  EXPECT_EQ(tool_.queryDBData("select * from t").size(), 2U);
}

TEST_F(SqliteToolTest, queryCannotChangeTheDatabase) {
  database();
  const auto before = snapshot(folder_.path());
  EXPECT_TRUE(query("delete from t").empty());
  EXPECT_TRUE(snapshot(folder_.path()) == before);
}

TEST_F(SqliteToolTest, severalReadersOfOneDatabaseDoNotDisturbEachOther) {
  runAndGetKilled(path(), kLogged);
  ::unlink(folder_.path("History-shm").c_str());
  SqliteTool other;
  ASSERT_TRUE(other.openDB(path()));
  EXPECT_EQ(other.queryDBData("select * from t").size(), 3U);
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
  EXPECT_EQ(other.queryDBData("select * from t").size(), 3U);
}

// Databases and statements made to do harm.

TEST_F(SqliteToolTest, hugeCellEndsTheRows) {
  database("create table v(id, b); insert into v values(1,'x'),(2,zeroblob(20000000)),(3,'y');");
  EXPECT_EQ(query("select * from v").size(), 1U);
  EXPECT_TRUE(query("select zeroblob(1000000000) as b").empty());
}

TEST_F(SqliteToolTest, hugeResultEnds) {
  database();
  const auto rows = query(
      "with recursive c(x) as (select 1 union all select x+1 from c)"
      "select printf('%.*c', 15000000, 'x') as a from c");
  EXPECT_EQ(rows.size(), 35U) << "35 times 15 million bytes fit into 512 MiB";
}

TEST_F(SqliteToolTest, stopConditionEndsAnEndlessView) {
  database(
      "create view t as with recursive c(x) as (select 1 union all select x+1 from c)"
      "select x from c where x < 0");
  int asked = 0;
  tool_.setStopCondition([&asked] { return ++asked == 5; });
  EXPECT_TRUE(query("select * from t").empty());
  EXPECT_EQ(asked, 5);
}

TEST_F(SqliteToolTest, stopConditionThatNeverHoldsChangesNothing) {
  database();
  tool_.setStopCondition([] { return false; });
  EXPECT_EQ(query("select * from t").size(), 3U);
  tool_.setStopCondition(nullptr);
  EXPECT_EQ(query("select * from t").size(), 3U);
}

TEST_F(SqliteToolTest, noOtherDatabaseCanBeAttached) {
  ASSERT_TRUE(tool_.openDB(database()));
  const std::string other = folder_.path("other");
  EXPECT_FALSE(tool_.executionSQL("delete from t where id=1; attach '" + other + "' as o").first);
  EXPECT_EQ(names(folder_.path()), (std::vector<std::string>{"History"}));
}

TEST_F(SqliteToolTest, restrictedConnectionDeletesFromItsTable) {
  ASSERT_TRUE(tool_.openDB(database()));
  tool_.restrictToDeleting("T");
  EXPECT_TRUE(tool_.executionSQL("begin immediate").first);
  EXPECT_EQ(tool_.executionSQL("delete from t where id = 2 and name = name"),
            std::make_pair(true, std::string()));
  EXPECT_TRUE(tool_.executionSQL("commit").first);
}

TEST_F(SqliteToolTest, restrictedConnectionDoesNothingElse) {
  database(
      "create table t(id, name); create table keep(id); insert into t values(1,'a'); insert into keep "
      "values(1);");
  ASSERT_TRUE(tool_.openDB(path()));
  tool_.restrictToDeleting("t");
  for (const char* sql :
       {"delete from keep", "delete from t where id in (select id from keep)",
        "delete from t where id = abs(1)", "drop table t", "update t set id=2", "insert into t values(2,'b')",
        "pragma writable_schema=1", "attach ':memory:' as o", "vacuum",
        "create temp trigger x after delete on t begin delete from keep; end", "select * from t"}) {
    EXPECT_FALSE(tool_.executionSQL(sql).first) << sql;
  }
  tool_.restrictToDeleting("");
  EXPECT_EQ(tool_.queryDBData("select * from t").size(), 1U);
  EXPECT_EQ(tool_.queryDBData("select * from keep").size(), 1U);
}

TEST_F(SqliteToolTest, restrictedConnectionLetsTriggersOfTheSchemaRun) {
  database(
      "create table t(id); create table log(id); insert into t values(1);"
      "create trigger g after delete on t begin insert into log values(abs(old.id)); end;");
  ASSERT_TRUE(tool_.openDB(path()));
  tool_.restrictToDeleting("t");
  EXPECT_EQ(tool_.executionSQL("delete from t"), std::make_pair(true, std::string()));
  tool_.restrictToDeleting("");
  EXPECT_EQ(tool_.queryDBData("select * from log").size(), 1U);
}

}  // namespace
}  // namespace sorrel
