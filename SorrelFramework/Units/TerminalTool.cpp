#include "SorrelFramework/Units/TerminalTool.hpp"

#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/ChildProcess.hpp"
#include "SorrelFramework/Platform/Host.hpp"
#include "SorrelFramework/Platform/Text.hpp"
#include "SorrelFramework/Units/ScanStatus.hpp"

namespace sorrel {
namespace {

constexpr std::string_view kNoText = "Error";

/// `cell` is the state of the scan that may be stopped; none for a tool that always runs to its end.
void collectOnQueue(const std::string& launchPath, const std::vector<std::string>& arguments,
                    const std::shared_ptr<WeftSerialQueue>& thread, TerminalFinish finish,
                    const ScanStatusTable::Cell* cell) {
  const auto child = std::make_shared<ChildProcess>(Host::current().tool(launchPath), arguments);
  const auto collected = std::make_shared<std::string>();  // only on `thread`
  child->run([&](std::string_view piece) {
    submitWithRetry(thread, [child, collected, cell, bytes = std::string(piece)] {
      if (cell != nullptr && ScanStatusTable::isSuspended(*cell)) {
        child->interrupt();
      } else {
        collected->append(bytes);
      }
    });
    return true;
  });
  const bool started = child->startError() == 0;
  submitWithRetry(thread, [collected, started, finish = std::move(finish)] {
    const bool isText = started && isValidUTF8(*collected);
    if (finish) finish(isText ? std::move(*collected) : std::string());
  });
}

}  // namespace

std::string TerminalUtils::runTerminal(const std::string& launchPath,
                                       const std::vector<std::string>& arguments) {
  ChildProcess child(Host::current().tool(launchPath), arguments);
  std::string output;
  child.run([&output](std::string_view piece) {
    output.append(piece);
    return true;
  });
  return child.startError() == 0 && isValidUTF8(output) ? output : std::string(kNoText);
}

void TerminalUtils::realTimeRunTerminal(const std::string& launchPath,
                                        const std::vector<std::string>& arguments,
                                        const std::shared_ptr<WeftSerialQueue>& thread,
                                        TerminalFinish finish) {
  collectOnQueue(launchPath, arguments, thread, std::move(finish), nullptr);
}

TerminalUtilsClass::TerminalUtilsClass(std::int64_t index) : featureIndex(index) {}

std::string TerminalUtilsClass::runTerminal(const std::string& launchPath,
                                            const std::vector<std::string>& arguments) const {
  return TerminalUtils::runTerminal(launchPath, arguments);
}

void TerminalUtilsClass::realTimeRunTerminal(const std::string& launchPath,
                                             const std::vector<std::string>& arguments,
                                             const std::shared_ptr<WeftSerialQueue>& thread,
                                             TerminalFinish finish) const {
  collectOnQueue(launchPath, arguments, thread, std::move(finish), &scanStatusTable().cell(featureIndex));
}

}  // namespace sorrel
