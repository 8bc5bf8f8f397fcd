#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace sorrel {

/// The names under which the two programs meet on the system bus; all follow from the service name. The
/// methods: GetHelperVersion() -> s; HandleEvent(i event, h message) -> (b flag, i code, h message), both
/// messages sealed memory in the form of EventCodec; Uninstall() -> (b flag, s text).
struct HelperWireNames {
  static constexpr const char* getHelperVersion = "GetHelperVersion";
  static constexpr const char* handleEvent = "HandleEvent";
  static constexpr const char* uninstall = "Uninstall";

  std::string service;     ///< the name on the bus
  std::string interface;   ///< the same with "_" for what an interface name must not hold
  std::string objectPath;  ///< the interface's parts as folders

  explicit HelperWireNames(const std::string& machServiceName)
      : service(machServiceName), interface(machServiceName), objectPath("/" + machServiceName) {
    std::ranges::replace(interface, '-', '_');
    std::ranges::replace(objectPath, '-', '_');
    std::ranges::replace(objectPath, '.', '/');
  }

  /// True if the bus takes the name: two or more parts with dots between them, each of letters, digits, "-"
  /// and "_" and without a digit at its beginning; at most 255 bytes.
  [[nodiscard]] bool isValid() const {
    if (service.size() > 255 || service.find('.') == std::string::npos) return false;
    std::string_view rest = service;
    for (;;) {
      const std::size_t dot = rest.find('.');
      if (!isPart(rest.substr(0, dot))) return false;
      if (dot == std::string_view::npos) return true;
      rest.remove_prefix(dot + 1);
    }
  }

 private:
  static bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }
  static bool isPartByte(char byte) {
    const char lower = static_cast<char>(byte | 0x20);
    return isDigit(byte) || (lower >= 'a' && lower <= 'z') || byte == '-' || byte == '_';
  }
  static bool isPart(std::string_view part) {
    return !part.empty() && !isDigit(part.front()) && std::ranges::all_of(part, isPartByte);
  }
};

}  // namespace sorrel
