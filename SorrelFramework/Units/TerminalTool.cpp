#include "SorrelFramework/Units/TerminalTool.hpp"

#include <atomic>
#include <deque>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "SorrelFramework/Units/ScanStatus.hpp"

namespace sorrel {
namespace {

constexpr std::string_view kNoText = "Error";

/// The output of a tool: pieces that are not processed yet, and the text of those that were kept. A task
/// processes the first remaining piece, not one of its own: a task that the queue first refuses and accepts
/// late then changes neither the order nor the final text.
class Output {
 public:
  /// `cell` is the state of the scan that may be stopped; null for a tool that always runs to its end.
  Output(std::shared_ptr<ChildProcess> child, const ScanStatusTable::Cell* cell)
      : child_(std::move(child)), cell_(cell) {}

  void add(std::string_view piece) {
    const std::lock_guard lock(mutex_);
    pieces_.emplace_back(piece);
  }

  /// Keeps the first remaining piece, or drops it and interrupts the tool if the scan was stopped; false if
  /// no piece is left. On the queue, like takeText().
  bool lookAtPiece() {
    std::string piece;
    {
      const std::lock_guard lock(mutex_);
      if (pieces_.empty()) return false;
      piece = std::move(pieces_.front());
      pieces_.pop_front();
    }
    if (cell_ != nullptr && ScanStatusTable::isSuspended(*cell_)) {
      child_->interrupt();
    } else {
      text_.append(piece);
    }
    return true;
  }

  std::string takeText() { return std::move(text_); }

 private:
  const std::shared_ptr<ChildProcess> child_;
  const ScanStatusTable::Cell* const cell_;
  std::mutex mutex_;  // guards pieces_
  std::deque<std::string> pieces_;
  std::string text_;
};

std::size_t outputLimit = ChildLimits{}.output;

ChildLimits limits() {
  ChildLimits chosen;
  chosen.output = outputLimit;
  return chosen;
}

/// A truncated line may be the path of another file.
void keepWholeLines(std::string& text) { text.resize(text.rfind('\n') + 1); }

void logCutOutput(const std::string& launchPath) {
  LogService::shard().log(
      LogService::LogLevel::Info,
      "TerminalUtils output cut at " + std::to_string(outputLimit) + " bytes: " + launchPath);
}

enum class Stop {
  Ignored,   ///< the tool runs to its end
  AtOutput,  ///< the next piece of output is dropped and interrupts the tool
  AtOnce,    ///< the tool is killed
};

/// `finderID` is the feature whose stop counts. Returns the errno with which the tool could not be started.
int collectOnQueue(const std::string& launchPath, const std::vector<std::string>& arguments,
                   const std::shared_ptr<WeftSerialQueue>& thread, TerminalFinish finish,
                   Stop stop = Stop::Ignored, std::int64_t finderID = 0, const ChildNotes* notes = nullptr) {
  const auto child =
      std::make_shared<ChildProcess>(Host::current().tool(launchPath), arguments, limits(), notes);
  if (stop == Stop::AtOnce && child->startError() != 0) return child->startError();
  const auto* const cell = stop == Stop::AtOutput ? &scanStatusTable().cell(finderID) : nullptr;
  const auto output = std::make_shared<Output>(child, cell);
  std::atomic<bool> isKilled = false;
  std::optional<SuspendWatch> watch;
  if (stop == Stop::AtOnce) {
    watch.emplace(finderID, [&] {
      isKilled = true;
      child->kill();
    });
  }
  const ChildProcess::Ending ending = child->run([&](std::string_view piece) {
    output->add(piece);
    submitWithRetry(thread, [output] { output->lookAtPiece(); });
    return true;
  });
  watch.reset();
  const bool started = child->startError() == 0;
  if (ending.outputCut) logCutOutput(launchPath);
  const bool isPart = ending.outputCut || isKilled;
  submitWithRetry(thread, [output, started, isPart, finish = std::move(finish)] {
    while (output->lookAtPiece()) {
    }
    std::string text = output->takeText();
    if (isPart) keepWholeLines(text);
    if (finish) finish(started && isValidUTF8(text) ? std::move(text) : std::string());
  });
  return child->startError();
}

}  // namespace

std::string TerminalUtils::runTerminal(const std::string& launchPath,
                                       const std::vector<std::string>& arguments) {
  ChildProcess child(Host::current().tool(launchPath), arguments, limits());
  std::string output;
  const ChildProcess::Ending ending = child.run([&output](std::string_view piece) {
    output.append(piece);
    return true;
  });
  if (ending.outputCut) {
    logCutOutput(launchPath);
    keepWholeLines(output);
  }
  return child.startError() == 0 && isValidUTF8(output) ? output : std::string(kNoText);
}

void TerminalUtils::realTimeRunTerminal(const std::string& launchPath,
                                        const std::vector<std::string>& arguments,
                                        const std::shared_ptr<WeftSerialQueue>& thread,
                                        TerminalFinish finish) {
  collectOnQueue(launchPath, arguments, thread, std::move(finish));
}

void TerminalUtils::setOutputLimitForTesting(std::size_t bytes) { outputLimit = bytes; }

TerminalUtilsClass::TerminalUtilsClass(std::int64_t index) : featureIndex(index) {}

std::string TerminalUtilsClass::runTerminal(const std::string& launchPath,
                                            const std::vector<std::string>& arguments) const {
  return TerminalUtils::runTerminal(launchPath, arguments);
}

void TerminalUtilsClass::realTimeRunTerminal(const std::string& launchPath,
                                             const std::vector<std::string>& arguments,
                                             const std::shared_ptr<WeftSerialQueue>& thread,
                                             TerminalFinish finish) const {
  collectOnQueue(launchPath, arguments, thread, std::move(finish), Stop::AtOutput, featureIndex);
}

int TerminalUtilsClass::runUntilStopped(const std::string& launchPath,
                                        const std::vector<std::string>& arguments,
                                        const std::shared_ptr<WeftSerialQueue>& thread, TerminalFinish finish,
                                        const ChildNotes* notes) const {
  return collectOnQueue(launchPath, arguments, thread, std::move(finish), Stop::AtOnce, featureIndex, notes);
}

}  // namespace sorrel
