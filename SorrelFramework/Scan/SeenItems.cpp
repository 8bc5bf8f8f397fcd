#include "SorrelFramework/Scan/SeenItems.hpp"

#include <cstddef>
#include <optional>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"

namespace sorrel {
namespace {

using Number = std::pair<std::uint64_t, std::uint64_t>;

std::optional<Number> numberOf(const std::string& path) {
  const auto status = statusOf(path);
  return status ? std::optional<Number>({status->device, status->inode}) : std::nullopt;
}

}  // namespace

bool SeenItems::insert(const std::string& path, bool isFile) {
  const auto number = numberOf(isFile ? path : path + '/');
  if (!number) return true;
  if (!isFile) return entries_.insert({*number, {}, ""}).second;
  const std::size_t name = path.rfind('/') + 1;
  const auto above = numberOf(path.substr(0, name));
  return !above || entries_.insert({*number, *above, path.substr(name)}).second;
}

}  // namespace sorrel
