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

/// The calls that are under way, by number. Callers that are not identified yet may have one call each and
/// kMostUnidentified together; identified users one each, kMostQuestions together while polkit is asked, and
/// kMost together once they are authorised: questions, which need no yes, hold up no authorised user.
class CallList {
 public:
  static constexpr std::size_t kMost = 16;
  static constexpr std::size_t kMostUnidentified = 1024;
  static constexpr std::size_t kMostQuestions = 1024;

  /// Gives the call its number and returns it.
  HelperCall& add(std::unique_ptr<HelperCall> call);
  /// Null if it is not under way any more.
  [[nodiscard]] HelperCall* find(std::uint64_t id) const;
  /// Takes one off the list that is on it.
  std::unique_ptr<HelperCall> take(std::uint64_t id);

  [[nodiscard]] bool canIdentify(const std::string& sender) const;
  /// Whether an identified user has an event under way.
  [[nodiscard]] bool hasCallOf(std::uint32_t uid) const;
  [[nodiscard]] bool mayAsk() const;
  /// Whether kMost authorised calls are under way.
  [[nodiscard]] bool isFull() const;
  /// Whether anything is under way for an identified, or for an authorised, caller.
  [[nodiscard]] bool hasWork() const;
  [[nodiscard]] bool hasAuthorisedWork() const;
  /// The most that the replies to the running events can take, except for this one. An event that may still
  /// never run holds no room.
  [[nodiscard]] std::size_t mostReplyBytesBeside(const HelperCall& call) const;
  /// When the first ticket expires.
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
