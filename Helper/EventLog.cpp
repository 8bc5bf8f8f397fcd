#include "Helper/EventLog.hpp"

#include "Helper/RemovedPaths.hpp"

namespace sorrel::helper {
namespace {

void logFailures(HelperLog& log, const HelperCall& call, const ResultTable& results) {
  if (results.successes() == call.paths()) return;
  for (const MessageView::Entry& entry : call.view->dictionary()) {
    if (!results.isKnown(entry.index) || results.isSuccess(entry.index)) continue;
    log.limited(call.uid, [&] {
      const auto status = results.status(entry.index, call.form.failure());
      return "call " + std::to_string(call.id) +
             ": not done: status=" + std::to_string(static_cast<int>(status)) + " path=\"" +
             escapedForLog(entry.key) + "\" why=\"" + escapedForLog(results.text(entry.index, "")) + "\"";
    });
  }
  log.reportHeldBack(call.uid);
}

void logRemoved(HelperLog& log, const HelperCall& call, const ResultTable& results) {
  const std::string number = "call " + std::to_string(call.id);
  const RemovedPaths removed = RemovedPaths::of(*call.view, results);
  for (const std::string_view path : removed.topmost) {
    log.info(number + ": removed path=\"" + escapedForLog(path) + "\"");
  }
  if (removed.count > removed.topmost.size()) {
    log.info(number + ": removed " + std::to_string(removed.count - removed.topmost.size()) +
             " more that are not named");
  }
}

/// For the log: the number of items whose data a shred removed without overwriting all of it; the caller is
/// not told.
std::string notOverwritten(const ResultTable& results) {
  return results.remarks() == 0 ? "" : " not-overwritten=" + std::to_string(results.remarks());
}

}  // namespace

void logEnding(HelperLog& log, const HelperCall& call, const Supervisor::Ending& ending,
               const EventOutcome& outcome, bool namesRemoved) {
  const ResultTable& results = ending.results;
  logFailures(log, call, results);
  if (namesRemoved && call.form.removes()) logRemoved(log, call, results);
  log.info(call.described() + " done=" + std::to_string(results.successes()) +
           " failed=" + std::to_string(call.paths() - results.successes()) + notOverwritten(results) +
           " flag=" + (outcome.flag ? "1" : "0") + " code=" + std::to_string(outcome.code) + " " +
           (ending.outcome.has_value() ? "worker-memory=" + std::to_string(ending.peakMemory) + "KiB end"
                                       : "killed"));
}

}  // namespace sorrel::helper
