#include "Helper/Reply.hpp"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/SealedMemory.hpp"

namespace sorrel::helper {
namespace {

using Type = MessageView::Type;

constexpr std::string_view kDesc = "DeleteDesc";
constexpr std::string_view kStatus = "DeleteStatus";
constexpr std::string_view kPath = "Path";

// The caps of a reply leave room for this much.
static_assert(kUnfinishedText.size() <= 40);

/// An output that only counts the size of a message.
class Counter {
 public:
  void append(std::string_view bytes) { size_ += bytes.size(); }
  [[nodiscard]] std::size_t size() const { return size_; }

 private:
  std::size_t size_ = 0;
};

/// Writes the parts of the form of encodeHelperMessage(), so that a reply never exists as a dictionary.
template <class Out>
class Pieces {
 public:
  explicit Pieces(Out& out) : out_(out) {}

  void begin(std::size_t entries) {
    integer(HelperMessage::kVersion);
    integer(static_cast<std::uint8_t>(HelperMessage::Kind::Reply));
    integer(std::uint8_t{1});
    integer(static_cast<std::uint32_t>(entries));
  }
  void end() { integer(std::uint8_t{0}); }
  void dictionary(std::string_view key, std::size_t entries) {
    text(key);
    integer(static_cast<std::uint8_t>(Type::Dictionary));
    integer(static_cast<std::uint32_t>(entries));
  }
  void number(std::string_view key, std::int64_t value) {
    text(key);
    integer(static_cast<std::uint8_t>(Type::Number));
    integer(static_cast<std::uint64_t>(value));
  }
  void text(std::string_view key, std::string_view value) {
    text(key);
    integer(static_cast<std::uint8_t>(Type::Text));
    text(value);
  }
  void coded(std::string_view entries) { out_.append(entries); }

 private:
  void text(std::string_view text) {
    integer(static_cast<std::uint32_t>(text.size()));
    out_.append(text);
  }
  template <class Unsigned>
  void integer(Unsigned value) {
    std::array<char, sizeof value> bytes{};
    for (std::size_t i = 0; i < sizeof value; ++i) {
      bytes[i] = static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * i));
    }
    out_.append({bytes.data(), bytes.size()});
  }

  Out& out_;
};

/// The running number of an entry: of fixed width, so that the numbers sort as texts.
class NumberKey {
 public:
  explicit NumberKey(std::size_t index) {
    digits_.fill('0');
    std::array<char, 20> plain{};
    const char* const end = std::to_chars(plain.data(), plain.data() + plain.size(), index).ptr;
    std::copy_backward(plain.data(), const_cast<char*>(end), digits_.data() + digits_.size());
  }
  [[nodiscard]] std::string_view text() const { return {digits_.data(), digits_.size()}; }

 private:
  static_assert(HelperLimits::paths <= 9'999'999);
  std::array<char, 7> digits_{};
};

/// The data from which a reply is made.
struct Content {
  const EventForm& form;
  const MessageView& event;
  const ResultTable& results;
  bool flag;
  bool hasTexts;

  [[nodiscard]] bool isDelete() const { return form.kind == HelperHanldeEventID::Delete; }
  [[nodiscard]] bool isShred() const { return form.kind == HelperHanldeEventID::Shred; }
  /// Entries of the reply: all paths of a Delete; none if everything succeeded; else the failed ones and, for
  /// Shred, the others too.
  [[nodiscard]] std::size_t entries() const {
    if (isDelete()) return form.paths;
    if (flag) return 0;
    return isShred() ? form.paths : form.paths - results.successes();
  }
  [[nodiscard]] bool isListed(std::size_t index) const {
    return isDelete() || (!flag && (isShred() || !results.isSuccess(index)));
  }
  [[nodiscard]] std::string_view text(std::size_t index) const {
    if (results.isSuccess(index)) return {};
    return hasTexts ? results.text(index, kUnfinishedText) : kUnfinishedText;
  }
};

template <class Out>
void writeEntry(Pieces<Out>& pieces, const Content& content, const MessageView::Entry& entry) {
  const std::size_t numbers = content.isDelete() ? entry.below.size() : 0;
  const std::size_t words = content.isShred() ? 3 : 2;
  const bool isNumbered = content.isDelete() || content.isShred();
  pieces.dictionary(isNumbered ? NumberKey(entry.index).text() : entry.key, numbers + words);
  // In the order of their bytes: digits come before "D", and "P" after it.
  if (numbers > 0) pieces.coded(entry.below.coded());
  pieces.text(kDesc, content.text(entry.index));
  pieces.number(kStatus,
                static_cast<std::int64_t>(content.results.status(entry.index, content.form.failure())));
  if (content.isShred()) pieces.text(kPath, entry.key);
}

template <class Out>
void writeReply(Out& out, const Content& content) {
  Pieces<Out> pieces(out);
  const std::size_t entries = content.entries();
  pieces.begin(entries);
  if (entries > 0) {
    for (const MessageView::Entry& entry : content.event.dictionary()) {
      const bool isPath = content.isDelete() || content.isShred() || isPathEntry(entry);
      if (isPath && content.isListed(entry.index)) writeEntry(pieces, content, entry);
    }
  }
  pieces.end();
}

std::size_t sizeOf(const Content& content) {
  Counter counter;
  writeReply(counter, content);
  return counter.size();
}

FileDescriptor sealedWithoutEntries() {
  SealedMemory::Builder memory;
  Pieces<SealedMemory::Builder> pieces(memory);
  pieces.begin(0);
  pieces.end();
  return memory.seal();
}

/// The same memory for every caller: callers that keep many replies use no further memory of the helper.
FileDescriptor withoutEntries() {
  static FileDescriptor message;
  if (!message.isOpen()) message = sealedWithoutEntries();
  return FileDescriptor(::fcntl(message.get(), F_DUPFD_CLOEXEC, 0));
}

}  // namespace

Reply Reply::of(const EventForm& form, const MessageView& event, const ResultTable& results,
                const EventOutcome& outcome, std::size_t most) {
  // The worker's overall result never covers a path that is not known to be done.
  const bool flag = outcome.flag && results.successes() == form.paths;
  const std::int32_t code = outcome.flag && !flag ? static_cast<std::int32_t>(form.failure()) : outcome.code;
  Content content{form, event, results, flag, true};
  if (content.entries() == 0) return {flag, code, withoutEntries()};
  std::size_t bytes = sizeOf(content);
  if (bytes > most) {
    content.hasTexts = false;
    bytes = sizeOf(content);
  }
  SealedMemory::Builder memory;
  writeReply(memory, content);
  return {flag, code, memory.seal(), bytes};
}

}  // namespace sorrel::helper
