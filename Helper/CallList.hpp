#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Helper/HelperCall.hpp"

namespace sorrel::helper {

/// The calls that are under way, by number. Each user may have kMostOfUser beyond the question who they are,
/// all together kMost; each connection kMostOfCaller, that question included.
class CallList {
 public:
  static constexpr std::size_t kMostOfUser = 2;
  static constexpr std::size_t kMost = 16;
  static constexpr std::size_t kMostOfCaller = 8;

  /// Gives the call its number; answers that.
  std::uint64_t add(std::unique_ptr<HelperCall> call);
  /// Null if it is not under way any more.
  [[nodiscard]] HelperCall* find(std::uint64_t id) const;
  /// Takes one off the list that is on it.
  std::unique_ptr<HelperCall> take(std::uint64_t id);

  [[nodiscard]] std::size_t size() const noexcept { return calls_.size(); }
  [[nodiscard]] bool hasRoomFor(std::uint32_t uid) const;
  [[nodiscard]] bool hasRoomForCaller(const std::string& sender) const;
  /// The numbers of all calls, or of those of one connection.
  [[nodiscard]] std::vector<std::uint64_t> all() const;
  [[nodiscard]] std::vector<std::uint64_t> from(const std::string& sender) const;

 private:
  std::map<std::uint64_t, std::unique_ptr<HelperCall>> calls_;
  std::uint64_t lastID_ = 0;
};

}  // namespace sorrel::helper
