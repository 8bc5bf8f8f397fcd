#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string_view>

#include "SorrelFramework/HelpTool/EventCodec.hpp"

namespace sorrel {

/// A coded message, read in place: what it holds points into its bytes, which must stay. Takes no memory of
/// its own, however many entries the message has. The form is the one of encodeHelperMessage().
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
    /// All entries as they are coded, without the count.
    [[nodiscard]] std::string_view coded() const noexcept { return coded_; }
    [[nodiscard]] Iterator begin() const;
    [[nodiscard]] Iterator end() const;

   private:
    friend class MessageView;
    std::size_t size_ = 0;
    std::string_view coded_;
    std::string_view views_;
  };

  /// Nothing unless decodeHelperMessage() reads a message of this kind from `bytes`; they may come from
  /// anybody.
  [[nodiscard]] static std::optional<MessageView> of(std::string_view bytes, HelperMessage::Kind kind);

  [[nodiscard]] bool hasDictionary() const noexcept { return hasDictionary_; }
  /// The top; empty if none is given.
  [[nodiscard]] const Dictionary& dictionary() const noexcept { return dictionary_; }
  /// Whether the sender told what it sees under the keys.
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
  SenderView seen;          ///< under the key; NoPath where nothing is told
};

class MessageView::Iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = Entry;
  using difference_type = std::ptrdiff_t;
  using pointer = const Entry*;
  using reference = Entry;  // of its own: the iterator's one ends with it

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
  std::string_view coded_;  // what comes after this entry
  std::string_view views_;
};

}  // namespace sorrel
