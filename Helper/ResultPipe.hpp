#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Helper/EventRunner.hpp"
#include "Helper/ResultTable.hpp"

namespace sorrel::helper {

/// The worker's end: each result is in the pipe when result() returns, so that it outlives the worker. Ends
/// the process if the other end is gone.
class ResultPipeWriter : public ResultSink {
 public:
  /// Does not own `pipe`.
  explicit ResultPipeWriter(int pipe) : pipe_(pipe) {}
  void result(std::size_t index, HelperEventErrorID status, std::string_view desc) override;
  /// Writes the final record.
  void end(const EventOutcome& outcome);

 private:
  void write(std::string_view bytes) const;

  int pipe_;
};

/// The supervisor's end: accepts the stream in pieces of any size.
class ResultPipeReader {
 public:
  explicit ResultPipeReader(ResultTable& table) : table_(table) {}
  /// False if a writer can't have produced these bytes.
  [[nodiscard]] bool take(std::string_view bytes);
  /// The worker's overall result; nothing if the worker did not get that far.
  [[nodiscard]] const std::optional<EventOutcome>& outcome() const noexcept { return outcome_; }
  /// Peak memory of the worker in KiB; 0 without an outcome.
  [[nodiscard]] long peakMemory() const noexcept { return peakMemory_; }

 private:
  ResultTable& table_;
  std::string rest_;  // the beginning of an incomplete record
  std::optional<EventOutcome> outcome_;
  long peakMemory_ = 0;
};

}  // namespace sorrel::helper
