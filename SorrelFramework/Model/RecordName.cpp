#include "SorrelFramework/Model/RecordName.hpp"

#include "SorrelFramework/Model/FileInfo.hpp"

namespace sorrel {

std::string pathOf(const URL& url) {
  if (url.isEmptyPath() || !url.isFileURL()) return "";
  return url.path();
}

std::string nameOf(const FileInformation& record) {
  std::string path = pathOf(record.url);
  return path.empty() ? record.title : path;
}

}  // namespace sorrel
