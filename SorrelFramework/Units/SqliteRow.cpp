#include "SorrelFramework/Units/SqliteRow.hpp"

#include <algorithm>

namespace sorrel {

std::optional<std::string_view> SqliteRow::find(std::string_view name) const {
  if (!names_) return std::nullopt;
  // A query has about a dozen columns: a linear search is faster than hashing.
  const auto found = std::ranges::find(*names_, name);
  if (found == names_->end()) return std::nullopt;
  const Cell& cell = cells_[static_cast<std::size_t>(found - names_->begin())];
  if (cell.offset == Cell::kNull) return std::nullopt;
  return text(cell);
}

std::size_t SqliteRow::size() const {
  return static_cast<std::size_t>(
      std::ranges::count_if(cells_, [](const Cell& cell) { return cell.offset != Cell::kNull; }));
}

std::map<std::string, std::string> SqliteRow::dictionary() const {
  std::map<std::string, std::string> dictionary;
  for (std::size_t i = 0; i < cells_.size(); ++i) {
    if (cells_[i].offset != Cell::kNull) dictionary.emplace((*names_)[i], text(cells_[i]));
  }
  return dictionary;
}

std::string_view SqliteRow::text(const Cell& cell) const {
  return std::string_view(text_).substr(cell.offset, cell.length);
}

}  // namespace sorrel
