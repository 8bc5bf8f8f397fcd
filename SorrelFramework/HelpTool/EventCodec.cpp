#include "SorrelFramework/HelpTool/EventCodec.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "SorrelFramework/HelpTool/MessageView.hpp"

namespace sorrel {
namespace {

using Type = MessageView::Type;

class Writer {
 public:
  explicit Writer(HelperMessage::Kind kind) : kind_(kind) {}

  [[nodiscard]] bool message(const HelperMessage& message) {
    const std::size_t keys = message.dictionary.has_value() ? message.dictionary->size() : 0;
    if (!message.views.empty() && message.views.size() != keys) return false;
    integer(HelperMessage::kVersion);
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
  [[nodiscard]] bool fits(std::size_t more) const {
    return bytes_.size() + more <= HelperLimits::bytesOf(kind_);
  }

  [[nodiscard]] bool text(const std::string& text) {
    if (text.size() > HelperLimits::text || !fits(text.size())) return false;
    integer(static_cast<std::uint32_t>(text.size()));
    bytes_ += text;
    return true;
  }

  [[nodiscard]] bool dictionary(const HelperDictionary& dictionary, int depth) {
    entries_ += dictionary.size();
    if (depth > HelperLimits::depth || dictionary.size() > HelperLimits::entriesOf(kind_, depth))
      return false;
    if (entries_ > HelperLimits::entriesOf(kind_)) return false;
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

HelperDictionary dictionaryOf(const MessageView::Dictionary& view);

HelperValue valueOf(const MessageView::Entry& entry) {
  switch (entry.type) {
    case MessageView::Type::Number:
      return entry.number;
    case MessageView::Type::Text:
      return std::string(entry.text);
    case MessageView::Type::Dictionary:
      break;
  }
  return dictionaryOf(entry.below);
}

HelperDictionary dictionaryOf(const MessageView::Dictionary& view) {
  HelperDictionary dictionary;
  for (const MessageView::Entry& entry : view) {
    dictionary.emplace_hint(dictionary.end(), std::string(entry.key), valueOf(entry));
  }
  return dictionary;
}

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
  const std::optional<MessageView> view = MessageView::of(bytes, kind);
  if (!view.has_value()) return std::nullopt;
  HelperMessage message{kind, std::nullopt, {}};
  if (!view->hasDictionary()) return message;
  message.dictionary = dictionaryOf(view->dictionary());
  if (!view->hasViews()) return message;
  message.views.reserve(view->dictionary().size());
  for (const MessageView::Entry& entry : view->dictionary()) message.views.push_back(entry.seen);
  return message;
}

}  // namespace sorrel
