#pragma once

#include <cstddef>
#include <string_view>

namespace sorrel {

/// An immutable text that its copies share: one pointer wide, one heap block for all copies, safe to copy on
/// any thread. A scan of a million files keeps one such block for each location instead of one for each use
/// of it.
class SharedText {
 public:
  SharedText() noexcept = default;
  explicit SharedText(std::string_view text) : SharedText(text, {}) {}
  /// The two pieces joined, without a temporary string.
  SharedText(std::string_view head, std::string_view tail);
  SharedText(const SharedText& other) noexcept;
  SharedText(SharedText&& other) noexcept : block_(other.block_) { other.block_ = nullptr; }
  SharedText& operator=(SharedText other) noexcept;
  ~SharedText();

  [[nodiscard]] std::string_view view() const noexcept;
  [[nodiscard]] bool empty() const noexcept { return block_ == nullptr; }

  /// True if both are copies of one text. Cheaper than ==, which compares texts of different origin too.
  [[nodiscard]] bool isSharedWith(const SharedText& other) const noexcept { return block_ == other.block_; }

  friend bool operator==(const SharedText& a, const SharedText& b) noexcept {
    return a.block_ == b.block_ || a.view() == b.view();
  }

 private:
  struct Block;
  Block* block_ = nullptr;
};

}  // namespace sorrel
