#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

namespace sorrel {

HelperValue::HelperValue(HelperDictionary dictionary)
    : value_(std::make_unique<HelperDictionary>(std::move(dictionary))) {}

HelperValue::HelperValue(const HelperValue& other) {
  if (const std::int64_t* number = other.asNumber()) {
    value_ = *number;
  } else if (const std::string* text = other.asText()) {
    value_ = *text;
  } else if (const HelperDictionary* dictionary = other.asDictionary()) {
    value_ = std::make_unique<HelperDictionary>(*dictionary);
  }
}

HelperValue& HelperValue::operator=(const HelperValue& other) {
  // Copied first: `other` may lie inside the dictionary that is destroyed.
  if (this != &other) *this = HelperValue(other);
  return *this;
}

HelperValue::HelperValue(HelperValue&& other) noexcept = default;
HelperValue& HelperValue::operator=(HelperValue&& other) noexcept {
  std::swap(value_, other.value_);
  return *this;
}
HelperValue::~HelperValue() = default;

const HelperDictionary* HelperValue::asDictionary() const {
  const auto* held = std::get_if<std::unique_ptr<HelperDictionary>>(&value_);
  return held == nullptr ? nullptr : held->get();
}

HelperDictionary* HelperValue::asDictionary() {
  return const_cast<HelperDictionary*>(std::as_const(*this).asDictionary());
}

bool operator==(const HelperValue& a, const HelperValue& b) {
  const HelperDictionary* left = a.asDictionary();
  const HelperDictionary* right = b.asDictionary();
  if (left != nullptr && right != nullptr) return *left == *right;
  return left == right && a.value_ == b.value_;
}

}  // namespace sorrel
