#include "SorrelFramework/Platform/DateText.hpp"

#include <unicode/udat.h>
#include <unicode/ustring.h>

#include <cstdint>
#include <memory>

namespace sorrel {
namespace {

std::u16string toUTF16(std::string_view text) {
  // A UTF-8 text never has fewer bytes than UTF-16 units.
  std::u16string units(text.size(), u'\0');
  std::int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8WithSub(units.data(), static_cast<std::int32_t>(units.size()), &length, text.data(),
                       static_cast<std::int32_t>(text.size()), 0xFFFD, nullptr, &status);
  units.resize(U_SUCCESS(status) != 0 ? static_cast<std::size_t>(length) : 0);
  return units;
}

std::string toUTF8(std::u16string_view units) {
  std::string text(units.size() * 3, '\0');
  std::int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8(text.data(), static_cast<std::int32_t>(text.size()), &length, units.data(),
              static_cast<std::int32_t>(units.size()), &status);
  text.resize(U_SUCCESS(status) != 0 ? static_cast<std::size_t>(length) : 0);
  return text;
}

struct CloseFormat {
  void operator()(UDateFormat* format) const { udat_close(format); }
};

}  // namespace

std::string formattedDate(Date date, std::string_view pattern, const std::string& locale,
                          std::string_view timeZone) {
  const std::u16string units = toUTF16(pattern);
  const std::u16string zone = toUTF16(timeZone);
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<UDateFormat, CloseFormat> format(
      udat_open(UDAT_PATTERN, UDAT_PATTERN, locale.c_str(), zone.empty() ? nullptr : zone.data(),
                static_cast<std::int32_t>(zone.size()), units.data(), static_cast<std::int32_t>(units.size()),
                &status));
  if (U_FAILURE(status) != 0) return {};

  const double milliseconds = date.secondsSince1970 * 1000;
  const std::int32_t length = udat_format(format.get(), milliseconds, nullptr, 0, nullptr, &status);
  if (status != U_BUFFER_OVERFLOW_ERROR) return {};
  status = U_ZERO_ERROR;
  std::u16string text(static_cast<std::size_t>(length), u'\0');
  udat_format(format.get(), milliseconds, text.data(), length, nullptr, &status);
  return U_FAILURE(status) != 0 ? std::string() : toUTF8(text);
}

}  // namespace sorrel
