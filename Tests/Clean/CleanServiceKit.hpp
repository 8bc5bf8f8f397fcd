#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "SorrelFramework/Clean/CleanService.hpp"
#include "Tests/Support/CleanKit.hpp"

namespace sorrel::test {

using Names = std::vector<std::string>;

class CleanServiceTest : public CleanFixture {
 protected:
  /// A record of a file of the volume, which is created too.
  Ref<FileInformation> leaf(const std::string& name, Integer state = kOn, std::int64_t size = 1,
                            bool canDelete = true) {
    stage_.volume.file(name, name);
    return makeRecord({stage_.volume.url(name), state, size, canDelete});
  }
  /// A record of a folder of the volume with these children.
  Ref<FileInformation> folder(const std::string& name, Integer state, const Records& childrens,
                              std::int64_t size = 0) {
    stage_.volume.folder(name);
    return makeRecord({stage_.volume.url(name + "/"), state, size, true, childrens});
  }

  /// Runs `entry` to its end; returns the paths that are gone from the volume.
  template <class Entry>
  Names goneAfter(const Entry& entry) {
    const auto before = snapshotOf(stage_.volume.path());
    entry();
    EXPECT_TRUE(finish_->waitUntilFinished());
    return goneBetween(before, snapshotOf(stage_.volume.path()));
  }
  Names clean(const std::vector<Ref<CategoryInformation>>& categorys,
              CleanServiceType type = CleanServiceType::Common) {
    return goneAfter([&] { CleanService::cleanCategorys(categorys, type, finish_); });
  }
  Names cleanGroups(const Ref<CategoryInformation>& all) {
    return goneAfter(
        [&] { CleanService::cleanDuplicateAndSimilarCategorys(*all, CleanServiceType::Duplicate, finish_); });
  }
  Names cleanLarge(const Ref<CategoryInformation>& all) {
    return goneAfter(
        [&] { CleanService::cleanLargeAndOldCategorys(*all, CleanServiceType::LargeAndOldFile, finish_); });
  }

  const UnrepairedLargeFiles unrepaired_;
};

inline const std::vector<float> kFullProgress = {0.25F, 0.5F, 0.75F};

}  // namespace sorrel::test
