#include "SorrelFramework/Scan/PathText.hpp"

#include "SorrelFramework/Platform/Text/Text.hpp"

namespace sorrel {

std::string pathInText(std::string_view url) {
  std::string path = replacingOccurrences(url, "file://", "");
  if (path.find('%') == std::string::npos && isValidUTF8(path)) return path;
  return removingPercentEncoding(replacingOccurrences(path, "%20", " ")).value_or("");
}

std::string pathTextOf(const URL& url) {
  constexpr std::string_view scheme = "file://";
  const std::string_view text = url.relativeText();
  if (!text.starts_with(scheme) || text.find(scheme, 1) != std::string_view::npos) {
    return pathInText(url.absoluteString());
  }
  // Called once for each item of a scan: the usual text needs one copy, and a blank is decoded like any byte.
  const std::string_view path = text.substr(scheme.size());
  return path.find('%') == std::string_view::npos ? std::string(path)
                                                  : removingPercentEncoding(path).value_or("");
}

}  // namespace sorrel
