#include "SorrelFramework/Platform/Text/DateText.hpp"

#include <unicode/udat.h>

#include <cstdint>
#include <memory>
#include <string>

#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Platform/Text/UTF.hpp"

namespace sorrel {
namespace {

std::u16string toUTF16(std::string_view text) {
  return utf16FromUTF8(replacingInvalidUTF8(text)).value_or(std::u16string());
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
  return U_FAILURE(status) != 0 ? std::string() : utf8FromUTF16(text);
}

}  // namespace sorrel
