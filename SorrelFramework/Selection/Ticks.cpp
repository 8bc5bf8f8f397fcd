#include "SorrelFramework/Selection/Ticks.hpp"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <system_error>
#include <unordered_set>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Model/RecordName.hpp"
#include "SorrelFramework/Selection/Globs.hpp"
#include "SorrelFramework/Selection/RecordHolders.hpp"
#include "SorrelFramework/Selection/RecordWalk.hpp"

namespace sorrel {
namespace {

/// Computes the state of a row from those of the rows below it.
class StateAbove {
 public:
  void add(Integer below) {
    if (!isSet_) state_ = below;
    isSet_ = true;
    if (state_ != below) state_ = NSControlStateValueMixed;
  }
  [[nodiscard]] Integer value(Integer ofEmpty) const { return isSet_ ? state_ : ofEmpty; }

 private:
  Integer state_ = NSControlStateValueOff;
  bool isSet_ = false;
};

/// Sets the states of a feature and its categories from those of the records; `ofEmpty` is the state of a
/// category without records.
class CategoryStates {
 public:
  explicit CategoryStates(Integer ofEmpty) : ofEmpty_(ofEmpty) {}

  void setIn(FeatureInformation& feature) const {
    StateAbove above;
    for (CategoryInformation& category : feature.categoryInfo) above.add(setIn(category));
    feature.state = above.value(NSControlStateValueOff);
  }

 private:
  Integer setIn(CategoryInformation& category) const {
    StateAbove above;
    for (const FileInformation& record : category.childrens) above.add(record.state);
    if (category.childrenCateogry) {
      // Rows below "All" list the same records again and are not counted twice.
      const bool listsRecords = !category.childrens.empty();
      for (CategoryInformation& below : *category.childrenCateogry) {
        const Integer state = setIn(below);
        if (!listsRecords) above.add(state);
      }
    }
    category.state = above.value(ofEmpty_);
    return category.state;
  }

  Integer ofEmpty_;
};

void setAll(Children<FileInformation>& records, Integer state) {
  for (FileInformation& record : records) {
    record.state = state;
    setAll(record.childrens, state);
  }
}

void setAll(Children<CategoryInformation>& categories, Integer state) {
  for (CategoryInformation& category : categories) {
    setAll(category.childrens, state);
    if (category.childrenCateogry) setAll(*category.childrenCateogry, state);
  }
}

/// The ancestors of the item at `path`, from the nearest up, without "/".
std::vector<std::string> foldersAbove(const std::string& path) {
  std::vector<std::string> folders;
  for (std::size_t slash = path.rfind('/'); slash != std::string::npos && slash > 0;
       slash = path.rfind('/', slash - 1)) {
    folders.push_back(path.substr(0, slash));
  }
  return folders;
}

bool isBelowAny(const std::string& path, const std::unordered_set<std::string>& folders) {
  return std::ranges::any_of(foldersAbove(path),
                             [&folders](const std::string& folder) { return folders.contains(folder); });
}

/// True if an ancestor of the item matches a glob.
bool isBelowMatch(const std::string& path, Globs& globs) {
  bool any = false;
  for (const std::string& folder : foldersAbove(path)) any = globs.match(folder) || any;
  return any;
}

/// Matches records by globs on the way down from one category.
class RecordMatcher {
 public:
  RecordMatcher(Globs& globs, const CategoryInformation& category) : globs_(globs), titles_{category.title} {}

 protected:
  bool matches(const FileInformation& record) {
    const std::string path = pathOf(record.url);
    if (!path.empty()) return globs_.match(path);
    bool any = globs_.match(record.title);
    // The category's title alone is not a group: "*/name" means files, and not each group of that name.
    if (titles_.size() < 2) return any;
    std::string name = record.title;
    for (auto title = titles_.rbegin(); title != titles_.rend(); ++title) {
      name.insert(0, *title + "/");
      any = globs_.match(name) || any;
    }
    return any;
  }

  Globs& globs_;
  std::vector<std::string> titles_;  ///< of the rows above a record, from the category down
};

/// Ticks the records of one category that match the globs.
class Ticker : RecordMatcher {
 public:
  using RecordMatcher::RecordMatcher;

  void tick(Children<FileInformation>& records) {
    for (FileInformation& record : records) tick(record, false);
  }

 private:
  Integer tick(FileInformation& record, bool isAboveOn) {
    // A glob counts as used even if an ancestor of the record is already ticked.
    const bool isOn = matches(record) || isAboveOn;
    titles_.push_back(record.title);
    StateAbove below;
    for (FileInformation& child : record.childrens) below.add(tick(child, isOn));
    titles_.pop_back();
    const Integer byItself = isOn ? NSControlStateValueOn : NSControlStateValueOff;
    record.state = isOn ? byItself : below.value(byItself);
    return record.state;
  }
};

/// Unticks the records of one category that match the globs.
class Unticker : RecordMatcher {
 public:
  Unticker(Globs& globs, const CategoryInformation& category, std::vector<std::string>& foldersLeft)
      : RecordMatcher(globs, category), foldersLeft_(foldersLeft) {}

  void untick(Children<FileInformation>& records) {
    for (FileInformation& record : records) untick(record);
  }

 private:
  Integer untick(FileInformation& record) {
    const std::string path = pathOf(record.url);
    const bool isOn = record.state == NSControlStateValueOn;
    bool isNamed = matches(record);
    isNamed = isBelowMatch(path, globs_) || isNamed;
    const bool isSearched = isOn && (!isNamed || !globs_.areAllUsed());
    const bool isHolder = isSearched && holdsMatch(path, globs_);
    if (isHolder && !isNamed) foldersLeft_.push_back(path);
    if (isNamed || isHolder) {
      record.state = NSControlStateValueOff;
      setAll(record.childrens, NSControlStateValueOff);
    }
    // Records without a tick are matched too: a glob that matches one of them counts as used.
    titles_.push_back(record.title);
    StateAbove below;
    for (FileInformation& child : record.childrens) below.add(untick(child));
    titles_.pop_back();
    record.state = below.value(record.state);
    return record.state;
  }

  std::vector<std::string>& foldersLeft_;
};

/// A scan may list a folder and, beside it, items in it: if the folder stays, these stay too.
Integer untickBelow(Children<FileInformation>& records, const std::unordered_set<std::string>& folders) {
  StateAbove above;
  for (FileInformation& record : records) {
    if (record.state != NSControlStateValueOff) {
      if (isBelowAny(pathOf(record.url), folders)) {
        record.state = NSControlStateValueOff;
        setAll(record.childrens, NSControlStateValueOff);
      } else if (!record.childrens.empty()) {
        record.state = untickBelow(record.childrens, folders);
      }
    }
    above.add(record.state);
  }
  return above.value(NSControlStateValueOff);
}

void collectTicked(Children<FileInformation>& records, bool below, FileRecords& ticked) {
  for (FileInformation& record : records) {
    if (record.state == NSControlStateValueOn) {
      ticked.emplace_back(record);
    } else if (below && isMixed(record.state)) {
      collectTicked(record.childrens, below, ticked);
    }
  }
}

void collectMembers(CategoryInformation& category, FileRecords& ticked) {
  for (FileInformation& group : category.childrens) collectTicked(group.childrens, true, ticked);
}

}  // namespace

bool holdsMatch(const std::string& path, Globs& globs) {
  namespace fs = std::filesystem;
  std::error_code error;
  if (path.empty()) return false;
  const fs::file_type type = fs::symlink_status(path, error).type();
  if (type == fs::file_type::none) return true;  // its existence is unknown
  if (type != fs::file_type::directory) return false;
  bool any = false;
  fs::recursive_directory_iterator at(path, error);
  for (const fs::recursive_directory_iterator end; !error && at != end; at.increment(error)) {
    any = globs.match(at->path().native()) || any;
  }
  return any || error;
}

void clearTicks(FeatureInformation& feature) {
  setAll(feature.categoryInfo, NSControlStateValueOff);
  CategoryStates(NSControlStateValueOff).setIn(feature);
}

void tickAll(FeatureInformation& feature) {
  setAll(feature.categoryInfo, NSControlStateValueOn);
  CategoryStates(NSControlStateValueOn).setIn(feature);
}

void tickMatching(FeatureInformation& feature, Globs& globs) {
  clearTicks(feature);
  for (CategoryInformation* const holder : recordHolders(feature))
    Ticker(globs, *holder).tick(holder->childrens);
  CategoryStates(NSControlStateValueOff).setIn(feature);
}

std::vector<std::string> untickMatching(FeatureInformation& feature, Globs& globs) {
  std::vector<std::string> foldersLeft;
  const std::vector<CategoryInformation*> holders = recordHolders(feature);
  for (CategoryInformation* const holder : holders)
    Unticker(globs, *holder, foldersLeft).untick(holder->childrens);
  if (!foldersLeft.empty()) {
    const std::unordered_set<std::string> folders(foldersLeft.begin(), foldersLeft.end());
    for (CategoryInformation* const holder : holders) untickBelow(holder->childrens, folders);
  }
  CategoryStates(NSControlStateValueOff).setIn(feature);
  return foldersLeft;
}

FileRecords tickedRecords(TreeShape shape, FeatureInformation& feature) {
  FileRecords ticked;
  if (feature.categoryInfo.empty()) return ticked;
  switch (shape) {
    case TreeShape::Categories:
      for (CategoryInformation& category : feature.categoryInfo) {
        collectTicked(category.childrens, true, ticked);
      }
      break;
    case TreeShape::Groups:
      collectMembers(feature.categoryInfo.front(), ticked);
      break;
    case TreeShape::Flat:
      collectTicked(feature.categoryInfo.front().childrens, false, ticked);
      break;
    case TreeShape::Rows:
      for (CategoryInformation* const row : recordHolders(feature)) {
        collectTicked(row->childrens, true, ticked);
      }
      break;
    case TreeShape::Details:
      for (CategoryInformation& category : feature.categoryInfo) collectMembers(category, ticked);
      break;
  }
  return ticked;
}

FileRecords leavesOf(const FileRecords& records) {
  FileRecords leaves;
  for (const Ref<FileInformation>& record : records) {
    sumOfLeaves(*record, [&leaves](FileInformation& leaf) -> Integer {
      leaves.emplace_back(leaf);
      return 0;
    });
  }
  return leaves;
}

}  // namespace sorrel
