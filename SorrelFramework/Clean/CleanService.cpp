#include "SorrelFramework/Clean/CleanService.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Selection/RecordWalk.hpp"

namespace sorrel {
namespace {

void select(FileInformation& file, HelperCleanService& service) {
  CleanService::updateDeleteStatus(file, rawValue(DeleteStatus::Deleteing), service);
}

void selectAll(Children<FileInformation>& files, HelperCleanService& service) {
  for (FileInformation& file : files) select(file, service);
}

/// Selects each record by its own state.
void selectEach(Children<FileInformation>& files, HelperCleanService& service) {
  for (FileInformation& file : files) {
    if (file.state == NSControlStateValueOn) {
      select(file, service);
    } else if (isMixed(file.state)) {
      CleanService::handleMixStatus(file, service);
    }
  }
}

/// The children of a category or of a group: all, none, or each by its own state.
void selectBelow(Integer state, Children<FileInformation>& files, HelperCleanService& service) {
  if (state == NSControlStateValueOn) {
    selectAll(files, service);
  } else if (isMixed(state)) {
    selectEach(files, service);
  }
}

using Selection = std::function<void(HelperCleanService& service)>;

/// The helper's part may prompt the user for a password, so the block gets a thread of its own: a waiting
/// clean must not delay a scan.
void startClean(std::vector<Ref<CategoryInformation>> categorys, CleanServiceType cleanType,
                std::shared_ptr<CleanServiceProtocol> finishService, Ref<FeatureInformation> featureInfo,
                Selection selection) {
  GlobalQueue::submitBlocking([categorys = std::move(categorys), cleanType,
                               finishService = std::move(finishService), featureInfo = std::move(featureInfo),
                               selection = std::move(selection)] {
    const auto service = std::make_shared<HelperCleanService>(finishService, cleanType, categorys);
    service->featureInformation = featureInfo;
    selection(*service);
    CleanService::deleteFiles(*service);
  });
}

}  // namespace

const FileRemover& CleanService::fileManager = FileRemover::shard();

void CleanService::cleanCategorys(std::vector<Ref<CategoryInformation>> cleanCategorys,
                                  CleanServiceType cleanType,
                                  std::shared_ptr<CleanServiceProtocol> finishService,
                                  Ref<FeatureInformation> featureInfo) {
  startClean(std::move(cleanCategorys), cleanType, std::move(finishService), std::move(featureInfo),
             [](HelperCleanService& service) {
               for (const Ref<CategoryInformation>& category : service.cleanCategorys) {
                 selectBelow(category->state, category->childrens, service);
               }
             });
}

void CleanService::cleanDuplicateAndSimilarCategorys(CategoryInformation& allCategory,
                                                     CleanServiceType cleanType,
                                                     std::shared_ptr<CleanServiceProtocol> finishService) {
  startClean({Ref<CategoryInformation>(allCategory)}, cleanType, std::move(finishService), {},
             [](HelperCleanService& service) {
               for (FileInformation& group : service.cleanCategorys.front()->childrens) {
                 selectBelow(group.state, group.childrens, service);
               }
             });
}

void CleanService::cleanLargeAndOldCategorys(CategoryInformation& allCategory, CleanServiceType cleanType,
                                             std::shared_ptr<CleanServiceProtocol> finishService) {
  startClean({Ref<CategoryInformation>(allCategory)}, cleanType, std::move(finishService), {},
             [](HelperCleanService& service) {
               for (FileInformation& file : service.cleanCategorys.front()->childrens) {
                 if (file.state == NSControlStateValueOn) select(file, service);
               }
             });
}

void CleanService::updateDeleteStatus(FileInformation& file, Integer status,
                                      HelperCleanService& helperService) {
  file.deleteStatus = status;
  RecordSet& records = file.canDelete ? helperService.commonDelete : helperService.helperDelete;
  records.insert(Ref<FileInformation>(file));
}

void CleanService::handleMixStatus(FileInformation& childrens, HelperCleanService& helperService) {
  if (!isMixed(childrens.state)) return;
  struct Level {
    Children<FileInformation>* files;
    std::size_t next = 0;
  };
  std::vector<Level> path{{&childrens.childrens}};
  while (!path.empty()) {
    Level& level = path.back();
    if (level.next == level.files->size()) {
      path.pop_back();
      continue;
    }
    FileInformation& file = (*level.files)[level.next++];
    if (file.state == NSControlStateValueOn) {
      select(file, helperService);
    } else if (isMixed(file.state)) {
      path.push_back({&file.childrens});
    }
  }
}

void CleanService::deleteFiles(HelperCleanService& helpToolCleanService) {
  HelperCleanService& service = helpToolCleanService;
  service.finishService->cleanProgress(0.25F);
  const FileRemover::Session removal = fileManager.begin();
  for (const Ref<FileInformation>& file : service.commonDelete.records()) {
    if (deleteFile(*file, removal) == 0) {
      service.commonDeleteSize = checkedAdd(service.commonDeleteSize, file->size);
      ++service.commonDeleteFinishCount;
    } else {
      ++service.commonDeleteAbnormalCount;
      service.commonDelete.remove(file);
      service.commonDeleteAbnormal.insert(file);
    }
  }
  removal.finish();
  service.finishService->cleanProgress(0.5F);

  // Guards the tally: every record has exactly one of the two outcomes.
  const auto ended = static_cast<Integer>(service.commonDelete.size() + service.commonDeleteAbnormal.size());
  if (service.commonDeleteAbnormalCount + service.commonDeleteFinishCount == ended) {
    service.commonFinish();
    service.deleteHelperFile();
    return;
  }
  service.finishService->cleanFinished(service.cleanCategorys,
                                       checkedAdd(service.commonDeleteSize, service.helperDeleteSize), {},
                                       rawValue(DeleteStatus::DeleteError), "ABNORMAL STATUS!!!");
}

Integer CleanService::deleteFile(FileInformation& file, const FileRemover::Session& removal) {
  return sumOfLeaves(
      file,
      [&removal](FileInformation& leaf) -> Integer {
        std::optional<std::string> error = removal.removeItem(leaf.url);
        if (!error) {
          leaf.deleteStatus = rawValue(DeleteStatus::DeleteSuccess);
          return 0;
        }
        leaf.deleteStatus = rawValue(DeleteStatus::DeleteError);
        leaf.deleteErrorDesc = *std::move(error);
        return 1;
      },
      [](FileInformation& parent, Integer failures) {
        if (failures != 0) parent.deleteStatus = rawValue(DeleteStatus::DeleteError);
      });
}

}  // namespace sorrel
