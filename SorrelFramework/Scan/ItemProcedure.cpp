#include "SorrelFramework/Scan/ItemProcedure.hpp"

#include <any>
#include <utility>

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
  std::string title =
      values.localizedName ? std::move(*values.localizedName) : std::string(kDefaultRecordTitle);
  Image icon = values.effectiveIcon ? *values.effectiveIcon : defaultRecordImage();
  const Date date = values.creationDate ? *values.creationDate : Date::now();
  const std::string_view description =
      values.localizedTypeDescription ? *values.localizedTypeDescription : kDefaultRecordTitle;
  return makeRef<FileInformation>(common.state, common.finderID, common.parentFinderID, std::move(title),
                                  std::move(icon), size, date, url, description, canDelete, false, std::any(),
                                  Children<FileInformation>(), common.parentCategoryInfo, kind, Integer{0});
}

}  // namespace sorrel
