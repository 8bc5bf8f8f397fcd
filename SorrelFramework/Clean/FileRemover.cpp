#include "SorrelFramework/Clean/FileRemover.hpp"

#include <utility>

#include "SorrelFramework/Platform/RemovalErrorText.hpp"

namespace sorrel {

FileRemover::Session::Session(RemoveFunc remove)
    : remove_(std::move(remove)), policy_(RemovalPolicy::forUser()) {}

std::optional<std::string> FileRemover::Session::removeItem(const URL& url) const {
  int error = fence_.error(url);
  if (error == 0) error = remove_(url.path(), policy_).error;
  if (error == 0) return std::nullopt;
  return removalErrorText(url.lastPathComponent(), error);
}

FileRemover& FileRemover::shard() {
  static FileRemover& remover = *new FileRemover();  // a clean may outlive the end of main()
  return remover;
}

FileRemover::Session FileRemover::begin() const {
  const std::lock_guard lock(mutex_);
  if (remove_) return Session(remove_);
  return Session(
      [](const std::string& path, const RemovalPolicy& policy) { return sorrel::removeItem(path, policy); });
}

void FileRemover::setRemoveForTesting(RemoveFunc remove) {
  const std::lock_guard lock(mutex_);
  remove_ = std::move(remove);
}

}  // namespace sorrel
