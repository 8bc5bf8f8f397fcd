#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace sorrel::test {

/// While it lives, no wait of the framework takes time: each is recorded instead.
class VirtualClock {
 public:
  VirtualClock();
  /// Calls `onWait` with each wait as well, on the thread that waits.
  explicit VirtualClock(std::function<void(std::uint64_t)> onWait);
  ~VirtualClock();
  VirtualClock(const VirtualClock&) = delete;
  VirtualClock& operator=(const VirtualClock&) = delete;

  /// Microseconds of each wait so far, in order.
  [[nodiscard]] std::vector<std::uint64_t> waits() const;

 private:
  struct Notes;
  std::shared_ptr<Notes> notes_;
};

}  // namespace sorrel::test
