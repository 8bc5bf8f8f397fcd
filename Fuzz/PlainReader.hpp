#pragma once

#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SorrelFramework/HelpTool/EventCodec.hpp"

// An independent reader of the format of encodeHelperMessage(): the results of MessageView on hostile bytes
// are compared with it, in the tests and in the fuzz targets.
namespace sorrel::fuzz {

/// Reads into maps, directly from the bytes.
class PlainReader {
 public:
  PlainReader(std::string_view bytes, HelperMessage::Kind kind) : rest_(bytes), kind_(kind) {}

  std::optional<HelperMessage> message() {
    if (rest_.size() > HelperLimits::bytes) return std::nullopt;
    HelperMessage message{kind_, std::nullopt, {}};
    bool hasDictionary = false;
    if (integer<std::uint8_t>() != 1) return std::nullopt;
    if (integer<std::uint8_t>() != static_cast<std::uint8_t>(kind_)) return std::nullopt;
    if (!flag(hasDictionary)) return std::nullopt;
    if (hasDictionary && !dictionary(message.dictionary.emplace(), 1)) return std::nullopt;
    const std::size_t keys = hasDictionary ? message.dictionary->size() : 0;
    if (!views(message.views, keys) || !rest_.empty()) return std::nullopt;
    return message;
  }

 private:
  [[nodiscard]] std::size_t entriesAllowed(int depth) const {
    if (depth == 1) return 2'000'000;
    return kind_ == HelperMessage::Kind::Reply ? 67 : 64;
  }

  [[nodiscard]] std::size_t entriesAllowed() const {
    return kind_ == HelperMessage::Kind::Reply ? 22'000'000 : 16'000'000;
  }

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

  /// Entries are read one by one, so that a count can't allocate more than the bytes contain.
  [[nodiscard]] bool dictionary(HelperDictionary& dictionary, int depth) {
    const std::optional<std::uint32_t> count = integer<std::uint32_t>();
    if (!count.has_value() || depth > HelperLimits::depth) return false;
    if (*count > entriesAllowed(depth) || *count > entriesAllowed() - entries_) return false;
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
    if (type == 1) {
      const std::optional<std::uint64_t> number = integer<std::uint64_t>();
      return number.has_value() ? std::optional(HelperValue(*number)) : std::nullopt;
    }
    if (type == 2) {
      const std::optional<std::string_view> bytes = text();
      return bytes.has_value() ? std::optional(HelperValue(std::string(*bytes))) : std::nullopt;
    }
    if (type != 3) return std::nullopt;
    HelperDictionary below;
    if (!dictionary(below, depth + 1)) return std::nullopt;
    return HelperValue(std::move(below));
  }

  [[nodiscard]] bool views(std::vector<SenderView>& views, std::size_t keys) {
    bool hasViews = false;
    if (!flag(hasViews)) return false;
    // A view has at least one byte; "given, but empty" would be a second encoding of "none".
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

}  // namespace sorrel::fuzz
