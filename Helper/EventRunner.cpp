#include "Helper/EventRunner.hpp"

#include <vector>

#include "Helper/DeleteOperation.hpp"
#include "Helper/FileSystemFence.hpp"
#include "Helper/GonePaths.hpp"
#include "Helper/MoveOperation.hpp"
#include "Helper/PathResult.hpp"
#include "Helper/ShredOperation.hpp"
#include "Helper/SystemMaintenance.hpp"

namespace sorrel::helper {
namespace {

constexpr std::string_view kTarget = "ToPath";

/// Passes each result on at once, and records whether all were successes.
class Results {
 public:
  explicit Results(ResultSink& sink) : sink_(sink) {}

  void add(std::size_t index, const PathResult& result) {
    sink_.result(index, result.status, result.desc);
    isSuccess_ = isSuccess_ && result.isSuccess();
  }
  [[nodiscard]] EventOutcome outcome() const {
    const auto code = isSuccess_ ? HelperEventErrorID::Success : HelperEventErrorID::NoCause;
    return {isSuccess_, static_cast<std::int32_t>(code)};
  }

 private:
  ResultSink& sink_;
  bool isSuccess_ = true;
};

void runDelete(const MessageView& event, const RemovalPolicy& policy, Results& results) {
  GonePaths gone;
  for (const MessageView::Entry& entry : event.dictionary()) {
    if (!isPathEntry(entry)) continue;
    const bool wentWithItsFolder =
        gone.holds(entry.key) && RemovalTarget::find(std::string(entry.key), policy).isAbsent();
    const PathResult result = wentWithItsFolder ? succeeded() : deletePath(entry.key, entry.seen, policy);
    if (result.isSuccess()) gone.add(entry.key);
    results.add(entry.index, result);
  }
}

/// A folder that waits until everything else is done.
struct WaitingFolder {
  std::size_t index;
  std::string_view path;
  SenderView seen;
};

void runShred(const MessageView& event, const RemovalPolicy& policy, Results& results) {
  std::vector<WaitingFolder> folders;
  for (const MessageView::Entry& entry : event.dictionary()) {
    PathResult result;
    if (shredPath(entry.key, entry.seen, policy, result) == ShredStep::FolderWaits) {
      folders.push_back({entry.index, entry.key, entry.seen});
    } else {
      results.add(entry.index, result);
    }
  }
  // The contents of a folder follow it in the order of the keys.
  for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
    results.add(folder->index, removeShreddedFolder(folder->path, folder->seen, policy));
  }
}

std::string_view targetOf(const MessageView::Entry& entry) {
  for (const MessageView::Entry& word : entry.below) {
    if (word.key == kTarget && word.type == MessageView::Type::Text) return word.text;
  }
  return {};
}

void runMove(const MessageView& event, const RemovalPolicy& policy, Results& results) {
  for (const MessageView::Entry& entry : event.dictionary()) {
    if (!isPathEntry(entry)) continue;
    results.add(entry.index, movePath(entry.key, targetOf(entry), entry.seen, policy));
  }
}

using PathsRunner = void (*)(const MessageView&, const RemovalPolicy&, Results&);

EventOutcome runPaths(const EventJob& job, ResultSink& sink, PathsRunner run) {
  FileSystemFence fence(job.configuration.allowedFileSystems);
  RemovalPolicy policy =
      RemovalPolicy::forHelper(job.caller, [&fence](std::uint64_t mount) { return fence.mayEnter(mount); });
  for (const std::string& place : job.configuration.refusedPlaces) policy.protectSubtree(place);
  Results results(sink);
  run(job.event, policy, results);
  return results.outcome();
}

EventOutcome runMaintenance(const EventJob& job, ResultSink& sink) {
  if (!job.form.operation) return {};
  switch (*job.form.operation) {
    case HelperOperationID::CleanDNS:
      return cleanDNS(*SystemTools::ofThisMachine());
    case HelperOperationID::RebuildSpotlight:
      return rebuildFileIndex(*SystemTools::ofThisMachine());
    case HelperOperationID::Clean:
      return runPaths(job, sink, runDelete);
    case HelperOperationID::Move:
      return runPaths(job, sink, runMove);
  }
  return {};
}

EventOutcome refuseAll(const EventJob& job, ResultSink& sink) {
  const std::string text = std::string(kFaultyConfigurationText) + job.configuration.fault;
  for (const MessageView::Entry& entry : job.event.dictionary()) {
    if (isPathEntry(entry)) sink.result(entry.index, job.form.failure(), text);
  }
  return {};
}

}  // namespace

EventOutcome runEvent(const EventJob& job, ResultSink& sink) {
  if (!job.configuration.fault.empty()) return refuseAll(job, sink);
  switch (job.form.kind) {
    case HelperHanldeEventID::Delete:
      return runPaths(job, sink, runDelete);
    case HelperHanldeEventID::Shred:
      return runPaths(job, sink, runShred);
    case HelperHanldeEventID::Maintenance:
      return runMaintenance(job, sink);
    case HelperHanldeEventID::CloseHelper:
      break;
  }
  return {};
}

}  // namespace sorrel::helper
