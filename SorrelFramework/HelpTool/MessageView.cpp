#include "SorrelFramework/HelpTool/MessageView.hpp"

namespace sorrel {
namespace {

constexpr std::size_t kNumberSize = sizeof(std::int64_t);

/// Removes an integer from the front; the bytes must be there.
template <class Unsigned>
Unsigned takeInteger(std::string_view& rest) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < sizeof(Unsigned); ++i) {
    value |= static_cast<std::uint64_t>(static_cast<unsigned char>(rest[i])) << (8 * i);
  }
  rest.remove_prefix(sizeof(Unsigned));
  return static_cast<Unsigned>(value);
}

std::string_view take(std::string_view& rest, std::size_t size) {
  const std::string_view taken = rest.substr(0, size);
  rest.remove_prefix(size);
  return taken;
}

std::string_view takeText(std::string_view& rest) {
  const auto length = takeInteger<std::uint32_t>(rest);
  return take(rest, length);
}

/// Skips the entries of a checked dictionary below the top level and returns them.
std::string_view takeEntries(std::string_view& rest, std::size_t count) {
  const std::string_view start = rest;
  for (std::size_t i = 0; i < count; ++i) {
    takeText(rest);
    switch (static_cast<MessageView::Type>(takeInteger<std::uint8_t>(rest))) {
      case MessageView::Type::Number:
        take(rest, kNumberSize);
        break;
      case MessageView::Type::Text:
        takeText(rest);
        break;
      case MessageView::Type::Dictionary:
        takeEntries(rest, takeInteger<std::uint32_t>(rest));
        break;
    }
  }
  return start.substr(0, start.size() - rest.size());
}

SenderView takeView(std::string_view& rest) {
  SenderView view;
  view.kind = static_cast<SenderView::Kind>(takeInteger<std::uint8_t>(rest));
  if (view.kind != SenderView::Kind::Present) return view;
  view.device = takeInteger<std::uint64_t>(rest);
  view.inode = takeInteger<std::uint64_t>(rest);
  return view;
}

}  // namespace

/// Parses arbitrary bytes in one pass from the first to the last.
class MessageView::Check {
 public:
  Check(std::string_view bytes, HelperMessage::Kind kind) : rest_(bytes), kind_(kind) {}

  std::optional<MessageView> message() {
    MessageView view;
    if (!head(view.hasDictionary_)) return std::nullopt;
    if (view.hasDictionary_ && !dictionary(view.dictionary_, 1)) return std::nullopt;
    if (!views(view.dictionary_) || !rest_.empty()) return std::nullopt;
    return view;
  }

 private:
  [[nodiscard]] bool head(bool& hasDictionary) {
    return rest_.size() <= HelperLimits::bytesOf(kind_) &&
           integer<std::uint8_t>() == HelperMessage::kVersion &&
           integer<std::uint8_t>() == static_cast<std::uint8_t>(kind_) && flag(hasDictionary);
  }

  template <class Unsigned>
  std::optional<Unsigned> integer() {
    if (rest_.size() < sizeof(Unsigned)) return std::nullopt;
    return takeInteger<Unsigned>(rest_);
  }

  [[nodiscard]] bool flag(bool& flag) {
    const std::optional<std::uint8_t> byte = integer<std::uint8_t>();
    flag = byte == 1;
    return byte.has_value() && *byte <= 1;
  }

  std::optional<std::string_view> text() {
    const std::optional<std::uint32_t> length = integer<std::uint32_t>();
    if (!length.has_value() || *length > HelperLimits::text || *length > rest_.size()) return std::nullopt;
    return take(rest_, *length);
  }

  [[nodiscard]] bool dictionary(Dictionary& found, int depth) {
    const std::optional<std::uint32_t> count = integer<std::uint32_t>();
    if (!count.has_value() || depth > HelperLimits::depth) return false;
    const std::size_t allowed = HelperLimits::entriesOf(kind_) - entries_;
    if (*count > HelperLimits::entriesOf(kind_, depth) || *count > allowed) return false;
    entries_ += *count;
    const std::string_view start = rest_;
    std::string_view before;
    for (std::uint32_t i = 0; i < *count; ++i) {
      const std::optional<std::string_view> key = text();
      if (!key.has_value() || (i > 0 && *key <= before) || !value(depth)) return false;
      before = *key;
    }
    found.size_ = *count;
    found.coded_ = start.substr(0, start.size() - rest_.size());
    return true;
  }

  [[nodiscard]] bool value(int depth) {
    const std::optional<std::uint8_t> type = integer<std::uint8_t>();
    if (!type.has_value()) return false;
    Dictionary below;
    switch (static_cast<Type>(*type)) {
      case Type::Number:
        return integer<std::uint64_t>().has_value();
      case Type::Text:
        return text().has_value();
      case Type::Dictionary:
        return dictionary(below, depth + 1);
    }
    return false;
  }

  [[nodiscard]] bool views(Dictionary& found) {
    bool hasViews = false;
    if (!flag(hasViews)) return false;
    if (!hasViews) return true;
    // "Given, but empty" would be a second encoding of "none".
    if (found.empty()) return false;
    found.views_ = rest_;
    for (std::size_t i = 0; i < found.size(); ++i) {
      if (!view()) return false;
    }
    return true;
  }

  [[nodiscard]] bool view() {
    const std::optional<std::uint8_t> kind = integer<std::uint8_t>();
    if (!kind.has_value() || *kind > static_cast<std::uint8_t>(SenderView::Kind::CouldNotLook)) return false;
    if (static_cast<SenderView::Kind>(*kind) != SenderView::Kind::Present) return true;
    return integer<std::uint64_t>().has_value() && integer<std::uint64_t>().has_value();
  }

  std::string_view rest_;
  HelperMessage::Kind kind_;
  std::size_t entries_ = 0;
};

std::optional<MessageView> MessageView::of(std::string_view bytes, HelperMessage::Kind kind) {
  return Check(bytes, kind).message();
}

MessageView::Iterator MessageView::Dictionary::begin() const { return {*this, size_}; }
MessageView::Iterator MessageView::Dictionary::end() const { return {*this, 0}; }

MessageView::Iterator::Iterator(const Dictionary& dictionary, std::size_t left)
    : left_(left), coded_(dictionary.coded_), views_(dictionary.views_) {
  if (left_ > 0) readEntry();
}

MessageView::Iterator& MessageView::Iterator::operator++() {
  ++entry_.index;
  if (--left_ > 0) readEntry();
  return *this;
}

void MessageView::Iterator::readEntry() {
  entry_.key = takeText(coded_);
  entry_.type = static_cast<Type>(takeInteger<std::uint8_t>(coded_));
  entry_.number = 0;
  entry_.text = {};
  entry_.below = {};
  switch (entry_.type) {
    case Type::Number:
      entry_.number = static_cast<std::int64_t>(takeInteger<std::uint64_t>(coded_));
      break;
    case Type::Text:
      entry_.text = takeText(coded_);
      break;
    case Type::Dictionary:
      entry_.below.size_ = takeInteger<std::uint32_t>(coded_);
      entry_.below.coded_ = takeEntries(coded_, entry_.below.size_);
      break;
  }
  entry_.seen = views_.empty() ? SenderView() : takeView(views_);
}

}  // namespace sorrel
