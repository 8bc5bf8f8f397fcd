#include "SorrelFramework/Model/IdentityText.hpp"

#include <memory>
#include <ostream>

namespace sorrel {

IdentityText::IdentityText(const IdentityText& other)
    : finderID_(other.finderID_),
      parentFinderID_(other.parentFinderID_),
      size_(other.size_),
      url_(other.url_),
      text_(other.text_.load() == nullptr ? nullptr : new std::string(*other.text_.load())) {}

IdentityText& IdentityText::operator=(const IdentityText& other) {
  if (this == &other) return *this;
  if (other.text_.load() != nullptr) return *this = std::string_view(*other.text_.load());
  take(other.finderID_, other.parentFinderID_, other.size_, other.url_);
  return *this;
}

IdentityText& IdentityText::operator=(std::string_view text) {
  this->text() = text;
  return *this;
}

IdentityText::~IdentityText() { delete text_.load(std::memory_order_relaxed); }

std::string IdentityText::joined() const {
  return std::to_string(finderID_) + ':' + std::to_string(parentFinderID_) + ':' + std::to_string(size_) +
         ':' + url_.absoluteString();
}

const std::string& IdentityText::text() const {
  std::string* present = text_.load(std::memory_order_acquire);
  if (present != nullptr) return *present;
  auto made = std::make_unique<std::string>(joined());
  if (text_.compare_exchange_strong(present, made.get(), std::memory_order_acq_rel)) return *made.release();
  return *present;
}

std::string& IdentityText::text() {
  return const_cast<std::string&>(std::as_const(*this).text());  // NOLINT: made by this object, never const
}

std::string IdentityText::str() const {
  const std::string* const present = text_.load(std::memory_order_acquire);
  return present == nullptr ? joined() : *present;
}

void IdentityText::take(Integer finderID, Integer parentFinderID, std::int64_t size, const URL& url) {
  finderID_ = finderID;
  parentFinderID_ = parentFinderID;
  size_ = size;
  // A scan numbers its records more than once: if nothing changed, the reference count of the shared text is
  // not touched.
  if (!url_.sharedText().isSharedWith(url.sharedText())) url_ = url;
  std::string* const present = text_.load(std::memory_order_relaxed);
  if (present != nullptr) *present = joined();
}

std::ostream& operator<<(std::ostream& out, const IdentityText& text) { return out << text.str(); }

}  // namespace sorrel
