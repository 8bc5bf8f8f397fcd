#include "SorrelFramework/Platform/Files/FolderListing.hpp"

#include <algorithm>

namespace sorrel {

bool FolderListing::read(FolderStream& stream, int folder) {
  clear();
  stream.start(folder);
  while (const FolderStream::Entry* entry = stream.next()) add(*entry);
  sort();
  return stream.error() == 0;
}

void FolderListing::clear() noexcept {
  names_.clear();
  spans_.clear();
}

void FolderListing::add(const FolderStream::Entry& entry, std::int64_t size) {
  spans_.push_back({names_.size(), size, static_cast<std::uint32_t>(entry.length), entry.type});
  names_.append(entry.name, entry.length + 1);
}

void FolderListing::sort() {
  std::sort(spans_.begin(), spans_.end(), [this](const Span& a, const Span& b) {
    return std::string_view(names_.data() + a.offset, a.length) <
           std::string_view(names_.data() + b.offset, b.length);
  });
}

}  // namespace sorrel
