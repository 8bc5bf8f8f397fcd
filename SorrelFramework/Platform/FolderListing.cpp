#include "SorrelFramework/Platform/FolderListing.hpp"

#include <algorithm>

namespace sorrel {

bool FolderListing::read(FolderStream& stream, int folder) {
  names_.clear();
  spans_.clear();
  stream.start(folder);
  while (const FolderStream::Entry* entry = stream.next()) {
    spans_.push_back({names_.size(), static_cast<std::uint32_t>(entry->length), entry->type});
    names_.append(entry->name, entry->length + 1);
  }
  std::sort(spans_.begin(), spans_.end(), [this](const Span& a, const Span& b) {
    return std::string_view(names_.data() + a.offset, a.length) <
           std::string_view(names_.data() + b.offset, b.length);
  });
  return stream.error() == 0;
}

}  // namespace sorrel
