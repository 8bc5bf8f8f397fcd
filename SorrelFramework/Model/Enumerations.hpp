#pragma once

#include <cstdint>
#include <optional>

namespace sorrel {

/// The machine word of the records: identities, tick states and raw values of the enumerations below.
using Integer = std::int64_t;

/// Tick state of a row.
enum ControlState : Integer {
  NSControlStateValueMixed = -1,
  NSControlStateValueOff = 0,
  NSControlStateValueOn = 1
};

// Records hold these as their raw values. The numbers are stored and exchanged, so they never change.
enum class FilesKind : Integer { Folder = 0, File = 1, Package = 2, Privacy = 3, Maintenance = 4 };

enum class LargeAndOldFilesKind : Integer { All = 0, ByType = 1, ByDate = 2, BySize = 3 };

enum class DuplicateKind : Integer {
  All = 0,
  ByDocument = 1,
  ByFile = 2,
  ByMedia = 3,
  ByPicture = 4,
  ByOther = 5,
};

enum class DeleteStatus : Integer { None = 0, Deleteing = 1, DeleteSuccess = 2, DeleteError = 3 };

enum class CategoryInfomationKind : Integer {
  Common = 1,
  SystemCache = 2,
  OtherTrashBin = 3,
  EmailAttachment = 4,
  LargeAndOldFileAllSet = 5,
  App = 6,
  Privacy = 7,
  FreeUpRAM = 8,
  FreeUpPurgeableSpace = 9,
  SpeedUpMail = 10,
  CleanDNS = 11,
  LoginItem = 12,
};

template <class Enumeration>
[[nodiscard]] constexpr Integer rawValue(Enumeration value) {
  return static_cast<Integer>(value);
}

/// First and last raw value of an enumeration; every number between them is a case.
template <class Enumeration>
struct RawValues;
template <>
struct RawValues<FilesKind> {
  static constexpr Integer first = 0, last = 4;
};
template <>
struct RawValues<LargeAndOldFilesKind> {
  static constexpr Integer first = 0, last = 3;
};
template <>
struct RawValues<DuplicateKind> {
  static constexpr Integer first = 0, last = 5;
};
template <>
struct RawValues<DeleteStatus> {
  static constexpr Integer first = 0, last = 3;
};
template <>
struct RawValues<CategoryInfomationKind> {
  static constexpr Integer first = 1, last = 12;
};

/// The case with that raw value; nothing if there is none.
template <class Enumeration>
[[nodiscard]] constexpr std::optional<Enumeration> fromRawValue(Integer raw) {
  if (raw < RawValues<Enumeration>::first || raw > RawValues<Enumeration>::last) return std::nullopt;
  return static_cast<Enumeration>(raw);
}

}  // namespace sorrel
