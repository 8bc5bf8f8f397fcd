#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace sorrel {

/// A member of an object that hands out callbacks but may be owned by something other than a shared pointer:
/// on the stack, in a unique pointer, or as a member. A guarded callback does nothing after the guard is
/// destroyed. The destructor waits for a callback that runs on another thread; it may be called from inside a
/// callback.
class CallGuard {
 public:
  CallGuard() = default;
  ~CallGuard() {
    const std::lock_guard lock(state_->mutex);
    state_->isOpen = false;
  }
  CallGuard(const CallGuard&) = delete;
  CallGuard& operator=(const CallGuard&) = delete;

  template <class Call>
  [[nodiscard]] auto guarded(Call call) const {
    return [state = state_, call = std::move(call)](const auto&... arguments) {
      const std::lock_guard lock(state->mutex);
      if (state->isOpen) call(arguments...);
    };
  }

 private:
  struct State {
    std::recursive_mutex mutex;
    bool isOpen = true;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace sorrel
