#include "SorrelFramework/Platform/Text/SharedText.hpp"

#include <atomic>
#include <cstring>
#include <new>

namespace sorrel {

struct SharedText::Block {
  std::atomic<std::size_t> owners;
  std::size_t length;
  char* text() noexcept { return reinterpret_cast<char*>(this + 1); }
};

SharedText::SharedText(std::string_view head, std::string_view tail) {
  const std::size_t length = head.size() + tail.size();
  if (length == 0) return;
  void* memory = ::operator new(sizeof(Block) + length);
  block_ = new (memory) Block{{1}, length};
  if (!head.empty()) std::memcpy(block_->text(), head.data(), head.size());
  if (!tail.empty()) std::memcpy(block_->text() + head.size(), tail.data(), tail.size());
}

SharedText::SharedText(const SharedText& other) noexcept : block_(other.block_) {
  if (block_ != nullptr) block_->owners.fetch_add(1, std::memory_order_relaxed);
}

SharedText& SharedText::operator=(SharedText other) noexcept {
  Block* const old = block_;
  block_ = other.block_;
  other.block_ = old;
  return *this;
}

SharedText::~SharedText() {
  if (block_ != nullptr && block_->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    block_->~Block();
    ::operator delete(block_);
  }
}

std::string_view SharedText::view() const noexcept {
  return block_ == nullptr ? std::string_view() : std::string_view(block_->text(), block_->length);
}

}  // namespace sorrel
