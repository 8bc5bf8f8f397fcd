#pragma once

#include <cstddef>
#include <functional>
#include <utility>

#include "SorrelFramework/Model/TreeNode.hpp"

namespace sorrel {

/// A shared pointer to a record. It is one pointer wide; a reference to a record can be turned into a handle
/// again at any time: `Ref<FileInformation>(record)`.
///
/// A payload of a record must refer to other records of the same tree by plain pointers: a Ref there is held
/// by the tree itself, so the tree would never be freed.
template <class T>
class Ref {
 public:
  using element_type = T;

  Ref() noexcept = default;
  Ref(std::nullptr_t) noexcept {}
  explicit Ref(T& record) noexcept : Ref(&record) {}
  explicit Ref(T* record) noexcept : record_(record) {
    if (record_ != nullptr) node(record_)->addHandle();
  }
  Ref(const Ref& other) noexcept : Ref(other.record_) {}
  Ref(Ref&& other) noexcept : record_(std::exchange(other.record_, nullptr)) {}
  Ref& operator=(Ref other) noexcept {
    std::swap(record_, other.record_);
    return *this;
  }
  ~Ref() {
    if (record_ != nullptr) node(record_)->dropHandle();
  }

  [[nodiscard]] T* get() const noexcept { return record_; }
  T& operator*() const noexcept { return *record_; }
  T* operator->() const noexcept { return record_; }
  explicit operator bool() const noexcept { return record_ != nullptr; }

  /// Same object; the records' own == compares their contents.
  friend bool operator==(const Ref& a, const Ref& b) noexcept { return a.record_ == b.record_; }

 private:
  static TreeNode* node(T* record) noexcept { return record; }

  T* record_ = nullptr;
};

/// Makes a record on the heap; the arguments are those of its constructor.
template <class T, class... Arguments>
[[nodiscard]] Ref<T> makeRef(Arguments&&... arguments) {
  return Ref<T>(new T(std::forward<Arguments>(arguments)...));
}

}  // namespace sorrel

template <class T>
struct std::hash<sorrel::Ref<T>> {
  std::size_t operator()(const sorrel::Ref<T>& record) const noexcept {
    return std::hash<T*>()(record.get());
  }
};
