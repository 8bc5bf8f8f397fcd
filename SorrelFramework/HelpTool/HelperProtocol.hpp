#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace sorrel {

/// Kind of an event.
enum class HelperHanldeEventID : std::int32_t { Delete = 0, Shred = 1, Maintenance = 2, CloseHelper = 3 };

/// Status in a reply.
enum class HelperEventErrorID : std::int64_t {
  Success = 0,
  OverTime = 1,
  DeleteError = 2,
  NoCause = 3,
  ShreadFail = 4,
  MoveFail = 5,
};

/// The operation of a Maintenance event, under "OperationValue".
enum class HelperOperationID : std::int64_t { CleanDNS = 0, RebuildSpotlight = 1, Clean = 2, Move = 3 };

/// A value of an event or a reply: a number, a text of bytes (file names need not be UTF-8), or a dictionary.
class HelperValue;
/// The dictionary of an event or a reply. Keys are bytes; most events have absolute paths as top-level keys.
using HelperDictionary = std::map<std::string, HelperValue>;

class HelperValue {
 public:
  HelperValue() : value_(std::int64_t{0}) {}
  template <std::integral Number>
  HelperValue(Number number) : value_(static_cast<std::int64_t>(number)) {}
  HelperValue(HelperEventErrorID status) : value_(static_cast<std::int64_t>(status)) {}
  HelperValue(std::string text) : value_(std::move(text)) {}
  HelperValue(const char* text) : value_(std::string(text)) {}
  HelperValue(HelperDictionary dictionary);

  /// Deep: a copy shares nothing with its original.
  HelperValue(const HelperValue& other);
  HelperValue& operator=(const HelperValue& other);
  /// The source of a move may only be assigned to or destroyed.
  HelperValue(HelperValue&& other) noexcept;
  HelperValue& operator=(HelperValue&& other) noexcept;
  ~HelperValue();

  /// Null unless the value is of that type.
  [[nodiscard]] const std::int64_t* asNumber() const { return std::get_if<std::int64_t>(&value_); }
  [[nodiscard]] const std::string* asText() const { return std::get_if<std::string>(&value_); }
  [[nodiscard]] const HelperDictionary* asDictionary() const;
  [[nodiscard]] HelperDictionary* asDictionary();

  friend bool operator==(const HelperValue& a, const HelperValue& b);

 private:
  std::variant<std::int64_t, std::string, std::unique_ptr<HelperDictionary>> value_;
};

/// The requests to the privileged helper. The dictionaries' forms:
///
/// Delete: each path maps to a dictionary from the sender's running numbers, "0", "1", ... to numbers. Reply:
/// for each processed path a dictionary with these numbers, "DeleteStatus" (a HelperEventErrorID) and
/// "DeleteDesc" (text). Shred: each path maps to an empty dictionary. Reply with the flag false: dictionaries
/// with "DeleteStatus", "Path" and "DeleteDesc". Maintenance: "OperationValue" (0 CleanDNS, 1
/// RebuildSpotlight, 2 Clean, 3 Move) and, for Clean, paths with empty dictionaries, for Move, source paths
/// with {"ToPath": target}. Reply of Clean and Move with the flag false: failed paths with "DeleteStatus" and
/// "DeleteDesc". CloseHelper: empty.
class HelperProtocol {
 public:
  using VersionReply = std::function<void(const std::string& version)>;
  /// Flag, code, dictionary (nothing if the helper sent none).
  using EventReply =
      std::function<void(bool flag, std::int32_t code, const std::optional<HelperDictionary>& dictionary)>;
  using UninstallReply = std::function<void(bool flag, const std::string& text)>;

  virtual ~HelperProtocol() = default;

  virtual void getHelperVersion(VersionReply reply) = 0;
  /// Returns at once; `reply` runs once on a thread of the connection, and never if the connection is lost.
  virtual void handleEvent(std::int32_t eventID, const HelperDictionary& eventDict, EventReply reply) = 0;
  virtual void uninstall(UninstallReply reply) = 0;
};

}  // namespace sorrel
