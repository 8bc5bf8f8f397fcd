#include "SorrelFramework/Units/SqliteRow.hpp"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace sorrel {
namespace {

SqliteRow row() {
  auto names = std::make_shared<const SqliteRow::Names>(SqliteRow::Names{"id", "title", "note"});
  return {names, {{0, 2}, {}, {2, 0}}, "42"};
}

TEST(SqliteRow, findGivesTheTextOfAColumn) { EXPECT_EQ(row().find("id"), "42"); }

TEST(SqliteRow, emptyTextIsFound) { EXPECT_EQ(row().find("note"), ""); }

TEST(SqliteRow, nullAndUnknownColumnsAreAbsent) {
  EXPECT_FALSE(row().contains("title"));
  EXPECT_FALSE(row().contains("other"));
  EXPECT_EQ(row().size(), 2U);
}

TEST(SqliteRow, dictionaryHoldsWhatIsFound) {
  EXPECT_EQ(row().dictionary(), (std::map<std::string, std::string>{{"id", "42"}, {"note", ""}}));
}

TEST(SqliteRow, defaultRowIsEmpty) {
  EXPECT_FALSE(SqliteRow().contains("id"));
  EXPECT_EQ(SqliteRow().size(), 0U);
}

}  // namespace
}  // namespace sorrel
