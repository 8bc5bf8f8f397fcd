#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Helper/EventRunner.hpp"
#include "Helper/PathResult.hpp"
#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/RemovalKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {

/// A temporary folder, and events about it that run in this process as in the worker. For root only: the
/// tests give files to other users.
class EventKit : public testing::Test {
 protected:
  static constexpr unsigned kCaller = kKnownUser;
  static constexpr unsigned kThird = 10003;
  using Status = HelperEventErrorID;

  void SetUp() override {
    if (!canBeOtherUsers()) GTEST_SKIP() << "only root can give files away";
  }

  /// Runs an event with this process's view of its keys, or with these views.
  helper::EventOutcome run(HelperHanldeEventID kind, const HelperDictionary& event,
                           std::vector<SenderView> views = {}) {
    HelperMessage message{HelperMessage::Kind::Event, event, std::move(views)};
    for (auto entry = event.begin(); entry != event.end() && message.views.size() < event.size(); ++entry) {
      message.views.push_back(viewOf(entry->first));
    }
    const std::string bytes = encodeHelperMessage(message).value_or("");
    const auto view = MessageView::of(bytes, HelperMessage::Kind::Event);
    if (!view.has_value()) {
      ADD_FAILURE() << "the event cannot be coded";
      return {};
    }
    results.clear();
    order.clear();
    Sink sink(*this, event);
    const auto form = helper::EventForm::of(static_cast<std::int32_t>(kind), *view);
    return helper::runEvent({form.value_or(helper::EventForm{kind, {}, 0}), caller, *view, configuration},
                            sink);
  }
  helper::EventOutcome removeAll(const std::vector<std::string>& paths) {
    HelperDictionary event;
    for (const std::string& path : paths) event[path] = HelperDictionary{{"0", 0}};
    return run(HelperHanldeEventID::Delete, event);
  }
  helper::EventOutcome shredAll(const std::vector<std::string>& paths) {
    HelperDictionary event;
    for (const std::string& path : paths) event[path] = HelperDictionary();
    return run(HelperHanldeEventID::Shred, event);
  }
  [[nodiscard]] Status statusOf(const std::string& path) const {
    const auto found = results.find(path);
    EXPECT_NE(found, results.end()) << path;
    return found == results.end() ? Status::OverTime : found->second.status;
  }
  [[nodiscard]] std::string descOf(const std::string& path) const {
    const auto found = results.find(path);
    return found == results.end() ? "no result" : found->second.desc;
  }
  [[nodiscard]] bool isRefused(const std::string& path) const {
    return statusOf(path) != Status::Success && descOf(path).starts_with(helper::kRefusedItemText);
  }
  static bool isThere(const std::string& path) { return viewOf(path).kind == SenderView::Kind::Present; }

  TemporaryVolume volume;
  helper::HelperConfiguration configuration;
  std::uint32_t caller = kCaller;
  std::map<std::string, helper::PathResult> results;  ///< of the last event, by path
  std::vector<std::string> order;                     ///< the paths in the order of their results

 private:
  class Sink : public helper::ResultSink {
   public:
    Sink(EventKit& kit, const HelperDictionary& event) : kit_(kit) {
      for (const auto& [key, value] : event) keys_.push_back(key);
    }
    void result(std::size_t index, Status status, std::string_view desc) override {
      const std::string& path = keys_.at(index);
      EXPECT_TRUE(kit_.results.emplace(path, helper::PathResult{status, std::string(desc)}).second)
          << "a second result of " << path;
      kit_.order.push_back(path);
    }

   private:
    EventKit& kit_;
    std::vector<std::string> keys_;
  };
};

}  // namespace sorrel::test
