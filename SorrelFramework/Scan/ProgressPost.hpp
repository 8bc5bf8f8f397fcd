#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "SorrelFramework/Platform/Text/URL.hpp"
#include "SorrelFramework/Scan/ScanTypes.hpp"

namespace sorrel {

/// Carries the items that one thread finds to the main queue, in order, many in one block: those found within
/// a twentieth of a second, so that the user sees them at once and a million of them do not flood the loop.
class ProgressPost {
 public:
  explicit ProgressPost(std::shared_ptr<const ProgressFunc> progress) : progress_(std::move(progress)) {}
  ~ProgressPost() { flush(); }
  ProgressPost(const ProgressPost&) = delete;
  ProgressPost& operator=(const ProgressPost&) = delete;

  void add(const URL& url, std::int64_t size);
  /// Posts the collected items if it is time.
  void tick();
  void flush();

 private:
  struct Item {
    URL url;
    std::int64_t size;
  };
  using Clock = std::chrono::steady_clock;

  std::shared_ptr<const ProgressFunc> progress_;
  std::vector<Item> items_;
  Clock::time_point posted_ = Clock::now();
};

}  // namespace sorrel
