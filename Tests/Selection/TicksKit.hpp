#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Selection/Globs.hpp"
#include "SorrelFramework/Selection/Ticks.hpp"
#include "Tests/Support/CleanKit.hpp"

namespace sorrel {

using test::kMixed;
using test::kOff;
using test::kOn;
using test::makeCategory;
using test::makeRecord;
using Names = std::vector<std::string>;
using Records = std::vector<Ref<FileInformation>>;

/// A tree with a volume below it, ticked as the program does.
class TicksTest : public testing::Test {
 protected:
  Ref<FileInformation> file(const std::string& name, const Records& childrens = {}) {
    return makeRecord({stage_.volume.url(name), kOff, 1, true, childrens, made_++});
  }
  Ref<FileInformation> realFile(const std::string& name) {
    stage_.volume.file(name, name);
    return file(name);
  }
  /// A record without a file: a group, or a trace.
  Ref<FileInformation> titled(const std::string& title, const Records& childrens = {}) {
    auto record = makeRecord({URL(), kOff, 1, true, childrens, made_++});
    record->title = title;
    return record;
  }
  Ref<CategoryInformation> add(const std::string& title, const Records& records) {
    auto category = makeCategory(stage_.feature, kOff, records);
    category->title = title;
    stage_.feature->categoryInfo.push_back(category);
    return category;
  }
  [[nodiscard]] std::string path(const std::string& name) const { return stage_.volume.path(name); }
  FeatureInformation& feature() { return *stage_.feature; }
  void select(Names globs) {
    Globs patterns(std::move(globs));
    tickMatching(feature(), patterns);
  }
  /// The folders that stay because of the exceptions.
  Names except(Names globs) {
    Globs patterns(std::move(globs));
    return untickMatching(feature(), patterns);
  }
  /// Titles of the leaves that a clean of that shape would remove.
  Names selected(TreeShape shape = TreeShape::Categories) {
    Names titles;
    for (const auto& leaf : leavesOf(tickedRecords(shape, feature()))) titles.push_back(leaf->title);
    return titles;
  }

  test::CleanStage stage_;
  Integer made_ = 0;
};

}  // namespace sorrel
