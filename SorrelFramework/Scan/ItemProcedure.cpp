#include "SorrelFramework/Scan/ItemProcedure.hpp"

#include <utility>

#include "SorrelFramework/Model/RecordParts.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"

namespace sorrel {

const Image& defaultRecordImage() {
  static const Image image = Image::lookUp("App_Cache");
  return image;
}

Integer kindOf(const ResourceValues& values) {
  if (values.isPackage.value_or(false)) return rawValue(FilesKind::Package);
  return rawValue(values.isDirectory.value_or(false) ? FilesKind::Folder : FilesKind::File);
}

bool DeletionRule::canDelete(const FolderRights& folder, std::uint32_t uid) {
  return folder.allowDeletion(uid) && isUserOrNobody(uid);
}

bool DeletionRule::canDelete(const std::string& path) {
  if (!isDeletableFile(path)) return false;
  const auto status = statusOf(path);
  return !status || isUserOrNobody(status->uid);
}

bool DeletionRule::isUserOrNobody(std::uint32_t uid) {
  if (lastUID_ != uid) {
    const Host& host = Host::current();
    const auto owner = host.ownerName(uid);
    lastAnswer_ = !owner || *owner == host.userName();
    lastUID_ = uid;
  }
  return lastAnswer_;
}

Ref<FileInformation> makeRecord(const RecordTemplate& common, const URL& url, ResourceValues& values,
                                Integer kind, std::int64_t size, bool canDelete) {
  return makeFile(
      {.state = common.state,
       .finderID = common.finderID,
       .parentFinderID = common.parentFinderID,
       .title = values.localizedName ? std::move(*values.localizedName) : std::string(kDefaultRecordTitle),
       .icon = values.effectiveIcon ? *values.effectiveIcon : defaultRecordImage(),
       .size = size,
       .date = values.creationDate ? *values.creationDate : Date::now(),
       .url = url,
       .canDelete = canDelete,
       .parentCategoryInfo = common.parentCategoryInfo,
       .fileKind = kind});
}

}  // namespace sorrel
