#include "Host/Suggestion.hpp"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <vector>

namespace sorrel::cli {
namespace {

constexpr std::size_t kMostWrongLetters = 2;

// The edit distance of Levenshtein, one row of the table at a time.
std::size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string_view nearestName(std::string_view word, std::span<const std::string_view> names) {
  std::string_view nearest;
  std::size_t least = std::min(kMostWrongLetters, word.size() / 2) + 1;
  for (const std::string_view name : names) {
    const std::size_t distance = editDistance(word, name);
    if (distance < least) {
      least = distance;
      nearest = name;
    }
  }
  return nearest;
}

std::string suggestion(std::string_view word, std::span<const std::string_view> names) {
  const std::string_view name = nearestName(word, names);
  return name.empty() ? "" : " Did you mean '" + std::string(name) + "'?";
}

}  // namespace sorrel::cli
