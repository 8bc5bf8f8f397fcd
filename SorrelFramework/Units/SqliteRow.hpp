#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sorrel {

/// One row of a query: the text of each column that is not NULL, by the column's name. All rows of a query
/// share the names, and a row keeps its texts in one block. Immutable.
class SqliteRow {
 public:
  using Names = std::vector<std::string>;
  /// A range of the row's text block; NULL cells have none.
  struct Cell {
    static constexpr std::uint32_t kNull = UINT32_MAX;
    std::uint32_t offset = kNull;
    std::uint32_t length = 0;
  };

  SqliteRow() = default;
  SqliteRow(std::shared_ptr<const Names> names, std::vector<Cell> cells, std::string text)
      : names_(std::move(names)), cells_(std::move(cells)), text_(std::move(text)) {}

  /// Text of the column `name`; nothing if it is NULL or not part of the query. If several columns have one
  /// name, the last that is not NULL counts. The view lives as long as the row.
  [[nodiscard]] std::optional<std::string_view> find(std::string_view name) const;
  [[nodiscard]] bool contains(std::string_view name) const { return find(name).has_value(); }
  /// Number of columns that have a text.
  [[nodiscard]] std::size_t size() const;
  /// The row as a dictionary.
  [[nodiscard]] std::map<std::string, std::string> dictionary() const;

 private:
  [[nodiscard]] std::string_view text(const Cell& cell) const;

  std::shared_ptr<const Names> names_;  // each name once
  std::vector<Cell> cells_;             // one for each name
  std::string text_;
};

}  // namespace sorrel
