#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "SorrelFramework/Model/Ref.hpp"
#include "SorrelFramework/Model/TreeNode.hpp"

namespace sorrel {

/// An array of records. Iterates over the records themselves; `ref(i)` gives a handle on one. Adding a record
/// does not set its parent link: the fields are independent, as the scanners need them.
///
/// As the field of a record it owns its entries, but nothing above them. Every other object of this type,
/// such as a copy of the field, a temporary or a member of an application's class, holds a handle on each
/// entry, as a vector of Ref does: the parents of its records stay reachable. After a construction, move or
/// assignment the target object, not the source, determines the kind of ownership. As with any container, a
/// reference or an iterator to an entry is valid only while something holds the record.
template <class T>
class Children {
 public:
  using value_type = T;
  using reference = T&;
  using const_reference = const T&;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;

  template <class Value>
  class Iterator {
   public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = Value*;
    using reference = Value&;

    Iterator() = default;
    explicit Iterator(T* const* at) : at_(at) {}
    reference operator*() const { return **at_; }
    pointer operator->() const { return *at_; }
    reference operator[](difference_type n) const { return *at_[n]; }
    Iterator& operator++() { return ++at_, *this; }
    Iterator operator++(int) { return Iterator(at_++); }
    Iterator& operator--() { return --at_, *this; }
    Iterator operator--(int) { return Iterator(at_--); }
    Iterator& operator+=(difference_type n) { return at_ += n, *this; }
    Iterator& operator-=(difference_type n) { return at_ -= n, *this; }
    friend Iterator operator+(Iterator i, difference_type n) { return i += n; }
    friend Iterator operator+(difference_type n, Iterator i) { return i += n; }
    friend Iterator operator-(Iterator i, difference_type n) { return i -= n; }
    friend difference_type operator-(Iterator a, Iterator b) { return a.at_ - b.at_; }
    friend auto operator<=>(Iterator, Iterator) = default;

   private:
    T* const* at_ = nullptr;
  };
  using iterator = Iterator<T>;
  using const_iterator = Iterator<const T>;

  Children() noexcept = default;
  Children(std::initializer_list<Ref<T>> records) { assign(records.begin(), records.end()); }
  Children(const std::vector<Ref<T>>& records) { assign(records.begin(), records.end()); }
  /// The array of a new record.
  explicit Children(const TreeNode::FieldOf&) noexcept : isField_(true) {}
  Children(const TreeNode::FieldOf&, Children records) noexcept : isField_(true) { take(records); }
  Children(const Children& other) : list_(other.list_ ? std::make_unique<List>(*other.list_) : nullptr) {
    if (list_) countAll(*list_);
  }
  Children(Children&& other) noexcept { take(other); }
  Children& operator=(const Children& other) {
    Children copy(other);
    take(copy);
    return *this;
  }
  Children& operator=(Children&& other) noexcept {
    if (this != &other) take(other);
    return *this;
  }
  ~Children() { clear(); }

  [[nodiscard]] std::size_t size() const noexcept { return list_ ? list_->size() : 0; }
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  T& operator[](std::size_t index) noexcept { return *(*list_)[index]; }
  const T& operator[](std::size_t index) const noexcept { return *(*list_)[index]; }
  T& front() noexcept { return *list_->front(); }
  const T& front() const noexcept { return *list_->front(); }
  T& back() noexcept { return *list_->back(); }
  const T& back() const noexcept { return *list_->back(); }
  [[nodiscard]] Ref<T> ref(std::size_t index) const noexcept { return Ref<T>((*list_)[index]); }
  /// Handles on all of them, in order.
  [[nodiscard]] std::vector<Ref<T>> refs() const {
    std::vector<Ref<T>> handles;
    handles.reserve(size());
    for (std::size_t i = 0; i < size(); ++i) handles.push_back(ref(i));
    return handles;
  }

  iterator begin() noexcept { return iterator(data()); }
  iterator end() noexcept { return iterator(data() + size()); }
  const_iterator begin() const noexcept { return const_iterator(data()); }
  const_iterator end() const noexcept { return const_iterator(data() + size()); }

  void reserve(std::size_t count) { list().reserve(count); }
  void push_back(const Ref<T>& record) {
    list().push_back(record.get());
    count(record.get());
  }
  void pop_back() { erase(end() - 1); }
  iterator insert(iterator at, const Ref<T>& record) {
    const difference_type index = at - begin();
    list().insert(list().begin() + index, record.get());
    count(record.get());
    return begin() + index;
  }
  iterator erase(iterator at) { return erase(at, at + 1); }
  iterator erase(iterator first, iterator last) {
    const difference_type index = first - begin();
    if (first == last) return first;
    const auto from = list_->begin() + index;
    const auto to = from + (last - first);
    // Removed from the array first: destroying the record may call back into this array.
    const List removed(from, to);
    list_->erase(from, to);
    uncountAll(removed);
    return begin() + index;
  }
  void clear() noexcept {
    const std::unique_ptr<List> old = std::move(list_);
    if (old) uncountAll(*old);
  }
  void swap(Children& other) noexcept {
    Children temporary(std::move(other));
    other.take(*this);
    take(temporary);
  }
  friend void swap(Children& a, Children& b) noexcept { a.swap(b); }

 private:
  using List = std::vector<T*>;

  static TreeNode* node(T* record) noexcept { return record; }
  [[nodiscard]] T* const* data() const noexcept { return list_ ? list_->data() : nullptr; }
  List& list() {
    if (!list_) list_ = std::make_unique<List>();
    return *list_;
  }
  void count(T* record) const noexcept { isField_ ? node(record)->addSlot() : node(record)->addHandle(); }
  void uncount(T* record) const noexcept { isField_ ? node(record)->dropSlot() : node(record)->dropHandle(); }
  void countAll(const List& records) const noexcept {
    for (T* record : records) count(record);
  }
  void uncountAll(const List& records) const noexcept {
    for (T* record : records) uncount(record);
  }
  template <class Iterator>
  void assign(Iterator first, Iterator last) {
    if (first == last) return;
    reserve(static_cast<std::size_t>(last - first));
    for (; first != last; ++first) push_back(*first);
  }
  /// Takes over the entries of `other`, which is empty afterwards.
  void take(Children& other) noexcept {
    std::unique_ptr<List> taken = std::move(other.list_);
    if (taken && isField_ != other.isField_) {
      countAll(*taken);
      other.uncountAll(*taken);
    }
    const std::unique_ptr<List> old = std::exchange(list_, std::move(taken));
    if (old) uncountAll(*old);
  }

  std::unique_ptr<List> list_;  // most records have no children
  bool isField_ = false;
};

}  // namespace sorrel

/// The standard optional, except that as the field of a record its array is one too. Everything else about it
/// is the same.
template <class T>
class std::optional<sorrel::Children<T>> {
 public:
  using value_type = sorrel::Children<T>;

  optional() noexcept = default;
  optional(nullopt_t) noexcept {}
  /// The field of a new record, without a value.
  explicit optional(const sorrel::TreeNode::FieldOf& field) noexcept : children_(field) {}
  optional(const optional&) = default;
  optional(optional&&) noexcept = default;
  template <class Value = value_type>
  requires(std::convertible_to<Value, value_type> && !std::same_as<std::remove_cvref_t<Value>, optional>)
      optional(Value&& value)
      : children_(std::forward<Value>(value)), hasValue_(true) {}
  template <class... Arguments>
  explicit optional(in_place_t, Arguments&&... arguments)
      : children_(std::forward<Arguments>(arguments)...), hasValue_(true) {}
  explicit optional(in_place_t, std::initializer_list<sorrel::Ref<T>> records)
      : children_(records), hasValue_(true) {}
  ~optional() = default;

  optional& operator=(const optional&) = default;
  optional& operator=(optional&&) noexcept = default;
  optional& operator=(nullopt_t) noexcept { return reset(), *this; }
  template <class Value = value_type>
  requires(std::convertible_to<Value, value_type> &&
           !std::same_as<std::remove_cvref_t<Value>, optional>) optional&
  operator=(Value&& value) {
    children_ = std::forward<Value>(value);
    hasValue_ = true;
    return *this;
  }
  template <class... Arguments>
  value_type& emplace(Arguments&&... arguments) {
    return *(*this = value_type(std::forward<Arguments>(arguments)...));
  }
  value_type& emplace(std::initializer_list<sorrel::Ref<T>> records) {
    return *(*this = value_type(records));
  }
  void reset() noexcept {
    hasValue_ = false;
    children_.clear();
  }
  void swap(optional& other) noexcept {
    children_.swap(other.children_);
    std::swap(hasValue_, other.hasValue_);
  }

  [[nodiscard]] bool has_value() const noexcept { return hasValue_; }
  explicit operator bool() const noexcept { return hasValue_; }
  value_type& operator*() & noexcept { return children_; }
  const value_type& operator*() const& noexcept { return children_; }
  value_type&& operator*() && noexcept { return std::move(children_); }
  value_type* operator->() noexcept { return &children_; }
  const value_type* operator->() const noexcept { return &children_; }
  value_type& value() & { return hasValue_ ? children_ : throw bad_optional_access(); }
  const value_type& value() const& { return hasValue_ ? children_ : throw bad_optional_access(); }
  value_type&& value() && { return std::move(value()); }
  template <class Value>
  value_type value_or(Value&& value) const {
    return hasValue_ ? children_ : static_cast<value_type>(std::forward<Value>(value));
  }

 private:
  value_type children_;
  bool hasValue_ = false;
};
