#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Helper/HelperCall.hpp"

namespace sorrel::helper {

/// The active calls, by number. Callers that are not identified yet may have one call each and
/// kMostUnidentified in total; identified users one each, kMostQuestions in total while polkit is queried,
/// and kMost in total once they are authorised: unanswered questions do not block authorised users.
class CallList {
 public:
  static constexpr std::size_t kMost = 16;
  static constexpr std::size_t kMostUnidentified = 1024;
  static constexpr std::size_t kMostQuestions = 1024;

  /// Assigns the call's number and returns the call.
  HelperCall& add(std::unique_ptr<HelperCall> call);
  /// Null if it is no longer active.
  [[nodiscard]] HelperCall* find(std::uint64_t id) const;
  /// Removes a call that is on the list.
  std::unique_ptr<HelperCall> take(std::uint64_t id);

  [[nodiscard]] bool canIdentify(const std::string& sender) const;
  /// True if an identified user has an active event.
  [[nodiscard]] bool hasCallOf(std::uint32_t uid) const;
  [[nodiscard]] bool mayAsk() const;
  /// True if kMost authorised calls are active.
  [[nodiscard]] bool isFull() const;
  /// True if a call is active for an identified, or for an authorised, caller.
  [[nodiscard]] bool hasWork() const;
  [[nodiscard]] bool hasAuthorisedWork() const;
  /// The maximum size of the replies to the running events, except for this one. An event that may never run
  /// reserves no space.
  [[nodiscard]] std::size_t mostReplyBytesBeside(const HelperCall& call) const;
  /// The time when the first ticket expires.
  [[nodiscard]] std::optional<HelperCall::Clock::time_point> firstDeadline() const;

  /// The numbers of all calls, or of those of one connection.
  [[nodiscard]] std::vector<std::uint64_t> all() const;
  [[nodiscard]] std::vector<std::uint64_t> from(const std::string& sender) const;

 private:
  template <class Condition>
  [[nodiscard]] std::size_t count(Condition condition) const;

  std::map<std::uint64_t, std::unique_ptr<HelperCall>> calls_;
  std::uint64_t lastID_ = 0;
};

}  // namespace sorrel::helper
