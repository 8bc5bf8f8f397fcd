#pragma once

#include <functional>
#include <utility>

namespace sorrel::cli {

/// The effect of the first Ctrl-C, which differs from one stage of a command to the next. Main thread only.
class StopSwitch {
 public:
  /// Sets the action of the next stage; an empty one while there is nothing to stop.
  void setAction(std::function<void()> action) { action_ = std::move(action); }
  void pull() {
    isPulled_ = true;
    if (action_) action_();
  }
  [[nodiscard]] bool isPulled() const noexcept { return isPulled_; }

 private:
  std::function<void()> action_;
  bool isPulled_ = false;
};

}  // namespace sorrel::cli
