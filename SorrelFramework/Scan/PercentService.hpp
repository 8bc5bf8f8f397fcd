#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "SorrelFramework/Platform/Base/CallGuard.hpp"

namespace sorrel {

class MainTimer;

/// Smooths a progress bar. Scanners finish their work in bursts; a timer on the main queue lets a value
/// approach the count of finished steps slowly and reports it as a fraction of all steps. Any object may own
/// a service; a destroyed service reports no further.
class PercentService : public std::enable_shared_from_this<PercentService> {
 public:
  /// `progressFunc` gets the fraction, on the main queue. It may pass 1.0 when more steps are finished than
  /// were announced.
  PercentService(std::function<void(float)> progressFunc, std::int64_t totalStep, float increaseValue = 0.2F);
  ~PercentService();
  PercentService(const PercentService&) = delete;
  PercentService& operator=(const PercentService&) = delete;

  /// Starts the timer, which calls updatePercent() every 0.1 seconds while the main queue runs. Any thread.
  void startTime();
  /// One step is finished. Any thread.
  void progressStep();
  /// One tick: ends the timer if all steps are finished; otherwise, if the slow value is below the finished
  /// steps, adds increaseValue to it and reports it. On the main queue.
  void updatePercent();
  /// Ends the timer and reports 1.0 on each call: at once on the main queue, via the main queue from other
  /// threads. Any thread.
  void stopTime();

  std::function<void(float)> progressFunc;
  std::int64_t totalStep;
  std::atomic<std::int64_t> currentStep{0};  ///< steps finished
  std::atomic<float> singleStep{0};          ///< the slow value, in steps
  float increaseValue;                       ///< steps added by a tick

 private:
  std::unique_ptr<MainTimer> exchangeTimer(std::unique_ptr<MainTimer> timer);

  std::mutex mutex_;  // guards timer_
  std::unique_ptr<MainTimer> timer_;
  CallGuard guard_;
};

}  // namespace sorrel
