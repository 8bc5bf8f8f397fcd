#include "Helper/RemovedPaths.hpp"

#include "Helper/EventForm.hpp"
#include "Helper/GonePaths.hpp"

namespace sorrel::helper {

RemovedPaths RemovedPaths::of(const MessageView& event, const ResultTable& results) {
  RemovedPaths removed;
  GonePaths gone;
  for (const MessageView::Entry& entry : event.dictionary()) {
    if (!isPathEntry(entry) || !results.isSuccess(entry.index)) continue;
    if (!gone.holds(entry.key)) {
      ++removed.count;
      if (removed.topmost.size() < kMost) removed.topmost.push_back(entry.key);
    }
    gone.add(entry.key);
  }
  return removed;
}

}  // namespace sorrel::helper
