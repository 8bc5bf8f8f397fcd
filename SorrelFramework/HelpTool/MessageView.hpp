#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string_view>

#include "SorrelFramework/HelpTool/EventCodec.hpp"

namespace sorrel {

/// An encoded message, read in place: the view points into the bytes, which must outlive it. Allocates no
/// memory, however many entries the message has. The form is that of encodeHelperMessage().
class MessageView {
 public:
  enum class Type : std::uint8_t { Number = 1, Text = 2, Dictionary = 3 };
  struct Entry;
  class Iterator;

  /// Entries in ascending byte order of their keys.
  class Dictionary {
   public:
    Dictionary() = default;
    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
    /// All entries as they are encoded, without the count.
    [[nodiscard]] std::string_view coded() const noexcept { return coded_; }
    [[nodiscard]] Iterator begin() const;
    [[nodiscard]] Iterator end() const;

   private:
    friend class MessageView;
    std::size_t size_ = 0;
    std::string_view coded_;
    std::string_view views_;
  };

  /// Nothing unless decodeHelperMessage() decodes a message of this kind from `bytes`, which may be hostile.
  [[nodiscard]] static std::optional<MessageView> of(std::string_view bytes, HelperMessage::Kind kind);

  [[nodiscard]] bool hasDictionary() const noexcept { return hasDictionary_; }
  /// The top-level dictionary; empty if none is given.
  [[nodiscard]] const Dictionary& dictionary() const noexcept { return dictionary_; }
  /// True if the sender sent its view of the keys.
  [[nodiscard]] bool hasViews() const noexcept { return !dictionary_.views_.empty(); }

 private:
  class Check;
  MessageView() = default;

  bool hasDictionary_ = false;
  Dictionary dictionary_;
};

struct MessageView::Entry {
  std::size_t index = 0;  ///< among the entries of its dictionary
  std::string_view key;
  Type type = Type::Number;
  std::int64_t number = 0;  ///< of a Number
  std::string_view text;    ///< of a Text
  Dictionary below;         ///< of a Dictionary
  SenderView seen;          ///< at the key; NoPath if the sender sent no view
};

class MessageView::Iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = Entry;
  using difference_type = std::ptrdiff_t;
  using pointer = const Entry*;
  using reference = Entry;  // a value, because the iterator's own entry ends with it

  Iterator() = default;
  [[nodiscard]] reference operator*() const noexcept { return entry_; }
  [[nodiscard]] pointer operator->() const noexcept { return &entry_; }
  Iterator& operator++();
  void operator++(int) { ++*this; }
  friend bool operator==(const Iterator& a, const Iterator& b) noexcept { return a.left_ == b.left_; }

 private:
  friend class Dictionary;
  Iterator(const Dictionary& dictionary, std::size_t left);
  void readEntry();

  Entry entry_;
  std::size_t left_ = 0;    // entries from this one to the end
  std::string_view coded_;  // the bytes after this entry
  std::string_view views_;
};

}  // namespace sorrel
