#include "SorrelFramework/Units/SqliteTool.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Base/LinePrinter.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Units/SqliteToolKit.hpp"

namespace sorrel::test {
namespace {

// Traces of reading, and files left by other programs.
using SqliteToolTracesTest = SqliteToolTest;

TEST_F(SqliteToolTracesTest, readingLeavesNoTraceOfAPlainDatabase) {
  database();
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTracesTest, readingLeavesNoTraceOfALoggedDatabaseClosedCleanly) {
  database(kLogged);
  ASSERT_EQ(names(folder_.path()), (std::vector<std::string>{"History"}));
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTracesTest, readingLeavesTheLogOfAKilledWriterAlone) {
  runAndGetKilled(path(), kLogged);
  ASSERT_EQ(names(folder_.path()), (std::vector<std::string>{"History", "History-shm", "History-wal"}));
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTracesTest, readingALogWithoutIndexMakesNone) {
  runAndGetKilled(path(), kLogged);
  ASSERT_EQ(::unlink(folder_.path("History-shm").c_str()), 0);
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTracesTest, readingALogWithATornIndexChangesNeither) {
  runAndGetKilled(path(), kLogged);
  for (const std::string& torn : {std::string(), std::string(100, 'x'), std::string(32768, 'x')}) {
    folder_.file("History-shm", torn);
    EXPECT_EQ(rowsReadWithoutTrace(), 3U) << torn.size();
  }
}

TEST_F(SqliteToolTracesTest, readingWithAnEmptyLogKeepsIt) {
  database(kLogged);
  folder_.file("History-wal");
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
  folder_.file("History-shm");
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTracesTest, readingAReadOnlyFolderSeesTheLogToo) {
  runAndGetKilled(path(), kLogged);
  ASSERT_EQ(::unlink(folder_.path("History-shm").c_str()), 0);
  for (const char* name : {"History", "History-wal"}) ::chmod(folder_.path(name).c_str(), 0444);
  ::chmod(folder_.path().c_str(), 0555);
  const auto before = snapshot(folder_.path());
  EXPECT_EQ(inPlainChild([this] {
              if (!tool_.openDB(path())) return std::string("not opened");
              const std::string rows = std::to_string(tool_.queryDBData("select * from t").size());
              return rows + ", " + tool_.executionSQL("delete from t").second;
            }),
            "3, unable to open database file");
  EXPECT_TRUE(snapshot(folder_.path()) == before);
  ::chmod(folder_.path().c_str(), 0700);
}

TEST_F(SqliteToolTracesTest, fileThatMayNotBeReadIsNotOpened) {
  ::chmod(database().c_str(), 0);
  ::chmod(folder_.path().c_str(), 0755);
  setLinePrinter([](std::string_view) {});
  EXPECT_EQ(inPlainChild([this] { return std::string(tool_.openDB(path()) ? "opened" : "refused"); }),
            "refused");
  setLinePrinter(nullptr);
}

TEST_F(SqliteToolTracesTest, readingBesideALiveWriterSeesItsCommits) {
  const OtherProgram writer(path(), kLogged);
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTracesTest, readingBesideALiveWriterWithAFreshLogWorks) {
  database(kLogged);
  const OtherProgram writer(path(), "insert into t values(4,'four'); pragma wal_checkpoint(truncate);");
  EXPECT_EQ(rowsReadWithoutTrace(), 4U);
}

TEST_F(SqliteToolTracesTest, readingBesideAWriterInAnOpenTransactionSeesTheStateBefore) {
  database(kLogged);
  const OtherProgram writer(path(), "begin immediate; delete from t;");
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTracesTest, lockedDatabaseOpensButGivesNoRows) {
  database();
  const OtherProgram writer(path(), "begin exclusive");
  EXPECT_EQ(rowsReadWithoutTrace(), 0U);
  ASSERT_TRUE(tool_.openDB(path()));
  EXPECT_EQ(tool_.executionSQL("delete from t"), std::make_pair(false, std::string("database is locked")));
}

constexpr const char* kSpill =
    "pragma cache_size=1; begin immediate; update t set name = hex(zeroblob(9000));"
    "insert into t(name) select hex(zeroblob(9000)) from t, t as u, t as v;";

TEST_F(SqliteToolTracesTest, queryShowsTheRowsBeforeAKilledWriterAndLeavesItsJournal) {
  database();
  runAndGetKilled(path(), kSpill);
  ASSERT_EQ(names(folder_.path()), (std::vector<std::string>{"History", "History-journal"}));
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
  EXPECT_EQ(query("select name from t where id=1").at(0).find("name"), "one");
}

TEST_F(SqliteToolTracesTest, copyOfADatabaseWithAJournalLeavesNothingBehind) {
  const ScopedVariable temporary("TMPDIR", folder_.folder("temporary").c_str());
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

TEST_F(SqliteToolTracesTest, journalShowsNoRowsWhereNothingCanBeCopied) {
  const ScopedVariable temporary("TMPDIR", folder_.path("missing").c_str());
  database();
  runAndGetKilled(path(), kSpill);
  EXPECT_EQ(rowsReadWithoutTrace(), 0U);
}

TEST_F(SqliteToolTracesTest, journalOfALiveWriterNeedsNoCopy) {
  const ScopedVariable temporary("TMPDIR", folder_.path("missing").c_str());
  database();
  const OtherProgram writer(path(), "begin immediate; delete from t where id=1;");
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
}

TEST_F(SqliteToolTracesTest, journalOverSeveralDatabasesIsLeftToItsOwner) {
  database();
  runAndGetKilled(path(), kSpill);
  const std::string victim = folder_.file("victim", "precious");
  // The end of such a journal: page 0, the name, its length, the sum of its bytes, the magic number.
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
  EXPECT_EQ(contentOf(victim), "precious");
}

TEST_F(SqliteToolTracesTest, journalThatIsNoneGivesRowsOrNoneAndNoHarm) {
  database();
  folder_.file("History-journal", std::string(5000, '\xd9'));
  rowsReadWithoutTrace();
}

TEST_F(SqliteToolTracesTest, executionRollsBackTheJournalOfAKilledWriter) {
  database();
  runAndGetKilled(path(), kSpill);
  ASSERT_TRUE(tool_.openDB(path()));
  EXPECT_EQ(tool_.executionSQL("delete from t where id=2"), std::make_pair(true, std::string()));
  EXPECT_EQ(tool_.queryDBData("select * from t").size(), 2U);
  EXPECT_EQ(tool_.queryDBData("pragma integrity_check").at(0).find("integrity_check"), "ok");
}

TEST_F(SqliteToolTracesTest, journalOfAnIdlePersistentWriterDoesNotHideTheRows) {
  database("pragma journal_mode=persist; create table t(id); insert into t values(1);");
  ASSERT_EQ(names(folder_.path()), (std::vector<std::string>{"History", "History-journal"}));
  EXPECT_EQ(rowsReadWithoutTrace(), 1U);
}

TEST_F(SqliteToolTracesTest, executionAfterAKilledWriterTakesItsCommitsOver) {
  runAndGetKilled(path(), kLogged);
  ASSERT_TRUE(tool_.openDB(path()));
  EXPECT_TRUE(tool_.executionSQL("delete from t where id=1").first);
  EXPECT_TRUE(tool_.closeDB(path()));
  EXPECT_EQ(names(folder_.path()), (std::vector<std::string>{"History"})) << "the log is put away";
  EXPECT_EQ(rowsReadWithoutTrace(), 2U);
}

TEST_F(SqliteToolTracesTest, executionBesideALiveWriterDeletes) {
  const OtherProgram writer(path(), kLogged);
  ASSERT_TRUE(tool_.openDB(path()));
  EXPECT_EQ(tool_.queryDBData("select * from t").size(), 3U);
  EXPECT_EQ(tool_.executionSQL("delete from t where id=1"), std::make_pair(true, std::string()));
  EXPECT_EQ(tool_.queryDBData("select * from t").size(), 2U);
}

TEST_F(SqliteToolTracesTest, queryCannotChangeTheDatabase) {
  database();
  const auto before = snapshot(folder_.path());
  EXPECT_TRUE(query("delete from t").empty());
  EXPECT_TRUE(snapshot(folder_.path()) == before);
}

TEST_F(SqliteToolTracesTest, severalReadersOfOneDatabaseDoNotDisturbEachOther) {
  runAndGetKilled(path(), kLogged);
  ::unlink(folder_.path("History-shm").c_str());
  SqliteTool other;
  ASSERT_TRUE(other.openDB(path()));
  EXPECT_EQ(other.queryDBData("select * from t").size(), 3U);
  EXPECT_EQ(rowsReadWithoutTrace(), 3U);
  EXPECT_EQ(other.queryDBData("select * from t").size(), 3U);
}

}  // namespace
}  // namespace sorrel::test
