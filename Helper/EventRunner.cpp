#include "Helper/EventRunner.hpp"

namespace sorrel::helper {

EventOutcome runEvent(const EventJob& job, ResultSink& sink) {
  for (const MessageView::Entry& entry : job.event.dictionary()) {
    if (entry.key.starts_with('/')) sink.result(entry.index, HelperEventErrorID::NoCause, "Not supported.");
  }
  return {};
}

}  // namespace sorrel::helper
