#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Clean/CleanService.hpp"
#include "SorrelFramework/Clean/HelperCleanService.hpp"
#include "Tests/Support/CleanKit.hpp"

namespace sorrel::test {

using Names = std::vector<std::string>;

/// Records of files that need not exist: this process removes nothing here.
class HelperCleanServiceTest : public CleanFixture {
 protected:
  Ref<FileInformation> leaf(const std::string& name, std::int64_t size = 1, Integer finderID = 0) {
    return makeRecord({stage_.volume.url(name), kOn, size, false, {}, finderID});
  }
  Ref<FileInformation> leafWith(Integer state, Integer status, std::int64_t size = 1,
                                const std::string& desc = "") {
    const auto record =
        makeRecord({stage_.volume.url("f" + std::to_string(made_)), state, size, true, {}, 1000 + made_});
    ++made_;
    record->deleteStatus = status;
    record->deleteErrorDesc = desc;
    return record;
  }
  Ref<FileInformation> folder(Integer state, const Records& childrens, std::int64_t size = 0) {
    const auto record = makeRecord(
        {stage_.volume.url("d" + std::to_string(made_) + "/"), state, size, true, childrens, 1000 + made_});
    ++made_;
    return record;
  }
  /// A service whose helper half has these records, marked as by the selection; the other half is done.
  std::shared_ptr<HelperCleanService> serviceFor(const Records& records,
                                                 CleanServiceType type = CleanServiceType::Common) {
    auto service = makeService({category(kOn, records)}, type);
    for (const auto& record : records) CleanService::updateDeleteStatus(*record, kDeleteing, *service);
    service->commonFinish();
    return service;
  }
  std::shared_ptr<ScriptedHelper> helperThat(ScriptedHelper::Answer answer) {
    auto helper = std::make_shared<ScriptedHelper>(std::move(answer));
    stage_.setHelper(helper);
    return helper;
  }
  /// A helper that sends this dictionary in reply to any event.
  std::shared_ptr<ScriptedHelper> helperSending(std::optional<HelperDictionary> reply) {
    return helperThat([reply = std::move(reply)](auto&) {
      return std::optional(ScriptedHelper::Reply{false, 99, reply});
    });
  }
  /// The helper's half of a clean of these records.
  void run(const Records& records, CleanServiceType type = CleanServiceType::Common) {
    service_ = serviceFor(records, type);
    service_->deleteHelperFile();
    ASSERT_TRUE(finish_->waitUntilFinished());
  }
  const FinishRecord::Finish& finish() { return finish_->finishes.at(0); }

  std::shared_ptr<HelperCleanService> service_;
  Integer made_ = 0;
};

}  // namespace sorrel::test
