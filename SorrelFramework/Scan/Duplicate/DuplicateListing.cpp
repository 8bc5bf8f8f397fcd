#include "SorrelFramework/Scan/Duplicate/DuplicateListing.hpp"

#include <cstddef>
#include <utility>

#include "SorrelFramework/Platform/Items/ResourceValues.hpp"
#include "SorrelFramework/Platform/Queues/Countdown.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateCandidates.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicatePlaces.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateWalk.hpp"

namespace sorrel {
namespace {

/// Candidates travel to the queue in batches, many in one task.
constexpr std::size_t kBatch = 1024;
using Batch = std::vector<DuplicateInfo>;

bool isRegularFile(const URL& url) {
  const auto values = resourceValues(url, NSURLIsRegularFileKey);
  return values && values->isRegularFile.value_or(false);
}

void deliver(const DuplicateSearchRef& search, const std::shared_ptr<Batch>& batch) {
  search->run->onQueue([search, batch] {
    for (DuplicateInfo& info : *batch) {
      DuplicatesBySize& dictionary = info.fileOrPath ? search->files : search->folders;
      dictionary[info.fileSize].push_back(std::move(info));
    }
    batch->clear();
  });
}

void walkPlace(const DuplicateSearchRef& search, const DuplicateWalkRules& rules, const URL& place) {
  auto batch = std::make_shared<Batch>();
  DuplicateWalk walk(rules, [&](DuplicateInfo info) {
    batch->push_back(std::move(info));
    if (batch->size() < kBatch) return;
    deliver(search, std::exchange(batch, std::make_shared<Batch>()));
  });
  if (isRegularFile(place)) {
    walk.fileInfo(place);
  } else {
    walk.folderBackTracking(place);
  }
  if (!batch->empty()) deliver(search, batch);
}

}  // namespace

void listCandidates(const DuplicateSearchRef& search, const std::vector<URL>& places,
                    const StageThrough& through) {
  const auto rules = std::make_shared<DuplicateWalkRules>();
  rules->limit = search->settings.limit;
  rules->libraries = librariesOfHomes();
  rules->isStopped = [run = search->run] { return run->isStopped(); };
  rules->unread = search->run->unreadHandler();
  const auto left = Countdown::from(places.size(), [search, through] {
    through(std::to_string(memberCount(search->files)) + " files, " +
            std::to_string(memberCount(search->folders)) + " folders");
  });
  for (const URL& place : places) {
    GlobalQueue::submit(
        [search, rules, place, left] {
          walkPlace(search, *rules, place);
          search->run->onQueue([search, left] {
            if (!search->run->endsByStop()) left->arrive();
          });
        },
        search->run->qosClass());
  }
}

}  // namespace sorrel
