#include "SorrelFramework/Scan/PercentService.hpp"

#include <chrono>
#include <utility>

#include "SorrelFramework/Platform/Queues/MainQueue.hpp"

namespace sorrel {
namespace {

constexpr std::chrono::milliseconds kInterval{100};

}  // namespace

PercentService::PercentService(std::function<void(float)> progress, std::int64_t total, float increase)
    : progressFunc(std::move(progress)), totalStep(total), increaseValue(increase) {}

PercentService::~PercentService() = default;

std::unique_ptr<MainTimer> PercentService::exchangeTimer(std::unique_ptr<MainTimer> timer) {
  const std::lock_guard lock(mutex_);
  return std::exchange(timer_, std::move(timer));
}

void PercentService::startTime() {
  const auto weak = weak_from_this();
  std::function<void()> tick;
  if (weak.expired()) {
    tick = guard_.guarded([this] { updatePercent(); });
  } else {
    tick = [weak] {
      if (const auto self = weak.lock()) self->updatePercent();
    };
  }
  exchangeTimer(std::make_unique<MainTimer>(kInterval, std::move(tick)));
}

void PercentService::progressStep() { ++currentStep; }

void PercentService::updatePercent() {
  const std::int64_t finished = currentStep.load();
  if (finished == totalStep) {
    stopTime();
    return;
  }
  const float value = singleStep.load();
  const bool isBehind = static_cast<float>(finished) > value;
  if (!isBehind) return;
  singleStep.store(value + increaseValue);
  if (progressFunc) progressFunc(singleStep.load() / static_cast<float>(totalStep));
}

void PercentService::stopTime() {
  exchangeTimer(nullptr);
  if (!progressFunc) return;
  if (MainQueue::isCurrent()) {
    progressFunc(1.0F);
  } else {
    MainQueue::post([report = progressFunc] { report(1.0F); });
  }
}

}  // namespace sorrel
