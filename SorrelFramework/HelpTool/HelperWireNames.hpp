#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace sorrel {

/// Why the helper refused a call, without any effect.
struct HelperRefusal {
  static constexpr const char* notAuthorised = "not-authorised";  ///< the user declined
  static constexpr const char* wrongPassword = "wrong-password";
  static constexpr const char* noAgent = "no-agent";  ///< no program of the session can ask for a password
  static constexpr const char* neverAsked = "never-asked";        ///< the rules deny it without asking
  static constexpr const char* noAuthority = "no-authority";      ///< polkit does not answer
  static constexpr const char* unknownCaller = "unknown-caller";  ///< the bus no longer knows the caller
  static constexpr const char* tooMany = "too-many";              ///< this user has a running event
  static constexpr const char* busy = "busy";                     ///< the helper's limits are reached
  static constexpr const char* closing = "closing";               ///< the next helper takes the call
  static constexpr const char* stopped = "stopped";               ///< by the caller, or with the helper
  static constexpr const char* unsound = "unsound-message";
  static constexpr const char* noTicket = "no-ticket";
  static constexpr const char* noMemory = "no-memory";
  static constexpr const char* noProcess = "no-process";
  static constexpr const char* callerLeft = "caller-left";
};

/// The names that the two programs use on the system bus; all are derived from the service name.
///
///     Begin(i event, i operation, u paths, t bytes) -> (t ticket, h memory)
///         asks polkit; the caller fills the memory
///     Run(t ticket) -> (b flag, i code, h message)
///         executes the event in the memory
///     Stop()
///         ends every event of this connection; each of them still gets its reply
///     CloseHelper() -> (b flag)
///         ends the helper, if the connection has used it and no event is running
///     GetHelperVersion() -> (s version)
///     Uninstall() -> (b flag, s text)
///         false, with the command that removes the helper
///
/// No method takes a descriptor, and the bus policy lets none through to the helper. A refusal is the error
/// refusalName(), with one of the words of HelperRefusal as its message.
struct HelperWireNames {
  static constexpr const char* getHelperVersion = "GetHelperVersion";
  static constexpr const char* begin = "Begin";
  static constexpr const char* run = "Run";
  static constexpr const char* stop = "Stop";
  static constexpr const char* closeHelper = "CloseHelper";
  static constexpr const char* uninstall = "Uninstall";
  /// The operation number of an event without an operation.
  static constexpr int noOperation = -1;

  std::string service;     ///< the name on the bus
  std::string interface;   ///< the same with "_" for characters that an interface name must not contain
  std::string objectPath;  ///< the interface's parts as folders

  explicit HelperWireNames(const std::string& machServiceName)
      : service(machServiceName), interface(machServiceName), objectPath("/" + machServiceName) {
    std::ranges::replace(interface, '-', '_');
    std::ranges::replace(objectPath, '-', '_');
    std::ranges::replace(objectPath, '.', '/');
  }

  [[nodiscard]] std::string refusalName() const { return interface + ".Error.Refused"; }

  /// True if it is a valid bus name: two or more parts with dots between them, each of letters, digits, "-"
  /// and "_" and without a leading digit; at most 255 bytes.
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
