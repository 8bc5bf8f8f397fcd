#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

namespace sorrel::helper {

/// What refusals that list each path may take of this process's memory and time, for each user. Their memory
/// is the helper's until its receiver closes it, and the receiver, whom nobody has authorised for anything,
/// need not. The next helper has a new budget: who waits for the idle end of each gets one in that time, far
/// less than the memory that users make for themselves at will.
class RefusalBudget {
 public:
  static constexpr std::size_t kOfUser = std::size_t{32} << 20;

  /// Takes `bytes` off what the user has left, for good. False, and nothing is taken, if that is less.
  [[nodiscard]] bool take(std::uint32_t uid, std::size_t bytes);

 private:
  std::map<std::uint32_t, std::size_t> taken_;
};

}  // namespace sorrel::helper
