#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Units/SqliteTool.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {

inline void run(sqlite3* database, const char* sql) {
  ASSERT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(database);
}

inline void makeDatabase(const std::string& path, const char* sql) {
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

inline void runAndGetKilled(const std::string& path, const char* sql) { OtherProgram(path, sql).kill(); }

using Moment = std::pair<std::int64_t, std::int64_t>;
inline Moment modified(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
  return {info.st_mtim.tv_sec, info.st_mtim.tv_nsec};
}

/// Names, bytes and times of everything in a folder, and the folder's own time.
inline std::map<std::string, std::pair<std::string, Moment>> snapshot(const std::string& folder) {
  std::map<std::string, std::pair<std::string, Moment>> result;
  result[""] = {"", modified(folder)};
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    result[entry.path().filename()] = {contentOf(entry.path()), modified(entry.path())};
  }
  return result;
}

inline std::vector<std::string> names(const std::string& folder) {
  std::vector<std::string> result;
  for (const auto& [name, rest] : snapshot(folder)) {
    if (!name.empty()) result.push_back(name);
  }
  return result;
}

inline constexpr const char* kTable =
    "create table t(id integer primary key, name text);"
    "insert into t values(1,'one'),(2,'two'),(3,null);";
inline constexpr const char* kLogged =
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

}  // namespace sorrel::test
