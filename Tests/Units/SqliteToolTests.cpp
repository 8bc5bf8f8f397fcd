#include "SorrelFramework/Units/SqliteTool.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Base/LinePrinter.hpp"
#include "Tests/Units/SqliteToolKit.hpp"

namespace sorrel::test {
namespace {

using Dictionary = std::map<std::string, std::string>;

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

// Malicious databases and statements.

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
}  // namespace sorrel::test
