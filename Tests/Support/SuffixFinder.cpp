#include "Tests/Support/SuffixFinder.hpp"

#include <iterator>
#include <map>
#include <utility>

#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Scan/RootsWalk.hpp"
#include "SorrelFramework/Scan/ScanFrame.hpp"
#include "SorrelFramework/Scan/ScanPlaces.hpp"
#include "SorrelFramework/Scan/ScanStages.hpp"

namespace sorrel::test {
namespace {

struct Search {
  std::shared_ptr<FinderRun> run;
  WalkRequest request;
  FileRecords found;
};

void walk(const std::shared_ptr<Search>& search, const std::vector<URL>& places,
          const StageThrough& through) {
  walkRoots(places, search->request, search->run->queue(), {},
            [search, through](std::map<URL, FileRecords> records, const auto& /*totals*/) {
              for (auto& [place, files] : records)
                std::move(files.begin(), files.end(), std::back_inserter(search->found));
              search->run->step();
              through(std::to_string(search->found.size()) + " files");
            });
}

void fillTree(const std::shared_ptr<Search>& search, const StageThrough& through) {
  CategoryInformation& category = search->run->feature().categoryInfo[0];
  std::int64_t bytes = 0;
  Integer index = 0;
  for (const Ref<FileInformation>& file : search->found) {
    file->finderID = index++;
    bytes += file->size;
  }
  const bool isOwner = search->run->changeTree([&] {
    category.childrens = search->found;
    category.size = bytes;
  });
  through(std::to_string(bytes) + " bytes");
  search->run->finish(isOwner ? bytes : 0);
}

}  // namespace

void SuffixFinder::scan(FeatureInformation& feature, const std::string& suffix,
                        const std::vector<URL>& places, ProgressFunc progress, PercentFunc showPercent,
                        FinderRun::DoneFunc done, std::shared_ptr<WeftSerialQueue> queue) {
  const auto bar = std::make_shared<PercentService>(std::move(showPercent), 2);
  const auto search = std::make_shared<Search>();
  search->run = ScanRun::begin<FinderRun>(
      feature, std::move(queue), bar,
      FinderRun::Plan{std::move(done), "SuffixFinder Finish", "SuffixFinder stopped", {}});
  if (!search->run) return;
  const Ref<CategoryInformation> category = feature.categoryInfo.ref(0);
  search->request.keys = kRecordKeys;
  search->request.options = NSDirectoryEnumerationSkipsHiddenFiles;
  search->request.filter = [suffix](const URL& url, const ResourceValues& values, EnumerationPosition*) {
    return !values.isDirectory.value_or(true) && url.lastPathComponent().ends_with(suffix);
  };
  search->request.unread = search->run->unreadHandler();
  search->request.record = {NSControlStateValueOff, 0, category->finderID, category};
  search->request.stop = search->run->stopTest();
  search->request.progress = std::make_shared<const ProgressFunc>(std::move(progress));
  const std::vector<ScanStage> stages = {
      {"walk", [search, list = placesWithoutDetours(places)](
                   const StageThrough& through) { walk(search, list, through); }},
      {"tree", [search](const StageThrough& through) { fillTree(search, through); }},
  };
  runStages("SuffixFinder", stages, [run = search->run] { return run->endsByStop(); });
}

}  // namespace sorrel::test
