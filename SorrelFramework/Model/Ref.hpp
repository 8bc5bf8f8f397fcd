#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <type_traits>
#include <utility>
#include <vector>

namespace sorrel {

/// Base of the records of the information tree, with the two counts that keep the tree's two promises: a
/// parent is reachable for as long as any of its children is in use, and a tree that nobody outside holds any
/// more is freed.
///
/// A record is counted by *handles* (Ref, held by whoever uses it) and by *slots* (Children, the arrays of
/// its parents). It is freed when both are gone. As long as a record has a handle it keeps a handle on its
/// parents, and so on up to the module. Slots keep nothing above them, so there is no cycle: links down own,
/// links up only pin while somebody outside looks at the record. docs/decisions/0001-tree-ownership.md tells
/// why.
///
/// Handles come and go on any thread, also while another thread changes a link of the same record. The fields
/// of a record themselves (its parent links, its arrays of children) are plain: they are read and changed by
/// one thread at a time.
///
/// A record that is freed takes the links to itself out of the records that its arrays hold, which may live
/// on in other arrays (a category and a feature do so all the way down, a file record for its own children).
/// Therefore the link of a record that nobody holds leads to a record whose arrays hold it; and the last
/// handle of a parent is not dropped while another thread takes a first handle on a child that outlives it.
///
/// A `Children` value outside of any record owns its records like an array of a parent: it keeps nothing
/// above them. Whoever takes records out of a tree holds them as handles (`Children::refs()`).
/// What lies in the tree itself, such as a payload of a record, points at other records of the tree with
/// plain pointers: a handle in there would keep the tree forever.
class TreeNode {
 public:
  TreeNode(const TreeNode&) = delete;
  TreeNode& operator=(const TreeNode&) = delete;

 protected:
  static constexpr std::size_t kMaxParents = 2;
  struct Parents {
    TreeNode* node[kMaxParents] = {};
  };

  TreeNode() = default;
  virtual ~TreeNode() = default;

  /// The parents that a handle on this record keeps alive. Chains of any length lead through the last one;
  /// those through the others are short.
  [[nodiscard]] virtual Parents parents() const noexcept { return {}; }

 private:
  template <class T>
  friend class Ref;
  template <class T>
  friend class Children;
  template <class T>
  friend class ParentLink;

  static constexpr std::uint64_t kHandle = 1;
  static constexpr std::uint64_t kSlot = std::uint64_t{1} << 32;
  static constexpr std::uint64_t kLock = std::uint64_t{1} << 63;
  static constexpr std::uint64_t kHandleMask = kSlot - 1;

  void addHandle() noexcept;
  void addFirstHandle() noexcept;
  void dropHandle() noexcept;
  void addSlot() noexcept { counts_.fetch_add(kSlot, std::memory_order_relaxed); }
  void dropSlot() noexcept;

  /// Keeps the links, and whether there is a handle at all, as they are until unlockLinks(). True if there is
  /// one.
  bool lockLinks() noexcept;
  void unlockLinks() noexcept;
  /// Counts one handle. True if it is the first: then the links are locked, and the caller pins the parents.
  bool countHandle() noexcept;
  /// Takes one handle off. True if it was the last: then `pinned` holds the parents that the caller lets go,
  /// and this record may be gone.
  bool uncountHandle(Parents& pinned) noexcept;
  static void dispose(TreeNode* dead) noexcept;

  // Handles, slots and the lock of the links. Whoever brings it to nought frees the record.
  std::atomic<std::uint64_t> counts_{0};
};

/// A shared pointer on a record. One pointer wide; a record that is at hand as a reference can be taken hold
/// of again at any time: `Ref<FileInformation>(record)`.
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

  /// Same object; the records' own == compares what they hold.
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

/// The array of a record's children. Iterates over the records themselves; `ref(i)` gives a handle on one.
/// Adding a record does not set its parent link: the fields are independent, as the scanners need them.
template <class T>
class Children {
 public:
  using value_type = T;

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
  Children(const Children& other) : records_(other.records_) {
    for (T* record : records_) node(record)->addSlot();
  }
  Children(Children&& other) noexcept : records_(std::move(other.records_)) { other.records_.clear(); }
  Children& operator=(Children other) noexcept {
    records_.swap(other.records_);
    return *this;
  }
  ~Children() { dropAll(records_); }

  [[nodiscard]] std::size_t size() const noexcept { return records_.size(); }
  [[nodiscard]] bool empty() const noexcept { return records_.empty(); }
  T& operator[](std::size_t index) noexcept { return *records_[index]; }
  const T& operator[](std::size_t index) const noexcept { return *records_[index]; }
  T& front() noexcept { return *records_.front(); }
  T& back() noexcept { return *records_.back(); }
  [[nodiscard]] Ref<T> ref(std::size_t index) const noexcept { return Ref<T>(records_[index]); }
  /// Handles on all of them, in order.
  [[nodiscard]] std::vector<Ref<T>> refs() const {
    std::vector<Ref<T>> handles;
    handles.reserve(size());
    for (T* record : records_) handles.emplace_back(record);
    return handles;
  }

  iterator begin() noexcept { return iterator(records_.data()); }
  iterator end() noexcept { return iterator(records_.data() + records_.size()); }
  const_iterator begin() const noexcept { return const_iterator(records_.data()); }
  const_iterator end() const noexcept { return const_iterator(records_.data() + records_.size()); }

  void reserve(std::size_t count) { records_.reserve(count); }
  void push_back(const Ref<T>& record) {
    records_.push_back(record.get());
    node(record.get())->addSlot();
  }
  iterator erase(iterator at) {
    const auto index = static_cast<std::size_t>(at - begin());
    T* const removed = records_[index];
    records_.erase(records_.begin() + static_cast<std::ptrdiff_t>(index));
    node(removed)->dropSlot();
    return begin() + static_cast<std::ptrdiff_t>(index);
  }
  void clear() noexcept {
    std::vector<T*> old;
    old.swap(records_);
    dropAll(old);
  }

 private:
  static TreeNode* node(T* record) noexcept { return record; }
  static void dropAll(const std::vector<T*>& records) noexcept {
    for (T* record : records) node(record)->dropSlot();
  }
  template <class Iterator>
  void assign(Iterator first, Iterator last) {
    records_.reserve(static_cast<std::size_t>(last - first));
    for (; first != last; ++first) push_back(*first);
  }

  std::vector<T*> records_;
};

/// The link from a record to its parent. Reads and assigns like a Ref; owns nothing by itself, but while the
/// record that holds it has a handle, the parent has one too.
template <class T>
class ParentLink {
 public:
  ParentLink(TreeNode& owner, T* parent) noexcept : owner_(owner), parent_(parent) {}
  ParentLink(const ParentLink&) = delete;
  ParentLink& operator=(const ParentLink& other) noexcept {
    return this == &other ? *this : assign(other.parent_);
  }
  ParentLink& operator=(const Ref<T>& parent) noexcept { return assign(parent.get()); }
  ParentLink& operator=(std::nullptr_t) noexcept { return assign(nullptr); }

  [[nodiscard]] T* get() const noexcept { return parent_; }
  [[nodiscard]] Ref<T> ref() const noexcept { return Ref<T>(parent_); }
  operator Ref<T>() const noexcept { return ref(); }
  T& operator*() const noexcept { return *parent_; }
  T* operator->() const noexcept { return parent_; }
  explicit operator bool() const noexcept { return parent_ != nullptr; }

  /// For the destructor of `parent`: a child that lives on in the array of another parent must not keep a
  /// link to it. Such a child has no handle, which would have kept `parent` alive.
  void forget(const T& parent) noexcept {
    if (parent_ == &parent) parent_ = nullptr;
  }

 private:
  ParentLink& assign(T* parent) noexcept {
    const bool pinned = owner_.lockLinks();
    // The new parent first: it may be reachable through the old one only.
    if (pinned && parent != nullptr) static_cast<TreeNode*>(parent)->addHandle();
    T* const old = std::exchange(parent_, parent);
    owner_.unlockLinks();
    if (pinned && old != nullptr) static_cast<TreeNode*>(old)->dropHandle();
    return *this;
  }

  TreeNode& owner_;
  T* parent_;
};

}  // namespace sorrel

template <class T>
struct std::hash<sorrel::Ref<T>> {
  std::size_t operator()(const sorrel::Ref<T>& record) const noexcept {
    return std::hash<T*>()(record.get());
  }
};
