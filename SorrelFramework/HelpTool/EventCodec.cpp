#include "SorrelFramework/HelpTool/EventCodec.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <iterator>
#include <utility>

namespace sorrel {
namespace {

constexpr std::uint8_t kVersion = 1;

enum class Type : std::uint8_t { Number = 1, Text = 2, Dictionary = 3 };

std::size_t entriesAllowed(HelperMessage::Kind kind, int depth) {
  if (depth == 1) return HelperLimits::paths;
  const bool isReply = kind == HelperMessage::Kind::Reply;
  return HelperLimits::numbersOfPath + (isReply ? HelperLimits::wordsOfReply : 0);
}

class Writer {
 public:
  explicit Writer(HelperMessage::Kind kind) : kind_(kind) {}

  [[nodiscard]] bool message(const HelperMessage& message) {
    const std::size_t keys = message.dictionary.has_value() ? message.dictionary->size() : 0;
    if (!message.views.empty() && message.views.size() != keys) return false;
    integer(kVersion);
    integer(static_cast<std::uint8_t>(message.kind));
    integer(static_cast<std::uint8_t>(message.dictionary.has_value() ? 1 : 0));
    if (message.dictionary.has_value() && !dictionary(*message.dictionary, 1)) return false;
    integer(static_cast<std::uint8_t>(!message.views.empty() ? 1 : 0));
    for (const SenderView& seen : message.views) {
      if (!view(seen)) return false;
    }
    return fits(0);
  }
  [[nodiscard]] std::string take() { return std::move(bytes_); }

 private:
  template <class Unsigned>
  void integer(Unsigned value) {
    for (std::size_t i = 0; i < sizeof value; ++i) {
      bytes_.push_back(static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * i)));
    }
  }
  [[nodiscard]] bool fits(std::size_t more) const { return bytes_.size() + more <= HelperLimits::bytes; }

  [[nodiscard]] bool text(const std::string& text) {
    if (text.size() > HelperLimits::text || !fits(text.size())) return false;
    integer(static_cast<std::uint32_t>(text.size()));
    bytes_ += text;
    return true;
  }

  [[nodiscard]] bool dictionary(const HelperDictionary& dictionary, int depth) {
    entries_ += dictionary.size();
    if (depth > HelperLimits::depth || dictionary.size() > entriesAllowed(kind_, depth)) return false;
    if (entries_ > HelperLimits::entries) return false;
    integer(static_cast<std::uint32_t>(dictionary.size()));
    for (const auto& [key, value] : dictionary) {
      if (!text(key) || !this->value(value, depth)) return false;
    }
    return true;
  }

  [[nodiscard]] bool value(const HelperValue& value, int depth) {
    if (const std::int64_t* number = value.asNumber()) {
      integer(Type::Number);
      integer(static_cast<std::uint64_t>(*number));
      return fits(0);
    }
    if (const std::string* bytes = value.asText()) {
      integer(Type::Text);
      return text(*bytes);
    }
    const HelperDictionary* below = value.asDictionary();
    integer(Type::Dictionary);
    return below != nullptr && dictionary(*below, depth + 1);
  }

  [[nodiscard]] bool view(const SenderView& seen) {
    const bool isPresent = seen.kind == SenderView::Kind::Present;
    if (!isPresent && (seen.device != 0 || seen.inode != 0)) return false;
    integer(seen.kind);
    if (isPresent) {
      integer(seen.device);
      integer(seen.inode);
    }
    return true;
  }

  HelperMessage::Kind kind_;
  std::size_t entries_ = 0;
  std::string bytes_;
};

class Reader {
 public:
  Reader(std::string_view bytes, HelperMessage::Kind kind) : rest_(bytes), kind_(kind) {}

  std::optional<HelperMessage> message() {
    if (rest_.size() > HelperLimits::bytes) return std::nullopt;
    HelperMessage message{kind_, std::nullopt, {}};
    bool hasDictionary = false;
    if (integer<std::uint8_t>() != kVersion) return std::nullopt;
    if (integer<std::uint8_t>() != static_cast<std::uint8_t>(kind_)) return std::nullopt;
    if (!flag(hasDictionary)) return std::nullopt;
    if (hasDictionary && !dictionary(message.dictionary.emplace(), 1)) return std::nullopt;
    const std::size_t keys = hasDictionary ? message.dictionary->size() : 0;
    if (!views(message.views, keys) || !rest_.empty()) return std::nullopt;
    return message;
  }

 private:
  template <class Unsigned>
  std::optional<Unsigned> integer() {
    if (rest_.size() < sizeof(Unsigned)) return std::nullopt;
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(Unsigned); ++i) {
      value |= static_cast<std::uint64_t>(static_cast<unsigned char>(rest_[i])) << (8 * i);
    }
    rest_.remove_prefix(sizeof(Unsigned));
    return static_cast<Unsigned>(value);
  }

  [[nodiscard]] bool flag(bool& flag) {
    const std::optional<std::uint8_t> byte = integer<std::uint8_t>();
    flag = byte == 1;
    return byte.has_value() && *byte <= 1;
  }

  std::optional<std::string_view> text() {
    const std::optional<std::uint32_t> length = integer<std::uint32_t>();
    if (!length.has_value() || *length > HelperLimits::text || *length > rest_.size()) return std::nullopt;
    const std::string_view text = rest_.substr(0, *length);
    rest_.remove_prefix(*length);
    return text;
  }

  /// Entries are taken one by one, so that no count makes room for more than the bytes hold.
  [[nodiscard]] bool dictionary(HelperDictionary& dictionary, int depth) {
    const std::optional<std::uint32_t> count = integer<std::uint32_t>();
    if (!count.has_value() || depth > HelperLimits::depth) return false;
    if (*count > entriesAllowed(kind_, depth) || *count > HelperLimits::entries - entries_) return false;
    entries_ += *count;
    for (std::uint32_t i = 0; i < *count; ++i) {
      const std::optional<std::string_view> key = text();
      if (!key.has_value()) return false;
      if (!dictionary.empty() && *key <= std::prev(dictionary.end())->first) return false;
      std::optional<HelperValue> found = value(depth);
      if (!found.has_value()) return false;
      dictionary.emplace_hint(dictionary.end(), std::string(*key), std::move(*found));
    }
    return true;
  }

  std::optional<HelperValue> value(int depth) {
    const std::optional<std::uint8_t> type = integer<std::uint8_t>();
    if (type == static_cast<std::uint8_t>(Type::Number)) {
      const std::optional<std::uint64_t> number = integer<std::uint64_t>();
      return number.has_value() ? std::optional(HelperValue(*number)) : std::nullopt;
    }
    if (type == static_cast<std::uint8_t>(Type::Text)) {
      const std::optional<std::string_view> bytes = text();
      return bytes.has_value() ? std::optional(HelperValue(std::string(*bytes))) : std::nullopt;
    }
    if (type != static_cast<std::uint8_t>(Type::Dictionary)) return std::nullopt;
    HelperDictionary below;
    if (!dictionary(below, depth + 1)) return std::nullopt;
    return HelperValue(std::move(below));
  }

  [[nodiscard]] bool views(std::vector<SenderView>& views, std::size_t keys) {
    bool hasViews = false;
    if (!flag(hasViews)) return false;
    // A view has one byte at the least; "given, but none" would be a second spelling of "none".
    if (!hasViews) return true;
    if (keys == 0 || keys > rest_.size()) return false;
    views.reserve(keys);
    for (std::size_t i = 0; i < keys; ++i) {
      if (!view(views.emplace_back())) return false;
    }
    return true;
  }

  [[nodiscard]] bool view(SenderView& view) {
    const std::optional<std::uint8_t> kind = integer<std::uint8_t>();
    if (!kind.has_value() || *kind > static_cast<std::uint8_t>(SenderView::Kind::CouldNotLook)) return false;
    view.kind = static_cast<SenderView::Kind>(*kind);
    if (view.kind != SenderView::Kind::Present) return true;
    const std::optional<std::uint64_t> device = integer<std::uint64_t>();
    const std::optional<std::uint64_t> inode = integer<std::uint64_t>();
    view.device = device.value_or(0);
    view.inode = inode.value_or(0);
    return inode.has_value();
  }

  std::string_view rest_;
  HelperMessage::Kind kind_;
  std::size_t entries_ = 0;
};

}  // namespace

SenderView viewOf(const std::string& key) {
  if (!key.starts_with('/')) return {};
  if (key.find('\0') != std::string::npos) return {SenderView::Kind::CouldNotLook, 0, 0};
  struct stat status {};
  if (::lstat(key.c_str(), &status) == 0) {
    return {SenderView::Kind::Present, status.st_dev, status.st_ino};
  }
  const bool isAbsent = errno == ENOENT || errno == ENOTDIR;
  return {isAbsent ? SenderView::Kind::Absent : SenderView::Kind::CouldNotLook, 0, 0};
}

std::optional<std::string> encodeHelperMessage(const HelperMessage& message) {
  Writer writer(message.kind);
  if (!writer.message(message)) return std::nullopt;
  return writer.take();
}

std::optional<HelperMessage> decodeHelperMessage(std::string_view bytes, HelperMessage::Kind kind) {
  return Reader(bytes, kind).message();
}

}  // namespace sorrel
