#pragma once

#include <random>
#include <set>
#include <string>
#include <vector>

#include "Tests/Support/CleanKit.hpp"

namespace sorrel::test {

/// A random tree of files, many of them and some whole folders equal, and random ticks on the results of a
/// scan.
class DuplicateCase {
 public:
  explicit DuplicateCase(unsigned seed) : random_(seed) {}

  /// Below Users/alice/Data, with items beside it that are not scanned.
  void makeFiles(const TemporaryVolume& volume);

  /// Ticks members and headers of the groups as an application does it, and sometimes inconsistently: a
  /// header that is on with members that are off, or one that is off above members that are on. Returns the
  /// paths of the members that the rules select.
  std::set<std::string> tick(CategoryInformation& all);

 private:
  [[nodiscard]] int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random_); }
  void makeFolder(const TemporaryVolume& volume, const std::string& name, int depth);
  [[nodiscard]] std::string anyContent();

  std::mt19937 random_;
  std::vector<std::string> folders_;
};

}  // namespace sorrel::test
