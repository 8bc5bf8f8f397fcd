#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel::cli {

/// How the rows of a text are sorted; documents keep the order of the records.
enum class RowOrder {
  BySize,  ///< largest first
  ByName,
};

/// The rows in that order; equal ones keep their order. Rows have a `size`, and `name` returns the sort key
/// otherwise.
template <class Rows, class Name>
auto sortedRows(const Rows& rows, RowOrder order, Name name) {
  std::vector<decltype(&*rows.begin())> sorted;
  sorted.reserve(rows.size());
  for (const auto& row : rows) sorted.push_back(&row);
  std::ranges::stable_sort(sorted, [order, name](const auto* a, const auto* b) {
    return order == RowOrder::BySize ? a->size > b->size : textLess(name(*a), name(*b));
  });
  return sorted;
}

/// The same for rows with a `title`.
template <class Rows>
auto sortedRows(const Rows& rows, RowOrder order) {
  return sortedRows(rows, order, [](const auto& row) -> const std::string& { return row.title; });
}

}  // namespace sorrel::cli
