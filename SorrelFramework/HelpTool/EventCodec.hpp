#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

namespace sorrel {

/// What the sender itself saw, without following a link, under a path that it names. Can only make the helper
/// refuse: another mount namespace shows other things under the same name.
struct SenderView {
  enum class Kind : std::uint8_t {
    NoPath = 0,        ///< the key is no path
    Absent = 1,        ///< nothing was there
    Present = 2,       ///< an item with this device and inode
    CouldNotLook = 3,  ///< the sender has no right to look, or the system failed
  };
  Kind kind = Kind::NoPath;
  std::uint64_t device = 0;  ///< 0 unless Present
  std::uint64_t inode = 0;   ///< 0 unless Present

  friend bool operator==(const SenderView&, const SenderView&) = default;
};

/// The view of this process: lstat(2) of a key that begins with "/", NoPath for every other key.
[[nodiscard]] SenderView viewOf(const std::string& key);

/// What travels between the two programs beside an event's id and a reply's flag and code.
struct HelperMessage {
  enum class Kind : std::uint8_t { Event = 1, Reply = 2 };
  static constexpr std::uint8_t kVersion = 1;  ///< of the form

  Kind kind = Kind::Event;
  std::optional<HelperDictionary> dictionary;
  /// One for each key at the top of the dictionary, in the order of the keys; or none at all.
  std::vector<SenderView> views;

  friend bool operator==(const HelperMessage&, const HelperMessage&) = default;
};

/// Caps of a message, for both directions. What is over a cap is refused whole.
struct HelperLimits {
  static constexpr std::size_t bytes = std::size_t{512} << 20;  ///< of a coded event
  static constexpr std::size_t paths = 2'000'000;               ///< keys at the top
  static constexpr std::size_t text = std::size_t{1} << 20;     ///< bytes of a key or a text
  static constexpr std::size_t numbersOfPath = 64;              ///< entries below a path of an event
  static constexpr std::size_t wordsOfReply = 3;                ///< that a reply may hold beside them
  static constexpr std::size_t entries = 16'000'000;            ///< of all dictionaries of an event together
  static constexpr int depth = 2;                               ///< dictionaries in one another

  /// Bytes that a reply takes for its words about a path, without its own texts and the sender's entries.
  static constexpr std::size_t wordsBytes = 128;

  /// Bytes of the coded message: the reply to any event has room for a short text and its words for each
  /// path.
  [[nodiscard]] static constexpr std::size_t bytesOf(HelperMessage::Kind kind) {
    return bytes + (kind == HelperMessage::Kind::Reply ? paths * wordsBytes : 0);
  }
  /// Entries of one dictionary, `level` dictionaries below the message.
  [[nodiscard]] static constexpr std::size_t entriesOf(HelperMessage::Kind kind, int level) {
    if (level == 1) return paths;
    return numbersOfPath + (kind == HelperMessage::Kind::Reply ? wordsOfReply : 0);
  }
  /// Entries of all dictionaries together: the reply to any event has room for its words beside the numbers.
  [[nodiscard]] static constexpr std::size_t entriesOf(HelperMessage::Kind kind) {
    return entries + (kind == HelperMessage::Kind::Reply ? paths * wordsOfReply : 0);
  }
};

/// The bytes of a message; nothing if it is over a cap, or if its views do not fit its dictionary.
///
/// All integers little-endian. Message: version (1 byte, 1), kind (1 byte), dictionary given (1 byte, 0 or
/// 1), the dictionary, views given (1 byte, 0 or 1), for each key at the top: kind (1 byte) and, for Present
/// alone, device and inode (8 bytes each). Dictionary: count (4 bytes), then for each entry, in strictly
/// ascending byte order of the keys: length of the key (4 bytes), key, value. Value: type (1 byte); 1: a
/// number (8 bytes, two's complement); 2: length (4 bytes) and bytes; 3: a dictionary.
[[nodiscard]] std::optional<std::string> encodeHelperMessage(const HelperMessage& message);

/// Reads the whole of `bytes`, which may come from anybody: nothing unless they are exactly what
/// encodeHelperMessage() writes for some message of this kind. Allocates nothing that the bytes do not fill.
[[nodiscard]] std::optional<HelperMessage> decodeHelperMessage(std::string_view bytes,
                                                               HelperMessage::Kind kind);

}  // namespace sorrel
