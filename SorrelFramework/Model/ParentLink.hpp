#pragma once

#include <cstddef>
#include <functional>
#include <utility>

#include "SorrelFramework/Model/Ref.hpp"
#include "SorrelFramework/Model/TreeNode.hpp"

namespace sorrel {

/// The field of a record that refers to its parent. It reads, compares and assigns like a Ref. The field
/// itself keeps only the bare record of the parent; while the record that owns the field has a handle, the
/// field keeps a handle on the parent. Each copy of the field is a handle: `auto parent =
/// file.parentCategoryInfo` holds the parent.
template <class T>
class ParentLink {
 public:
  using element_type = T;

  ParentLink() noexcept = default;
  ParentLink(std::nullptr_t) noexcept {}
  /// The field of a new record, which has no handle yet.
  ParentLink(const TreeNode::FieldOf& field, T* parent) noexcept : owner_(field.record()), parent_(parent) {
    if (parent_ != nullptr) node(parent_)->addLink();
  }
  ParentLink(const ParentLink& other) noexcept : parent_(other.parent_) {
    if (parent_ != nullptr) node(parent_)->addHandle();
  }
  ParentLink& operator=(const ParentLink& other) noexcept {
    return this == &other ? *this : assign(other.parent_);
  }
  ParentLink& operator=(const Ref<T>& parent) noexcept { return assign(parent.get()); }
  ParentLink& operator=(std::nullptr_t) noexcept { return assign(nullptr); }
  ~ParentLink() {
    if (parent_ == nullptr) return;
    // A record that is being destroyed has no handle.
    owner_ == nullptr ? node(parent_)->dropHandle() : node(parent_)->dropLink();
  }

  [[nodiscard]] T* get() const noexcept { return parent_; }
  [[nodiscard]] Ref<T> ref() const noexcept { return Ref<T>(parent_); }
  operator Ref<T>() const noexcept { return ref(); }
  T& operator*() const noexcept { return *parent_; }
  T* operator->() const noexcept { return parent_; }
  explicit operator bool() const noexcept { return parent_ != nullptr; }

  /// Same object.
  friend bool operator==(const ParentLink& a, const ParentLink& b) noexcept { return a.parent_ == b.parent_; }
  friend bool operator==(const ParentLink& a, const Ref<T>& b) noexcept { return a.parent_ == b.get(); }
  friend bool operator==(const ParentLink& a, std::nullptr_t) noexcept { return a.parent_ == nullptr; }

 private:
  static TreeNode* node(T* record) noexcept { return record; }

  ParentLink& assign(T* parent) noexcept {
    // The new parent is counted first: it may be reachable through the old one only.
    owner_ == nullptr ? exchangeHandle(parent) : exchangeLink(parent);
    return *this;
  }
  void exchangeHandle(T* parent) noexcept {
    if (parent != nullptr) node(parent)->addHandle();
    T* const old = std::exchange(parent_, parent);
    if (old != nullptr) node(old)->dropHandle();
  }
  void exchangeLink(T* parent) noexcept {
    if (parent != nullptr) node(parent)->addLink();
    const bool pinned = owner_->lockLinks();
    if (pinned && parent != nullptr) node(parent)->addHandle();
    T* const old = std::exchange(parent_, parent);
    owner_->unlockLinks();
    if (old == nullptr) return;
    if (pinned) node(old)->dropHandle();
    node(old)->dropLink();
  }

  TreeNode* owner_ = nullptr;  // null: this object is a handle
  T* parent_ = nullptr;
};

}  // namespace sorrel

template <class T>
struct std::hash<sorrel::ParentLink<T>> {
  std::size_t operator()(const sorrel::ParentLink<T>& link) const noexcept {
    return std::hash<T*>()(link.get());
  }
};
