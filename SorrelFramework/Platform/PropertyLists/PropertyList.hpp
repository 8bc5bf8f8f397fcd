#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "SorrelFramework/Platform/Base/Date.hpp"

namespace sorrel {

class PropertyListDictionary;

/// One value of a property list, with everything below it. Copies are deep; moves cost nothing. Any depth can
/// be built, copied, compared and freed without a deep stack; only readers and writers have a limit.
class PropertyList {
 public:
// GCC reports a scoped enumerator as shadowing sorrel::Integer.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
  enum class Type { Boolean, Integer, Real, String, Data, Date, Array, Dictionary, UID };
#pragma GCC diagnostic pop
  using Array = std::vector<PropertyList>;
  using Data = std::vector<std::uint8_t>;
  using Dictionary = PropertyListDictionary;
  /// A reference of a keyed archive: an index into its object table.
  struct UID {
    std::uint64_t value = 0;
    friend bool operator==(const UID&, const UID&) = default;
  };

  /// An empty dictionary.
  PropertyList();
  /// A boolean stays a boolean. Integers are signed 64 bits wide; an unsigned one above that range keeps its
  /// value, but only asReal() and asUnsigned() return it.
  template <std::integral Number>
  PropertyList(Number value) : value_(widened(value)) {}
  PropertyList(double value) : value_(value) {}
  PropertyList(std::string value) : value_(std::move(value)) {}
  PropertyList(std::string_view value) : value_(std::string(value)) {}
  PropertyList(const char* value) : value_(std::string(value)) {}
  PropertyList(Data value) : value_(std::move(value)) {}
  PropertyList(sorrel::Date value) : value_(StoredDate{value.secondsSince1970 - kSecondsFrom1970To2001}) {}
  PropertyList(UID value) : value_(value) {}
  PropertyList(Array value);
  PropertyList(Dictionary value);
  /// A date in the form that files use. Kept in that form, so that a list written back has exactly the same
  /// bytes for it.
  [[nodiscard]] static PropertyList dateSince2001(double seconds);

  PropertyList(const PropertyList& other);
  PropertyList& operator=(const PropertyList& other);
  /// The source of a move becomes false.
  PropertyList(PropertyList&& other) noexcept;
  PropertyList& operator=(PropertyList&& other) noexcept;
  ~PropertyList();

  [[nodiscard]] Type type() const noexcept;

  /// The typed readers: nothing if the value is of another type. Numbers convert where the value stays the
  /// same: asInteger accepts booleans (0, 1) and reals without a fraction, asBoolean the numbers 0 and 1,
  /// asReal every number.
  [[nodiscard]] std::optional<bool> asBoolean() const noexcept;
  [[nodiscard]] std::optional<std::int64_t> asInteger() const noexcept;
  [[nodiscard]] std::optional<std::uint64_t> asUnsigned() const noexcept;
  [[nodiscard]] std::optional<double> asReal() const noexcept;
  [[nodiscard]] std::optional<sorrel::Date> asDate() const noexcept;
  [[nodiscard]] std::optional<double> asSecondsSince2001() const noexcept;
  [[nodiscard]] std::optional<UID> asUID() const noexcept;
  /// Texts are UTF-8. The pointers are valid while this value is unchanged.
  [[nodiscard]] const std::string* asString() const noexcept;
  [[nodiscard]] const Data* asData() const noexcept;
  [[nodiscard]] const Array* asArray() const noexcept;
  [[nodiscard]] Array* asArray() noexcept;
  [[nodiscard]] const Dictionary* asDictionary() const noexcept;
  [[nodiscard]] Dictionary* asDictionary() noexcept;

  /// The value under `key`; nullptr if this is not a dictionary or has no such key.
  [[nodiscard]] const PropertyList* find(std::string_view key) const noexcept;
  [[nodiscard]] PropertyList* find(std::string_view key) noexcept;
  /// The text, the array ... under `key`: find() and the typed reader in one.
  [[nodiscard]] const std::string* findString(std::string_view key) const noexcept;
  [[nodiscard]] const Array* findArray(std::string_view key) const noexcept;
  [[nodiscard]] Array* findArray(std::string_view key) noexcept;

  /// Same types and values at every level. The order of a dictionary's keys does not count; NaN equals NaN.
  friend bool operator==(const PropertyList& a, const PropertyList& b);

 private:
  using Big = std::uint64_t;  // only for values above the range of int64_t
  struct StoredDate {
    double secondsSince2001 = 0;
    friend bool operator==(const StoredDate&, const StoredDate&) = default;
  };
  using Value = std::variant<bool, std::int64_t, Big, double, std::string, Data, StoredDate, UID,
                             std::unique_ptr<Array>, std::unique_ptr<Dictionary>>;

  template <std::integral Number>
  static Value widened(Number value) {
    if constexpr (std::same_as<Number, bool>) {
      return value;
    } else {
      if (std::in_range<std::int64_t>(value)) return static_cast<std::int64_t>(value);
      return static_cast<Big>(value);
    }
  }
  void freeIteratively() noexcept;
  [[nodiscard]] bool equalsHere(const PropertyList& other) const;

  Value value_;
};

/// The keys and values of a dictionary in the order of the file, or of their first setting.
class PropertyListDictionary {
 public:
  struct Entry;

  PropertyListDictionary();
  PropertyListDictionary(std::initializer_list<Entry> entries);
  PropertyListDictionary(const PropertyListDictionary& other);
  PropertyListDictionary& operator=(const PropertyListDictionary& other);
  PropertyListDictionary(PropertyListDictionary&& other) noexcept;
  PropertyListDictionary& operator=(PropertyListDictionary&& other) noexcept;
  ~PropertyListDictionary();

  [[nodiscard]] std::size_t size() const noexcept;
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  [[nodiscard]] const std::vector<Entry>& entries() const noexcept { return entries_; }
  [[nodiscard]] std::vector<Entry>::const_iterator begin() const noexcept;
  [[nodiscard]] std::vector<Entry>::const_iterator end() const noexcept;

  [[nodiscard]] const PropertyList* find(std::string_view key) const noexcept;
  [[nodiscard]] PropertyList* find(std::string_view key) noexcept;
  /// Replaces the value under `key` in its position, or appends. This and erase() invalidate pointers from
  /// find().
  PropertyList& set(std::string key, PropertyList value);
  /// False if there is no such key.
  bool erase(std::string_view key);

 private:
  friend class PropertyList;
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
      return std::hash<std::string_view>()(text);
    }
  };
  using Index = std::unordered_map<std::string, std::size_t, Hash, std::equal_to<>>;

  [[nodiscard]] std::size_t position(std::string_view key) const noexcept;
  void rebuildIndex();

  std::vector<Entry> entries_;
  std::unique_ptr<Index> index_;  // only for large dictionaries
};

struct PropertyListDictionary::Entry {
  std::string key;
  PropertyList value;
};

enum class PropertyListFormat { XML, Binary };

/// Limits for reading a list. A list that exceeds any of them counts as damaged. The writers enforce the
/// depth too.
inline constexpr std::size_t kPropertyListByteLimit = std::size_t{64} << 20;
inline constexpr std::size_t kPropertyListDepthLimit = 512;
inline constexpr std::size_t kPropertyListNodeLimit = 4'000'000;

/// Reads a property list and detects its form by the content: binary ("bplist0"), XML (UTF-8, or UTF-16 with
/// a byte order mark), otherwise old-style text. Nothing if the bytes are damaged or exceed a limit. Any
/// thread.
[[nodiscard]] std::optional<PropertyList> parsePropertyList(std::string_view bytes);

/// The same for the file at `path` (links are followed); nothing also if it is missing, unreadable or not a
/// regular file: a FIFO or a device is never read.
[[nodiscard]] std::optional<PropertyList> readPropertyListFile(const std::string& path);

/// The XML form: UTF-8, keys in ascending order of their bytes, indented by tabs, a line feed at the end;
/// dates in whole seconds. A UID becomes a dictionary with the one key CF$UID. Nothing if XML can't represent
/// the list: a text that is not UTF-8 or contains a NUL, a date outside the years 1 to 9999, more levels than
/// the limit.
[[nodiscard]] std::optional<std::string> writePropertyListXML(const PropertyList& list);

/// The binary form ("bplist00"): keys in their order, equal scalars stored once. Nothing if a text is not
/// UTF-8 or the list has more levels than the limit.
[[nodiscard]] std::optional<std::string> writePropertyListBinary(const PropertyList& list);

/// Writes the list so that at every moment the file is complete, old or new: see writeFileAtomically(). False
/// on failure; then the old file is unchanged.
[[nodiscard]] bool writePropertyListFile(const std::string& path, const PropertyList& list,
                                         PropertyListFormat format = PropertyListFormat::XML);

}  // namespace sorrel
