#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

namespace sorrel {

/// The item that the sender itself found, without following a link, at a path in its message. It can only
/// make the helper refuse: in another mount namespace the same path may lead to another item.
struct SenderView {
  enum class Kind : std::uint8_t {
    NoPath = 0,        ///< the key is no path
    Absent = 1,        ///< no item was there
    Present = 2,       ///< an item with this device and inode
    CouldNotLook = 3,  ///< the sender lacks the permission to check, or the system failed
  };
  Kind kind = Kind::NoPath;
  std::uint64_t device = 0;  ///< 0 unless Present
  std::uint64_t inode = 0;   ///< 0 unless Present

  friend bool operator==(const SenderView&, const SenderView&) = default;
};

/// The view of this process: lstat(2) of a key that begins with "/", NoPath for every other key.
[[nodiscard]] SenderView viewOf(const std::string& key);

/// A message between the two programs, without an event's id and a reply's flag and code.
struct HelperMessage {
  enum class Kind : std::uint8_t { Event = 1, Reply = 2 };
  static constexpr std::uint8_t kVersion = 1;  ///< of the encoding

  Kind kind = Kind::Event;
  std::optional<HelperDictionary> dictionary;
  /// One for each key of the top-level dictionary, in the order of the keys; or none at all.
  std::vector<SenderView> views;

  friend bool operator==(const HelperMessage&, const HelperMessage&) = default;
};

/// Caps of a message, for both directions. A message over a cap is refused as a whole.
struct HelperLimits {
  static constexpr std::size_t bytes = std::size_t{512} << 20;  ///< of an encoded event
  static constexpr std::size_t paths = 2'000'000;               ///< top-level keys
  static constexpr std::size_t text = std::size_t{1} << 20;     ///< bytes of a key or a text
  static constexpr std::size_t numbersOfPath = 64;              ///< entries below a path of an event
  static constexpr std::size_t wordsOfReply = 3;                ///< further entries below a path of a reply
  static constexpr std::size_t entries = 16'000'000;            ///< of all dictionaries of an event together
  static constexpr int depth = 2;                               ///< nesting depth of dictionaries

  /// Bytes that a reply adds for each path, without the texts of the results and the sender's entries.
  static constexpr std::size_t wordsBytes = 128;

  /// Maximum size of the encoded message: the reply to any event has room for a short text and its words for
  /// each path.
  [[nodiscard]] static constexpr std::size_t bytesOf(HelperMessage::Kind kind) {
    return bytes + (kind == HelperMessage::Kind::Reply ? paths * wordsBytes : 0);
  }
  /// Entries of one dictionary, `level` dictionaries below the message.
  [[nodiscard]] static constexpr std::size_t entriesOf(HelperMessage::Kind kind, int level) {
    if (level == 1) return paths;
    return numbersOfPath + (kind == HelperMessage::Kind::Reply ? wordsOfReply : 0);
  }
  /// Entries of all dictionaries together: the reply to any event has room for its words besides the numbers.
  [[nodiscard]] static constexpr std::size_t entriesOf(HelperMessage::Kind kind) {
    return entries + (kind == HelperMessage::Kind::Reply ? paths * wordsOfReply : 0);
  }
};

/// The encoded message; nothing if it is over a cap, or if its views do not fit its dictionary.
///
/// All integers are little-endian. Message: version (1 byte, 1), kind (1 byte), dictionary given (1 byte, 0
/// or 1), the dictionary, views given (1 byte, 0 or 1), for each top-level key: kind (1 byte) and, for
/// Present only, device and inode (8 bytes each). Dictionary: count (4 bytes), then for each entry, in
/// strictly ascending byte order of the keys: length of the key (4 bytes), key, value. Value: type (1 byte);
/// 1: a number (8 bytes, two's complement); 2: length (4 bytes) and bytes; 3: a dictionary.
[[nodiscard]] std::optional<std::string> encodeHelperMessage(const HelperMessage& message);

/// Decodes the whole of `bytes`, which may be hostile: nothing unless they are exactly what
/// encodeHelperMessage() writes for some message of this kind. Never allocates more than the bytes fill.
[[nodiscard]] std::optional<HelperMessage> decodeHelperMessage(std::string_view bytes,
                                                               HelperMessage::Kind kind);

}  // namespace sorrel
