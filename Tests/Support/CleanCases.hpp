#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Tests/Support/CleanKit.hpp"

namespace sorrel::test {

/// A random clean, of records over real files, and its expected result: derived from the rules of the
/// selection leaf by leaf, without the walks of the clean itself.
struct CleanCase {
  enum class Entry { Categorys, Groups, LargeAndOld };
  enum class Helper { Deletes, SendsNothing, Refused };
  enum class Kind { Folder, File, Package, Link, Missing };

  struct Node {
    std::string name;  ///< path below the volume's root
    Kind kind = Kind::File;
    Integer state = 0;
    std::int64_t size = 0;
    bool canDelete = true;
    std::vector<Node> childrens;
  };
  struct Category {
    Integer state = 0;
    bool needRemove = false;
    std::vector<Node> childrens;
  };
  /// The result for one leaf.
  struct Fate {
    Integer status = 0;
    bool isGone = false;
  };
  struct Outcome {
    std::map<std::string, Fate> leaves;  ///< by name
    std::int64_t size = 0;               ///< bytes freed, as a Common clean reports them
    Integer status = 0;                  ///< of a Common clean
    // After the repair of a Common clean, top down:
    std::vector<std::string> failed;  ///< names of the leaves that were selected and still exist
    std::vector<std::string> tree;    ///< the category's number or the record's name
  };

  explicit CleanCase(unsigned seed);

  void makeFiles(const TemporaryVolume& volume) const;
  /// A tree for the case, and its leaves by name.
  [[nodiscard]] std::vector<Ref<CategoryInformation>> makeTree(
      const CleanStage& stage, std::map<std::string, Ref<FileInformation>>& leaves) const;
  [[nodiscard]] Outcome outcome() const;

  Entry entry = Entry::Categorys;
  Helper helper = Helper::Deletes;
  std::vector<Category> categorys;
  std::set<std::string> userFails;      ///< names of leaves
  std::set<std::string> helperRefuses;  ///< names of leaves

 private:
  void addDeletions(Outcome& result) const;
  void addRepair(Outcome& result) const;
  [[nodiscard]] int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random_); }
  [[nodiscard]] Integer anyState();
  [[nodiscard]] Node anyNode(const std::string& name, int depth);

  std::mt19937 random_;
};

}  // namespace sorrel::test
