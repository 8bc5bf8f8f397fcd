#include "SorrelFramework/Platform/Text/UTF.hpp"

#include <unicode/ustring.h>

#include <cstdint>
#include <limits>

namespace sorrel {

namespace {

/// ICU counts in 32 bits.
constexpr std::size_t kMostUnits = std::numeric_limits<std::int32_t>::max() / 4;
constexpr UChar32 kReplacement = 0xFFFD;

}  // namespace

std::optional<std::u16string> utf16FromUTF8(std::string_view text) {
  if (text.size() > kMostUnits) return std::nullopt;
  std::u16string units(text.size(), u'\0');
  std::int32_t length = 0;
  UErrorCode error = U_ZERO_ERROR;
  u_strFromUTF8(units.data(), static_cast<std::int32_t>(units.size()), &length, text.data(),
                static_cast<std::int32_t>(text.size()), &error);
  if (U_FAILURE(error) != 0) return std::nullopt;
  units.resize(static_cast<std::size_t>(length));
  return units;
}

std::string utf8FromUTF16(std::u16string_view text) {
  if (text.size() > kMostUnits) return {};
  std::string bytes(text.size() * 3, '\0');
  std::int32_t length = 0;
  std::int32_t substitutions = 0;
  UErrorCode error = U_ZERO_ERROR;
  u_strToUTF8WithSub(bytes.data(), static_cast<std::int32_t>(bytes.size()), &length, text.data(),
                     static_cast<std::int32_t>(text.size()), kReplacement, &substitutions, &error);
  if (U_FAILURE(error) != 0) return {};
  bytes.resize(static_cast<std::size_t>(length));
  return bytes;
}

}  // namespace sorrel
