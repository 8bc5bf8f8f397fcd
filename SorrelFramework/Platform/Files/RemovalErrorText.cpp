#include "SorrelFramework/Platform/Files/RemovalErrorText.hpp"

#include <cerrno>

#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel {
namespace {

struct Cause {
  int error;
  std::string_view text;
};

// An error without a row is reported without a cause. Quotes and apostrophes are the typographic ones.
constexpr Cause kCauses[] = {
    {EACCES, " because you don’t have permission to access it"},
    {EPERM, " because you don’t have permission to access it"},
    {EROFS, " because the volume is read only"},
    {ENOSPC, " because there isn’t enough space"},
    {EDQUOT, " because there isn’t enough space"},
};

}  // namespace

std::string removalErrorText(std::string_view name, int error) {
  std::string text = "“" + replacingInvalidUTF8(name) + "” couldn’t be removed";
  for (const Cause& cause : kCauses) {
    if (cause.error == error) text += cause.text;
  }
  return text + '.';
}

}  // namespace sorrel
