#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Platform/Files/FolderStream.hpp"

namespace sorrel {

/// All names of one folder in the order of their bytes, so that every walk visits them in the same order on
/// every file system. The memory is reused for the next folder.
class FolderListing {
 public:
  /// Reads the open folder; false if the listing was incomplete, with the names found until then.
  bool read(FolderStream& stream, int folder);

  /// For a walk that keeps only some of the names: clear, add each of them, sort. `size` stays with the name.
  void clear() noexcept;
  void add(const FolderStream::Entry& entry, std::int64_t size = 0);
  void sort();

  [[nodiscard]] std::size_t size() const noexcept { return spans_.size(); }
  /// Followed by a NUL.
  [[nodiscard]] std::string_view name(std::size_t index) const noexcept {
    return {names_.data() + spans_[index].offset, spans_[index].length};
  }
  [[nodiscard]] FolderStream::Type type(std::size_t index) const noexcept { return spans_[index].type; }
  [[nodiscard]] std::int64_t size(std::size_t index) const noexcept { return spans_[index].size; }

 private:
  struct Span {
    std::size_t offset;
    std::int64_t size;
    std::uint32_t length;
    FolderStream::Type type;
  };
  std::string names_;  // concatenated, each with its NUL
  std::vector<Span> spans_;
};

}  // namespace sorrel
